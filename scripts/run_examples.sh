#!/usr/bin/env bash
# Installs what is missing, builds, and brings material of the example song
# examples/bassline_sketch into a copy of the example song examples/new_song
# under out/: the whole lead track, then the drum pattern 02 on its own;
# then instruments: the FM patch of track 2 with the program its callback
# calls, and an FX patch; last, the drum patches go into a new instrument
# library, out of which one comes back into the song.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh normal project_manager project_patch
rm -rf out/examples
mkdir -p out/examples
cp -r examples/bassline_sketch examples/new_song out/examples/
cd out/examples
../../build/project_manager --project_src bassline_sketch --project_tgt new_song \
  --source_track 0 --target_track 0 --whole_track
../../build/project_manager --project_src bassline_sketch --project_tgt new_song \
  --source_track 1 --target_track 1 -p 02
../../build/project_patch --project_src bassline_sketch --project_tgt new_song \
  --source_track 2 --target_track 2 --patch 00 --fx_patch 00
../../build/project_patch --project_src bassline_sketch --project_tgt instruments \
  --source_track 1 --target_track 0 --all_patches
../../build/project_patch --project_src instruments --project_tgt new_song \
  --source_track 0 --target_track 1 --patch 01
echo "the imported target project is in out/examples/new_song, the instrument library in out/examples/instruments"
