#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test twice: a normal build, and a build
# with AddressSanitizer and UndefinedBehaviorSanitizer. The tests where threads meet (the
# transport shared by several callers, the TEC workers) run a third time under ThreadSanitizer.
# Last, clang with libc++ (the standard library of the macOS toolchain), ASan and UBSan builds the
# library, the tools and the tests, runs the unit tests, and runs each fuzz target for a few
# seconds.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
jobs=$(nproc)

# ccache, where present, lets the four builds and later runs share what they compiled; paths
# are taken relative to the checkout, so a fresh clone elsewhere still finds its objects.
launcher=()
if command -v ccache >/dev/null; then
  export CCACHE_BASEDIR="$PWD"
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

configure() {  # directory, extra CMake options...
  local dir=$1; shift
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Debug "${launcher[@]}" "$@" >/dev/null
}

echo "=== normal build ==="
configure build-test -DKELVANE_BENCHMARKS=ON
cmake --build build-test -j"$jobs"
(cd build-test && ctest --output-on-failure -j"$jobs")

echo "=== AddressSanitizer + UndefinedBehaviorSanitizer build ==="
configure build-asan -DKELVANE_SANITIZE=ON -DKELVANE_BENCHMARKS=OFF
cmake --build build-asan -j"$jobs"
(cd build-asan && ctest --output-on-failure -j"$jobs")

echo "=== ThreadSanitizer build (transport, TEC workers) ==="
configure build-tsan -DKELVANE_TSAN=ON -DKELVANE_BENCHMARKS=OFF
cmake --build build-tsan -j"$jobs" --target kelvane_unit_tests kelvane_integration_tests kelvane-sim
(cd build-tsan && TSAN_OPTIONS="suppressions=$PWD/../tests/tsan.supp halt_on_error=1" \
   ctest --output-on-failure -j"$jobs" -R '^(Transport|TecMonitor|TecSimulator|WorkerThread|PendingCalls|TraceWriter)')

echo "=== clang + libc++ + ASan/UBSan build (all tests built, unit tests run, fuzz targets) ==="
CC=clang CXX=clang++ configure build-libcxx -DKELVANE_LIBCXX=ON -DKELVANE_SANITIZE=ON \
  -DKELVANE_FUZZ=ON -DKELVANE_BENCHMARKS=OFF
cmake --build build-libcxx -j"$jobs" --target Kelvane kelvane-sim kelvanectl kelvane-fixture-cycle kelvane-tec-worker-run \
  kelvane_unit_tests kelvane_integration_tests kelvane_c_api_tests kelvane_fuzzers
(cd build-libcxx && ctest --output-on-failure -j"$jobs" -L unit)
fuzz/run.sh build-libcxx -max_total_time=5
