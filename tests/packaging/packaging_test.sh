#!/usr/bin/env bash
# libKelvane as others get it: installed into a temporary prefix, found from there by a C++
# project (find_package) and a C program (pkg-config), and packaged as a .deb whose unpacked
# tools drive a cycle. Everything talks to kelvane-sim on the controller's fixed port.
# $1: the build directory, $2: the C compiler, $3: the C++ compiler.
set -uo pipefail
build=$1 cc=$2 cxx=$3
here=$(cd "$(dirname "$0")" && pwd)
tmp=$(mktemp -d)
sim=
trap 'stop_sim; rm -rf "$tmp"' EXIT

fail() { echo "FAILED: $*"; exit 1; }
run() {  # what, command...: runs it quietly, shows its output when it fails
  local what=$1; shift
  "$@" >"$tmp/out" 2>&1 || { cat "$tmp/out"; fail "$what"; }
}
start_sim() {  # kelvane-sim binary, with environment in front when needed
  "$@" --quiet --travel-ms 0 --lift-ms 0 >"$tmp/sim" &
  sim=$!
  for _ in $(seq 50); do grep -q '^listening on ' "$tmp/sim" && return; sleep 0.1; done
  fail "kelvane-sim did not start (port 7805 busy?)"
}
stop_sim() { [ -z "$sim" ] || { kill "$sim" 2>/dev/null; wait "$sim" 2>/dev/null; sim=; }; }

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
lib=$(sed -n 's/^CMAKE_INSTALL_LIBDIR:PATH=//p' "$build/CMakeCache.txt")

# --- installed into a prefix, found from there ------------------------------------------
prefix=$tmp/prefix
run "cmake --install into $prefix" cmake --install "$build" --prefix "$prefix"
pc=$(find "$prefix" -name kelvane.pc)
[ -n "$pc" ] || fail "no kelvane.pc installed"
export PKG_CONFIG_PATH=$(dirname "$pc")
libdir=$(pkg-config --variable=libdir kelvane) || fail "pkg-config does not read kelvane.pc"

run "the C++ consumer configures with find_package(Kelvane)" \
  cmake -S "$here/consumer_cpp" -B "$tmp/cpp" -DCMAKE_PREFIX_PATH="$prefix" \
        -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_BUILD_TYPE=Release
grep -q "^Kelvane_DIR:PATH=$prefix/" "$tmp/cpp/CMakeCache.txt" \
  || fail "find_package(Kelvane) found a package outside $prefix"
run "the C++ consumer builds" cmake --build "$tmp/cpp"
# shellcheck disable=SC2046  # pkg-config's flags are meant to be split
run "the C consumer builds with pkg-config's flags" \
  "$cc" "$here/consumer_c.c" -o "$tmp/consumer_c" $(pkg-config --cflags --libs kelvane)

start_sim "$prefix/bin/kelvane-sim"
said=$("$tmp/cpp/consumer_cpp" 7805 2>/dev/null) || fail "the C++ consumer's call (status $?)"
[ "$said" = "libKelvane $version sensors 0;1;1;0" ] || fail "the C++ consumer said '$said'"
said=$(LD_LIBRARY_PATH=$libdir "$tmp/consumer_c" 2>/dev/null) || fail "the C consumer's call"
[ "$said" = "libKelvane $version dut dut_sensor_on" ] || fail "the C consumer said '$said'"
stop_sim

# --- the Debian package -----------------------------------------------------------------
run "cpack -G DEB" cpack -G DEB --config "$build/CPackConfig.cmake" -B "$tmp/deb"
deb=$(ls "$tmp"/deb/libkelvane_"$version"_*.deb 2>/dev/null) || fail "no libkelvane_${version}_*.deb"
dpkg-deb -c "$deb" | awk '{print $6 $7 $8}' >"$tmp/files"
for file in "$lib/libKelvane.so.0->libKelvane.so.$version" "$lib/libKelvane.so->libKelvane.so.0" \
    include/kelvane/kelvane.h include/kelvane/Kelvane.hpp include/kelvane/version.h \
    "$lib/cmake/Kelvane/KelvaneConfig.cmake" "$lib/cmake/Kelvane/KelvaneConfigVersion.cmake" \
    "$lib/cmake/Kelvane/KelvaneTargets.cmake" "$lib/pkgconfig/kelvane.pc" bin/kelvanectl bin/kelvane-sim \
    share/doc/libkelvane/kelvanectl.txt share/doc/libkelvane/kelvane-sim.txt \
    share/doc/libkelvane/kelvanectl.md share/doc/libkelvane/simulator.md; do
  grep -q "^\./usr/$file\$" "$tmp/files" || fail "the package lacks /usr/$file"
done
depends=$(dpkg-deb -f "$deb" Depends)
for package in libc6 libstdc++6 libzmq5 libicu libspdlog nlohmann-json3-dev; do
  [[ ", $depends" == *", $package"* ]] || fail "Depends lacks $package: $depends"
done

root=$tmp/root
dpkg-deb -x "$deb" "$root"
objdump -p "$root/usr/$lib/libKelvane.so.$version" | grep -q 'SONAME *libKelvane\.so\.0$' \
  || fail "the library's SONAME is not libKelvane.so.0"
said=$("$root/usr/bin/kelvanectl" --version) || fail "the unpacked kelvanectl --version"
[ "$said" = "kelvanectl (libKelvane) $version" ] || fail "kelvanectl --version said '$said'"
start_sim "$root/usr/bin/kelvane-sim"
for command in connect tray-up tray-in sensors; do
  "$root/usr/bin/kelvanectl" "$command" >/dev/null 2>&1 \
    || fail "the unpacked kelvanectl $command against the unpacked kelvane-sim"
done
stop_sim
echo "2 passed, 0 failed"
