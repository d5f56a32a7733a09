#!/usr/bin/env bash
# Configures and builds into build/ (or build-sanitize/ with "sanitize").
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "${1:-}" = sanitize ]; then
  dir=build-sanitize
  flags=(-DKELVANE_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug)
else
  dir=build
  flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo)
fi
cmake -S . -B "$dir" -G Ninja "${flags[@]}" >/dev/null
cmake --build "$dir" -j 2
