#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test twice: a normal build, and a build
# with AddressSanitizer and UndefinedBehaviorSanitizer. The tests where threads meet (the
# transport shared by several callers) run a third time under ThreadSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
jobs=$(nproc)

configure() {  # directory, extra CMake options...
  local dir=$1; shift
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Debug "$@" >/dev/null
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
   ctest --output-on-failure -j"$jobs" -R '^(Transport|TecMonitor|TecSimulator|WorkerThread|PendingCalls)')
