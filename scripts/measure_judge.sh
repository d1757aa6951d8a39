#!/usr/bin/env bash
# Builds scripts/judge_timing.cpp with optimisation against the filter's
# sources and prints how long a judgement takes on 1, 4 and 16 MB texts.
set -euo pipefail
cd "$(dirname "$0")/.."
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
g++ -O2 -std=c++17 -Iinclude scripts/judge_timing.cpp src/JudgeInfo.cpp src/MediaFileInfoDefine.cpp \
    -o "$out/judge_timing"
"$out/judge_timing"
