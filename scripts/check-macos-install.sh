#!/usr/bin/env bash
# Checks a macOS x86-64 install of libKelvane, as scripts/build-macos.sh stages it (or as
# `cmake --install` leaves it on a Mac): the library and the tools are Mach-O x86-64 files, the
# library's install name is its path under the prefix, its versions are the project's, its
# minimum macOS is the deployment target, it exports every C function of kelvane.h and nothing
# outside the C interface and namespace kelvane, it leaves only ICU to be bound at load time, and
# the tools find it (install name, rpath @loader_path/../lib). Needs file and llvm-objdump.
# $1: the installed tree (e.g. build-macos/stage/usr/local); $2: the prefix it was installed
# for (default /usr/local). Prints one line per check; exits 1 when one fails.
set -uo pipefail
tree=$1 prefix=${2:-/usr/local}
here=$(cd "$(dirname "$0")/.." && pwd)
lib=$tree/lib/libKelvane.dylib
failures=0

check() {  # what, command...
  local what=$1
  shift
  if "$@"; then echo "ok: $what"; else echo "FAILED: $what"; failures=$((failures + 1)); fi
}
file_says() { file -b "$1" | grep "^$2" >/dev/null; }
objdump() { llvm-objdump --macho "$@" 2>/dev/null; }

version=$(sed -n 's/^#define KELVANE_VERSION_STRING "\(.*\)"$/\1/p' "$tree/include/kelvane/version.h")
deployment=$(sed -n 's/^set(CMAKE_OSX_DEPLOYMENT_TARGET \(.*\))$/\1/p' "$here/cmake/macos-x86_64.toolchain.cmake")
c_functions=$(sed -n 's/^KELVANE_API [^(]*[ *]\([A-Za-z_0-9]*\)(.*/_\1/p' "$here/include/kelvane/kelvane.h")
exports=$(objdump --exports-trie "$lib" | awk '/^0x/ {print $2}')
namespace_kelvane='^__Z(T[ISV]|Thn?[0-9]+_)?NK?7kelvane'

names_itself() {  # the library's id, with the project's current and compatibility versions
  [ "$(objdump --dylibs-used "$lib" | sed -n 2p)" = \
    $'\t'"$prefix/lib/libKelvane.dylib (compatibility version ${version%%.*}.0.0, current version $version)" ]
}
runs_from_deployment_target() {
  [ "$(objdump --private-headers "$lib" | awk '/cmd LC_BUILD_VERSION/ {found = 1}
        found && $1 == "platform" {platform = $2} found && $1 == "minos" {print platform, $2; exit}')" \
    = "macos $deployment" ]
}
exports_every_c_function() {
  local missing
  missing=$(comm -23 <(sort <<<"$c_functions") <(sort <<<"$exports"))
  [ -z "$missing" ] || { echo "not exported: $missing"; return 1; }
}
exports_nothing_else() {
  local others
  others=$(grep -vxF -f <(echo "$c_functions") <<<"$exports" | grep -vE "$namespace_kelvane")
  [ -z "$others" ] || { echo "exported besides: $others" | head -20; return 1; }
}
binds_at_load_only_icu() {  # what -undefined dynamic_lookup leaves to the flat namespace
  local others
  others=$(objdump --bind --lazy-bind "$1" | awk 'NF > 2 && $(NF-1) == "flat-namespace" {print $NF}' |
           grep -vE 'icu_[0-9]+|_[0-9]+$')
  [ -z "$others" ] || { echo "bound at load time: $others" | head -20; return 1; }
}
loads() { objdump --dylibs-used "$1" | grep -E $'^\t'"$2 \\(" >/dev/null; }
has_rpath() { objdump --private-headers "$1" | grep -A2 'cmd LC_RPATH' | grep "path $2 " >/dev/null; }

check "libKelvane.dylib is a Mach-O x86-64 dynamic library" \
  file_says "$lib" "Mach-O 64-bit x86_64 dynamically linked shared library"
check "its install name is $prefix/lib/libKelvane.dylib, versions $version / ${version%%.*}.0.0" names_itself
check "its minimum macOS is $deployment" runs_from_deployment_target
check "it exports every C function of kelvane.h" exports_every_c_function
check "it exports nothing outside the C interface and namespace kelvane" exports_nothing_else
check "it loads a libzmq.5.dylib" loads "$lib" "/.*/libzmq\\.5\\.dylib"
check "it leaves only ICU to be bound at load time" binds_at_load_only_icu "$lib"
for tool in kelvanectl kelvane-sim kelvane-fixture-cycle; do
  check "$tool is a Mach-O x86-64 executable" file_says "$tree/bin/$tool" "Mach-O 64-bit x86_64 executable"
done
for tool in kelvanectl kelvane-fixture-cycle; do
  check "$tool loads $prefix/lib/libKelvane.dylib" loads "$tree/bin/$tool" "$prefix/lib/libKelvane.dylib"
  check "$tool's rpath is @loader_path/../lib" has_rpath "$tree/bin/$tool" "@loader_path/../lib"
done
echo "libKelvane.dylib exports $(wc -l <<<"$exports") symbols: $(wc -l <<<"$c_functions") C functions," \
     "$(grep -cE "$namespace_kelvane" <<<"$exports") of namespace kelvane"
[ "$failures" -eq 0 ] || { echo "$failures check(s) failed"; exit 1; }
