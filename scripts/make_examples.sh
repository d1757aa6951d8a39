#!/usr/bin/env bash
# Makes the small media files in examples/ with real encoders (Debian's
# sox and ffmpeg). Only the results are committed; rerun to remake them.
set -euo pipefail
cd "$(dirname "$0")/../examples"
# One second of a 440 Hz tone, 8 kHz mono 16-bit PCM: 16 KB.
sox -n -r 8000 -c 1 -b 16 tone-mono.wav synth 1 sine 440
# Eight seconds of stereo 4 kHz 8-bit PCM: the reader's duration unit is eight seconds.
sox -n -r 4000 -c 2 -b 8 -e unsigned-integer chord-8s.wav synth 8 sine 440 sine 660
