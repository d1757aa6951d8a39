#!/usr/bin/env bash
# From a fresh clone: installs what is missing, builds the library and the
# tool (only those: scripts/test.sh builds the rest), and shows what they
# read from the example files.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j"${JOBS:-$(nproc)}" --target fileinfo
set -x
./build/tools/fileinfo --format table examples/
./build/tools/fileinfo --format csv --fields path,fileType,durationMs,sampleRate,title examples/
./build/tools/fileinfo --summary-only --device player-caps examples/
