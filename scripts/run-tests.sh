#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test in a normal build. The tests where
# threads meet (labelled "threads": the transport shared by several callers, the TEC workers, a
# station of handles) run again under ThreadSanitizer. Last, clang with libc++ (the standard
# library of the macOS toolchain), AddressSanitizer and UndefinedBehaviorSanitizer builds
# everything, runs every test but the Python package's, and runs each fuzz target for a few
# seconds: one build serves as the sanitizer stage and the portability stage. Then the product is
# cross-built for its own platform, macOS x86-64, and its files checked (docs/portability.md).
# Warnings are errors in all four builds.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
jobs=$(nproc)

# ccache, where present, lets the builds and later runs share what they compiled; paths
# are taken relative to the checkout, so a fresh clone elsewhere still finds its objects.
launcher=()
if command -v ccache >/dev/null; then
  export CCACHE_BASEDIR="$PWD"
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

configure() {  # preset
  cmake --preset "$1" "${launcher[@]}" >/dev/null
}

# The builds are the presets of CMakePresets.json.
echo "=== normal build ==="
configure normal
cmake --build --preset normal -j"$jobs"
ctest --preset normal -j"$jobs"

echo "=== ThreadSanitizer build (the tests labelled threads: transport, TEC workers) ==="
configure tsan
cmake --build --preset tsan -j"$jobs"
ctest --preset tsan -j"$jobs"

echo "=== clang + libc++ + ASan/UBSan build (every test but the Python package's, fuzz targets) ==="
configure libcxx
cmake --build --preset libcxx -j"$jobs"
ctest --preset libcxx -j"$jobs"
fuzz/run.sh build-libcxx -max_total_time=5

echo "=== macOS x86-64 cross-build (libKelvane.dylib and the tools, their files checked) ==="
scripts/build-macos.sh
