#!/usr/bin/env bash
# Installs what is missing, builds, and imports patterns of the example
# source project into a copy of the example target project under out/.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh normal project_manager
rm -rf out/examples
mkdir -p out/examples
cp -r examples/source out/examples/source
cp -r examples/target out/examples/target
cd out/examples
../../build/project_manager --project_src source --project_tgt target \
  --source_track 0 --target_track 0 -p 00,01
echo "the imported target project is in out/examples/target"
