#!/usr/bin/env bash
# Runs each fuzz target of a -DKELVANE_FUZZ=ON build in turn, one process at a time:
#   fuzz/run.sh BUILD_DIR [libFuzzer options...]     e.g. -max_total_time=5
# New inputs found go to BUILD_DIR/fuzz-corpus/<target> (the seeds in fuzz/corpus stay as they
# are); a crash leaves its reproducer in BUILD_DIR/fuzz-crashes/ and stops the run with failure.
# FUZZ_TARGETS="a b" limits the run to some targets.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "$1" && pwd); shift
targets=${FUZZ_TARGETS:-"json_reply_fuzzer hex_number_fuzzer regex_group_fuzzer station_info_fuzzer can_answer_fuzzer can_frames_fuzzer tec_reply_fuzzer"}

mkdir -p "$build/fuzz-crashes"
for target in $targets; do
  options=(-artifact_prefix="$build/fuzz-crashes/$target-" -print_final_stats=1 -timeout=25)
  case $target in
    json_reply_fuzzer|station_info_fuzzer) options+=(-dict="$here/json.dict") ;;
    regex_group_fuzzer) options+=(-max_len=512) ;;
  esac
  mkdir -p "$build/fuzz-corpus/$target"
  echo "--- $target"
  ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1} \
    "$build/fuzz/$target" "${options[@]}" "$@" "$build/fuzz-corpus/$target" "$here/corpus/$target"
done
