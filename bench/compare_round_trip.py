#!/usr/bin/env python3
"""Runs two builds of kelvane_transport_bench alternately in one session and compares them.

    bench/compare_round_trip.py BEFORE_BENCH AFTER_BENCH [ROUNDS]

Each round runs BEFORE, then AFTER (the order alternates between rounds), each with a few
repetitions; the figure of a run is the median real time of LibraryRoundTrip and of
BareDealerRoundTrip. Printed: per-round medians, and the median over rounds of
after/before for the library round trip, and of library/bare within each build.
"""
import json
import statistics
import subprocess
import sys
import tempfile

ARGS = ["--benchmark_repetitions=5", "--benchmark_min_time=0.2",
        "--benchmark_enable_random_interleaving=true", "--benchmark_report_aggregates_only=true"]


def run(bench):
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        subprocess.run([bench, *ARGS, f"--benchmark_out={out.name}", "--benchmark_out_format=json"],
                       check=True, stdout=subprocess.DEVNULL)
        report = json.load(open(out.name))
    # Real times in microseconds (the benchmark reports nanoseconds).
    medians = {b["run_name"].split("/")[0]: b["real_time"] / 1000 for b in report["benchmarks"]
               if b.get("aggregate_name") == "median"}
    return medians["LibraryRoundTrip"], medians["BareDealerRoundTrip"]


def main():
    before, after = sys.argv[1], sys.argv[2]
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 6
    results = {before: [], after: []}
    for r in range(rounds):
        for bench in ((before, after) if r % 2 == 0 else (after, before)):
            results[bench].append(run(bench))
        print(f"round {r + 1}: before {results[before][-1][0]:.1f}/{results[before][-1][1]:.1f} us, "
              f"after {results[after][-1][0]:.1f}/{results[after][-1][1]:.1f} us (library/bare)",
              flush=True)
    lib_ratio = statistics.median(a[0] / b[0] for a, b in zip(results[after], results[before]))
    print(f"library round trip, after/before: {lib_ratio:.3f}")
    for name, bench in (("before", before), ("after", after)):
        own = statistics.median(lib / bare for lib, bare in results[bench])
        libs = statistics.median(lib for lib, _ in results[bench])
        bares = statistics.median(bare for _, bare in results[bench])
        print(f"{name}: library {libs:.1f} us, bare {bares:.1f} us, library/bare {own:.3f}")


if __name__ == "__main__":
    main()
