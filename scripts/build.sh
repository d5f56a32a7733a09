#!/usr/bin/env bash
# Configures and builds into build/ ("normal"), build-sanitize/
# ("sanitize"), build-clang/ ("clang": clang, Release) or build-fuzz/
# ("fuzz": the libFuzzer harnesses). Further arguments name the targets to
# build (all if none).
set -euo pipefail
cd "$(dirname "$0")/.."
kind=${1:-normal}
shift || true
if [ "$kind" = sanitize ]; then
  dir=build-sanitize
  flags=(-DKELVANE_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug -DKELVANE_WERROR=ON)
elif [ "$kind" = fuzz ]; then
  dir=build-fuzz
  flags=(-DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKELVANE_WERROR=ON -DKELVANE_FUZZ=ON
         -DKELVANE_TESTS=OFF)
elif [ "$kind" = clang ]; then
  dir=build-clang
  flags=(-DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Release -DKELVANE_WERROR=ON)
else
  dir=build
  flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DKELVANE_WERROR=ON)
fi
cmake -S . -B "$dir" -G Ninja "${flags[@]}" >/dev/null
targets=()
for t in "$@"; do targets+=(--target "$t"); done
cmake --build "$dir" -j 2 "${targets[@]}"
