#!/usr/bin/env bash
# Installs what is missing, builds, and brings material of the example song
# examples/bassline_sketch into a copy of the example song examples/new_song
# under out/: the whole lead track, then the drum pattern 02 on its own.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh normal project_manager
rm -rf out/examples
mkdir -p out/examples
cp -r examples/bassline_sketch examples/new_song out/examples/
cd out/examples
../../build/project_manager --project_src bassline_sketch --project_tgt new_song \
  --source_track 0 --target_track 0 --whole_track
../../build/project_manager --project_src bassline_sketch --project_tgt new_song \
  --source_track 1 --target_track 1 -p 02
echo "the imported target project is in out/examples/new_song"
