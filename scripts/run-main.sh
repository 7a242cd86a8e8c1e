#!/usr/bin/env bash
# The main job: installs what is missing, builds, starts the fixture simulator on loopback,
# drives one full fixture cycle through the C interface, and stops the simulator.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKELVANE_BENCHMARKS=OFF >/dev/null
cmake --build build -j"$(nproc)" --target kelvane-sim kelvane-fixture-cycle

# The C interface always talks to port 7805 (KELVANE_CONTROLLER_PORT in kelvane.h).
fifo=$(mktemp -u)
mkfifo "$fifo"
build/tools/kelvane-sim/kelvane-sim --bind tcp://127.0.0.1:7805 --quiet >"$fifo" &
simulator=$!
trap 'kill "$simulator" 2>/dev/null; wait "$simulator" 2>/dev/null; rm -f "$fifo"' EXIT
read -r -t 10 ready <"$fifo" || { echo "kelvane-sim did not start" >&2; exit 1; }
echo "kelvane-sim: $ready"

build/tools/fixture-cycle/kelvane-fixture-cycle --ip 127.0.0.1
