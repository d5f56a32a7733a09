#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test three times: a
# normal build, one under AddressSanitizer and UndefinedBehaviorSanitizer,
# and a Release build with clang.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
for kind in normal sanitize clang; do
  echo "== $kind build"
  scripts/build.sh $kind
  case $kind in
    normal) dir=build ;;
    *) dir=build-$kind ;;
  esac
  ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
    ctest --test-dir "$dir" --output-on-failure -j 2
done
