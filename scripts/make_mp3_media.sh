#!/usr/bin/env bash
# Makes the MP3 test files in tests/fixtures/mp3/ and the MP3 example in
# examples/ with real encoders and taggers (Debian's sox, lame, ffmpeg,
# id3v2, eyeD3). Only the results are committed; rerun to remake them.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
out="$root/tests/fixtures/mp3"
mkdir -p "$out"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# Sources: two seconds of a chord, stereo and mono, 44100 Hz 16-bit.
sox -R -D -n -r 44100 -c 2 -b 16 "$work/chord.wav" synth 2 sine 440 sine 660
sox -R -D -n -r 44100 -c 1 -b 16 "$work/tone.wav" synth 2 sine 523

# Constant rate without a VBR header: the frame count is estimated.
lame --quiet -b 128 --cbr -t "$work/chord.wav" "$out/cbr128.mp3"
# Constant rate with lame's "Info" header: read as VBR.
lame --quiet -b 128 --cbr "$work/chord.wav" "$out/cbr128-info.mp3"
# Variable rate with a "Xing" header.
lame --quiet -V 6 "$work/chord.wav" "$out/vbr-xing.mp3"
# Mono, through ffmpeg: a leading ID3v2 tag and an "Info" header.
ffmpeg -loglevel error -y -i "$work/tone.wav" -c:a libmp3lame -b:a 64k -bitexact "$out/mono-ffmpeg.mp3"
# MPEG 2 Layer III at 22050 Hz, no VBR header.
lame --quiet --resample 22.05 -b 64 --cbr -t "$work/chord.wav" "$out/mpeg2-22050.mp3"
# MPEG 1 Layer II from ffmpeg's encoder, a raw stream.
ffmpeg -loglevel error -y -i "$work/chord.wav" -c:a mp2 -b:a 192k -f mp2 -bitexact "$out/layer2.mp3"

# Tagged: ID3v2.3 and ID3v1 written by id3v2 over a constant-rate stream.
lame --quiet -b 96 --cbr -t "$work/chord.wav" "$out/tagged-id3v2.mp3"
id3v2 --artist "The Testers" --song "Chord in A" --album "Fixtures" --year 2009 \
      --track 7 --genre 17 --comment "made for tests" "$out/tagged-id3v2.mp3"
# Tagged by eyeD3: an ID3v2.3 tag only, over a Xing stream.
cp "$out/vbr-xing.mp3" "$out/tagged-eyed3.mp3"
eyeD3 --quiet --to-v2.3 -a "Eye Artist" -t "Eye Title" -A "Eye Album" -Y 2011 -n 3 \
      "$out/tagged-eyed3.mp3" >/dev/null

# The example: one second of the chord, variable rate, tagged.
sox -R -D "$work/chord.wav" "$work/short.wav" trim 0 1
lame --quiet -V 6 "$work/short.wav" "$root/examples/chord-vbr.mp3"
id3v2 --artist "libFileInfo" --song "Chord" "$root/examples/chord-vbr.mp3"
