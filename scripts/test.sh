#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test twice: a normal
# build, and one under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
for kind in normal sanitize; do
  echo "== $kind build"
  scripts/build.sh $kind
  if [ $kind = normal ]; then dir=build; else dir=build-sanitize; fi
  ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
    ctest --test-dir "$dir" --output-on-failure -j 2
done
