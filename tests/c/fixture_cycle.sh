#!/bin/sh
# The main job end to end: kelvane-fixture-cycle drives a whole cycle through the C interface
# against kelvane-sim on the controller's fixed port, then, with the controller gone, must say
# it cannot be reached (exit 2). $1: kelvane-sim, $2: kelvane-fixture-cycle.
said=$(mktemp)
"$1" --quiet >"$said" & sim=$!
trap 'kill -9 $sim 2>/dev/null; rm -f "$said"' EXIT
for _ in $(seq 50); do grep -q '^listening on ' "$said" && break; sleep 0.1; done
grep -q '^listening on ' "$said" || { echo "kelvane-sim did not start (port busy?)"; exit 1; }
"$2" || { echo "FAILED: the cycle against kelvane-sim"; exit 1; }
kill -9 $sim && wait $sim 2>/dev/null
"$2"; status=$?
[ $status -eq 2 ] || { echo "FAILED: with no controller the exit status is $status, not 2"; exit 1; }
echo "2 passed, 0 failed"
