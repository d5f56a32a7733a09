#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test three times: a
# normal build, one under AddressSanitizer and UndefinedBehaviorSanitizer,
# and a Release build with clang. Then the fuzz harnesses replay their
# seed corpora and fuzz briefly. Last, the Debian package is made from the
# clang Release build and checked with lintian.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
for kind in normal sanitize clang fuzz; do
  echo "== $kind build"
  targets=()
  [ $kind = fuzz ] && targets=(fuzz_cells fuzz_escape fuzz_settings fuzz_files fuzz_run)
  scripts/build.sh $kind "${targets[@]}"
  case $kind in
    normal) dir=build ;;
    *) dir=build-$kind ;;
  esac
  ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
    ctest --test-dir "$dir" --output-on-failure -j 2
done
echo "== Debian package"
# Any lintian error fails the run; warnings and infos are printed.
rm -rf build-clang/package
cpack --config build-clang/CPackConfig.cmake -G DEB -B "$PWD/build-clang/package"
debs=(build-clang/package/*.deb)
[ ${#debs[@]} -eq 1 ] && [ -f "${debs[0]}" ] || { echo "error: no single .deb in build-clang/package" >&2; exit 1; }
dpkg-deb --contents "${debs[0]}"
lintian --fail-on error --display-info "${debs[0]}"
