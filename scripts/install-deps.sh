#!/usr/bin/env bash
# Installs the Debian 12 packages libKelvane needs to build and test, when they are missing.
set -euo pipefail

packages=(
  build-essential cmake pkg-config binutils ccache dpkg-dev file
  libzmq3-dev cppzmq-dev nlohmann-json3-dev libicu-dev libspdlog-dev libfmt-dev libcli11-dev libboost-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  clang libc++-dev libc++abi-dev libclang-rt-dev googletest lld-14 llvm
  python3 python3-zmq python3-pytest python3-matplotlib python3-setuptools python3-pip python3-venv
  chromium chromium-driver python3-selenium
)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" \
    || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo_cmd=()
[ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
