#!/usr/bin/env python3
"""Runs two release build directories' transport benchmarks alternately and compares what a call
costs its caller.

    bench/compare_call_cpu.py BEFORE_BUILD AFTER_BUILD [ROUNDS]

Each round runs LibraryRoundTrip and BareDealerRoundTrip (kelvane_transport_bench) and the two
From8Threads benchmarks (kelvane_transport_concurrency_bench) of each build, five repetitions
each, the order of the builds alternating between rounds. Printed per build, medians over the
rounds: real time of a round trip, library/bare; CPU time per call of the calling threads,
library/bare, alone and from 8 threads; calls per second from 8 threads, library/bare.
"""
import json
import statistics
import subprocess
import sys
import tempfile

ARGS = ["--benchmark_repetitions=5", "--benchmark_min_time=0.3",
        "--benchmark_enable_random_interleaving=true", "--benchmark_report_aggregates_only=true"]
SINGLE = ("kelvane_transport_bench", "^(LibraryRoundTrip|BareDealerRoundTrip)")
EIGHT = ("kelvane_transport_concurrency_bench", "From8Threads")


def run(build, bench, selected):
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        subprocess.run([f"{build}/bench/{bench}", f"--benchmark_filter={selected}", *ARGS,
                        f"--benchmark_out={out.name}", "--benchmark_out_format=json"],
                       check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        report = json.load(open(out.name))
    # name -> (real µs, CPU µs, calls per second)
    return {b["run_name"].split("/")[0]: (b["real_time"] / 1000, b["cpu_time"] / 1000,
                                          b.get("items_per_second", 0))
            for b in report["benchmarks"] if b.get("aggregate_name") == "median"}


def main():
    builds = {"before": sys.argv[1], "after": sys.argv[2]}
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 3
    results = {name: [] for name in builds}
    for r in range(rounds):
        for name in (("before", "after") if r % 2 == 0 else ("after", "before")):
            figures = {**run(builds[name], *SINGLE), **run(builds[name], *EIGHT)}
            results[name].append(figures)
            print(f"round {r + 1} {name}: " + ", ".join(
                f"{k} {v[0]:.1f}/{v[1]:.1f} us" for k, v in sorted(figures.items())), flush=True)
    for name, runs in results.items():
        def ratio(library, bare, field):
            return statistics.median(f[library][field] / f[bare][field] for f in runs)
        def median(key, field):
            return statistics.median(f[key][field] for f in runs)
        print(f"{name}: round trip library/bare {ratio('LibraryRoundTrip', 'BareDealerRoundTrip', 0):.3f}; "
              f"CPU per call {median('LibraryRoundTrip', 1):.1f}/{median('BareDealerRoundTrip', 1):.1f} us "
              f"({ratio('LibraryRoundTrip', 'BareDealerRoundTrip', 1):.2f}), from 8 threads "
              f"{median('LibraryCallsFrom8Threads', 1):.1f}/{median('BareSocketsFrom8Threads', 1):.1f} us "
              f"({ratio('LibraryCallsFrom8Threads', 'BareSocketsFrom8Threads', 1):.2f}); "
              f"8-thread calls per second library/bare "
              f"{ratio('LibraryCallsFrom8Threads', 'BareSocketsFrom8Threads', 2):.2f}")


if __name__ == "__main__":
    main()
