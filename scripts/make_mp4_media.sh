#!/usr/bin/env bash
# Makes the small MP4-family files the reader's tests check, with Debian's
# ffmpeg (libx264, libx265, the native MPEG-4 Visual, H.263, AAC and ALAC encoders),
# into tests/fixtures/mp4/, and one example into examples/. Only the results
# are committed; rerun to remake them (the tests' expected values then have
# to be worked out again from the new files).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
out="$root/tests/fixtures/mp4"
mkdir -p "$out"
cd "$out"

ff() { ffmpeg -v error -y "$@"; }
video="-f lavfi -i testsrc=size=160x120:rate=10:duration=1"
tone="-f lavfi -i sine=frequency=440:sample_rate=16000:duration=1"

# H.264 Baseline level 3.0, video only, "moov" after "mdat" (ffmpeg's default layout).
ff $video -c:v libx264 -profile:v baseline -level 3.0 -b:v 40k -pix_fmt yuv420p h264-baseline.mp4
# H.264 High level 3.1 with AAC, "moov" first.
ff $video $tone -c:v libx264 -profile:v high -level 3.1 -b:v 40k -pix_fmt yuv420p \
   -c:a aac -b:a 24k -movflags +faststart h264-high-aac.mp4
# MPEG-4 Visual with AAC, "moov" first.
ff $video $tone -c:v mpeg4 -b:v 40k -c:a aac -b:a 24k -movflags +faststart mpeg4-aac.m4v
# H.263 at QCIF in 3GP; this ffmpeg has no AMR encoder, so the sound is AAC.
ff -f lavfi -i testsrc=size=176x144:rate=10:duration=1 $tone -c:v h263 -b:v 40k \
   -c:a aac -b:a 24k h263-aac.3gp
# AAC with iTunes-style text items, "moov" first.
ff $tone -c:a aac -b:a 24k -movflags +faststart \
   -metadata title="Test Tone" -metadata artist="The Builders" -metadata album="Fixtures" \
   -metadata date=2005-06-01 -metadata comment="made by ffmpeg" -metadata composer="A. Composer" \
   -metadata genre="Electronic" -metadata track=7 aac-tagged.m4a
# Apple Lossless, 16-bit mono.
ff $tone -c:a alac alac.m4a
# QuickTime movie: H.264 Main level 2.1 with AAC in a version-1 sound entry.
ff $video $tone -c:v libx264 -profile:v main -level 2.1 -b:v 40k -pix_fmt yuv420p \
   -c:a aac -b:a 24k -f mov h264-aac.mov
# 1000 tiny frames, "moov" first: the sample-size table runs past the first 4096 bytes.
ff -f lavfi -i color=c=blue:size=64x64:rate=100:duration=10 -c:v libx264 -profile:v baseline \
   -pix_fmt yuv420p -movflags +faststart many-frames.mp4

# MPEG-1 Layer II sound in MP4 (object type 0x6B), 32 kHz mono, 64 kbit/s.
ff -f lavfi -i sine=frequency=440:sample_rate=32000 -c:a mp2 -b:a 64k -t 1 mp2-sound.mp4
# AAC Main with UTF-8 texts, an album artist and no artist, and a track total.
ff $tone -c:a aac -profile:a aac_main -b:a 24k -movflags +faststart \
   -metadata title="Żółw ♫ Main" -metadata album_artist="The Ensemble" -metadata track=3/12 \
   -metadata genre=Jazz -metadata date=1987 aac-main-tagged.m4a
# H.265 Main in an 'hvc1' entry, and Main 10 in an 'hev1' entry, video only.
ff $video -c:v libx265 -x265-params log-level=none -b:v 40k -pix_fmt yuv420p -tag:v hvc1 h265-main.mp4
ff $video -c:v libx265 -x265-params log-level=none -b:v 40k -pix_fmt yuv420p10le -tag:v hev1 h265-main10.mp4

cp aac-tagged.m4a "$root/examples/tone-tagged.m4a"
ls -l "$out" "$root/examples/tone-tagged.m4a"
