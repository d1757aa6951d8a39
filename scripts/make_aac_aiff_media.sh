#!/usr/bin/env bash
# Makes the AIFF/AIFC and ADTS AAC test files with real encoders (Debian's
# sox, ffmpeg and id3v2) into tests/fixtures/aiff, tests/fixtures/aac and
# examples/. Only the results are committed; rerun to remake them. The
# expected values in the tests are worked out from the bytes of these files,
# so a remade file may need its expectations worked out again.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
aiff="$root/tests/fixtures/aiff"
aac="$root/tests/fixtures/aac"
mkdir -p "$aiff" "$aac"
quiet=(-hide_banner -loglevel error -y -bitexact)

# --- AIFF / AIFC ---
# sox AIFF: a COMT chunk, COMM and SSND; 8 kHz mono 16-bit, half a second.
sox -n -r 8000 -c 1 -b 16 "$aiff/sox-mono-8k.aif" synth 0.5 sine 440
# sox AIFC (FVER, COMM with "NONE", SSND): 22.05 kHz stereo 8-bit.
sox -n -r 22050 -c 2 -b 8 "$aiff/sox-stereo-22k.aifc" synth 0.25 sine 440 sine 660
# sox AIFF at 44.1 kHz, stereo 24-bit: the 80-bit rate 40 0E AC 44 ...
sox -n -r 44100 -c 2 -b 24 "$aiff/sox-stereo-44k-24bit.aif" synth 0.1 sine 440 sine 660
# A whole AIFF file shorter than the reader's 1024-byte buffer.
sox -n -r 8000 -c 1 -b 8 "$aiff/sox-tiny.aif" synth 0.05 sine 440
# ffmpeg AIFF with NAME, AUTH and ANNO chunks before COMM.
ffmpeg "${quiet[@]}" -f lavfi -i "sine=frequency=440:sample_rate=11025:duration=0.5" -ac 2 \
    -metadata title="Tuning Tone" -metadata author="Test Lab" -metadata comment="A4 reference" \
    -write_id3v2 0 -c:a pcm_s16be "$aiff/ffmpeg-tagged-11k.aif"
# ffmpeg AIFC with 32-bit float samples ("fl32").
ffmpeg "${quiet[@]}" -f lavfi -i "sine=frequency=440:sample_rate=16000:duration=0.3" \
    -c:a pcm_f32be -f aiff "$aiff/ffmpeg-float-16k.aifc"

# --- ADTS AAC ---
adts() {  # rate channels seconds output [extra ffmpeg options...]
    local rate=$1 channels=$2 seconds=$3 out=$4
    shift 4
    ffmpeg "${quiet[@]}" -f lavfi -i "sine=frequency=440:sample_rate=$rate:duration=$seconds" \
        -ac "$channels" -c:a aac -b:a 64k "$@" -f adts "$out"
}
adts 44100 2 1 "$aac/adts-44k-stereo.aac"
adts 22050 1 1 "$aac/adts-22k-mono-mpeg2.aac" -write_mpeg2 1
adts 8000 1 2 "$aac/adts-8k-mono.aac"
adts 48000 6 2 "$aac/adts-48k-6ch.aac"
# Shorter than the reader's 4608-byte first read.
adts 8000 1 0.3 "$aac/adts-short.aac"
# ID3v2.3 in front and ID3v1 at the end, as a tagger writes them.
cp "$aac/adts-44k-stereo.aac" "$aac/adts-44k-tagged.aac"
id3v2 --song "Tuning Tone" --artist "Test Lab" --album "Fixtures" --year 2024 \
    --comment "A4 reference" --track 7 --genre 12 "$aac/adts-44k-tagged.aac"

# --- examples ---
cp "$aiff/ffmpeg-tagged-11k.aif" "$root/examples/tone-tagged.aif"
cp "$aac/adts-44k-stereo.aac" "$root/examples/tone-stereo.aac"
