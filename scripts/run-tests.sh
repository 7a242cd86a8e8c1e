#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test twice: a normal build, and a build
# with AddressSanitizer and UndefinedBehaviorSanitizer. The tests where threads meet (the
# transport) run a third time under ThreadSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
jobs=$(nproc)

build_and_test() {
  local dir=$1; shift
  local filter=("${@:2}")
  echo "=== $dir ==="
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Debug -DKELVANE_BENCHMARKS=OFF $1 >/dev/null
  cmake --build "$dir" -j"$jobs"
  (cd "$dir" && ctest --output-on-failure -j"$jobs" "${filter[@]}")
}

build_and_test build-test ""
build_and_test build-asan "-DKELVANE_SANITIZE=ON"
build_and_test build-tsan "-DKELVANE_TSAN=ON" -R "Transport|transport|RpcClient"
