#!/usr/bin/env bash
# libKelvane as others get it: installed into a temporary prefix and found from there by a C++
# project (find_package) and a C program (pkg-config); packaged as a .deb whose unpacked tools
# drive a cycle. All talk to kelvane-sim on a free loopback port ($port).
# $1: the build directory, $2: the C compiler, $3: the C++ compiler.
set -uo pipefail
build=$1 cc=$2 cxx=$3 here=$(cd "$(dirname "$0")" && pwd) tmp=$(mktemp -d) sim=
trap 'stop_sim; rm -rf "$tmp"' EXIT
fail() { echo "FAILED: $*"; exit 1; }
run() { local what=$1; shift; "$@" >"$tmp/out" 2>&1 || { cat "$tmp/out"; fail "$what"; }; }
start_sim() {
  "$1" --bind 'tcp://127.0.0.1:*' --quiet --travel-ms 0 --lift-ms 0 >"$tmp/sim" & sim=$!
  for _ in $(seq 50); do
    port=$(sed -n 's/^listening on tcp:.*:\([0-9]*\)$/\1/p' "$tmp/sim")
    [ -z "$port" ] || return
    sleep 0.1
  done
  fail "$1 did not start"
}
stop_sim() { [ -z "$sim" ] || { kill "$sim"; wait "$sim"; sim=; } 2>/dev/null; }
cached() { sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt"; }
version=$(cached CMAKE_PROJECT_VERSION) lib=$(cached CMAKE_INSTALL_LIBDIR) prefix=$tmp/prefix

run "cmake --install into $prefix" cmake --install "$build" --prefix "$prefix"
export PKG_CONFIG_PATH=$prefix/$lib/pkgconfig
run "the C++ consumer configures" cmake -S "$here/consumer_cpp" -B "$tmp/cpp" \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_BUILD_TYPE=Release
grep -q "^Kelvane_DIR:PATH=$prefix/" "$tmp/cpp/CMakeCache.txt" || fail "Kelvane found outside $prefix"
run "the C++ consumer builds" cmake --build "$tmp/cpp"
# shellcheck disable=SC2046  # pkg-config's flags are meant to be split
run "the C consumer builds" "$cc" "$here/consumer_c.c" -o "$tmp/c" $(pkg-config --cflags --libs kelvane)
start_sim "$prefix/bin/kelvane-sim"
said=$("$tmp/cpp/consumer_cpp" "$port" 2>/dev/null)
[ "$said" = "libKelvane $version sensors 0;1;1;0" ] || fail "the C++ consumer said '$said'"
said=$(LD_LIBRARY_PATH=$prefix/$lib "$tmp/c" "$port" 2>/dev/null)
[ "$said" = "libKelvane $version dut dut_sensor_on" ] || fail "the C consumer said '$said'"
stop_sim

run "cpack -G DEB" cpack -G DEB --config "$build/CPackConfig.cmake" -B "$tmp/deb"
deb=$(ls "$tmp"/deb/libkelvane_"$version"_*.deb) || fail "no libkelvane_${version}_*.deb"
dpkg-deb -c "$deb" | awk '{print $6 $7 $8}' >"$tmp/files"
for file in "$lib/libKelvane.so.0->libKelvane.so.$version" "$lib/libKelvane.so->libKelvane.so.0" \
    include/kelvane/{kelvane.h,Kelvane.hpp,version.h} "$lib"/cmake/Kelvane/KelvaneConfig{,Version}.cmake \
    "$lib/pkgconfig/kelvane.pc" bin/{kelvanectl,kelvane-sim} \
    share/doc/libkelvane/{kelvanectl.txt,kelvane-sim.txt,kelvanectl.md,simulator.md}; do
  grep -qx "\./usr/$file" "$tmp/files" || fail "the package lacks /usr/$file"
done
depends=$(dpkg-deb -f "$deb" Depends)
for package in libc6 libstdc++6 libzmq5 libicu libspdlog nlohmann-json3-dev; do
  [[ ", $depends" == *", $package"* ]] || fail "Depends lacks $package: $depends"
done

root=$tmp/root
dpkg-deb -x "$deb" "$root"
# grep reads to the end: with -q it could leave objdump to die of SIGPIPE under pipefail.
objdump -p "$root/usr/$lib/libKelvane.so.$version" | grep 'SONAME *libKelvane\.so\.0$' >/dev/null \
  || fail "the SONAME is not libKelvane.so.0"
said=$("$root/usr/bin/kelvanectl" --version)
[ "$said" = "kelvanectl (libKelvane) $version" ] || fail "the unpacked kelvanectl --version said '$said'"
start_sim "$root/usr/bin/kelvane-sim"
for command in connect tray-up tray-in sensors; do
  "$root/usr/bin/kelvanectl" --port "$port" "$command" >/dev/null 2>&1 || fail "the unpacked kelvanectl $command"
done
echo "2 passed, 0 failed"
