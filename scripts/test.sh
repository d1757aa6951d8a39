#!/usr/bin/env bash
# From a fresh clone: installs what is missing, builds everything (the tests,
# the Python package, the benchmark), and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j"${JOBS:-$(nproc)}"
ctest --test-dir build --output-on-failure -j"${JOBS:-$(nproc)}"
