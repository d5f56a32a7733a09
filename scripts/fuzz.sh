#!/usr/bin/env bash
# A fuzzing campaign: builds the libFuzzer harnesses with clang and runs
# each for SECONDS (default 600), growing a working corpus under
# build-fuzz/campaign/. New findings are written as crash-* files there;
# the seed corpora in fuzz/corpus/ stay as they are.
#
# usage: scripts/fuzz.sh [SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-600}
scripts/setup.sh
scripts/build.sh fuzz
for harness in fuzz_cells fuzz_escape fuzz_settings fuzz_files fuzz_run; do
  work=build-fuzz/campaign/$harness
  mkdir -p "$work"
  echo "== $harness"
  (cd "$work" && ../../fuzz/$harness -max_total_time="$seconds" -rss_limit_mb=4096 -print_final_stats=1 \
     . ../../../fuzz/corpus/$harness 2>&1 | grep -E 'Done|stat::number_of_executed_units|ERROR|SUMMARY') || true
done
