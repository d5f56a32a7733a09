#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test twice: a normal
# build, and one under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
for kind in normal sanitize; do
  echo "== $kind build"
  if [ $kind = normal ]; then scripts/build.sh; dir=build; else scripts/build.sh sanitize; dir=build-sanitize; fi
  ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
    ctest --test-dir "$dir" --output-on-failure -j 2
done
