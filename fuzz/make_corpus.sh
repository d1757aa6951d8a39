#!/usr/bin/env bash
# Builds the starting corpus of every fuzz target from the test fixtures,
# in fuzz/corpus/<target>/. The results are committed; rerun after adding
# fixtures. Files are cut to 16 KB: the readers' interesting bytes are at
# the start and the end, and small inputs keep the fuzzers fast.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=$root/fuzz/corpus
fixtures=$root/tests/fixtures
rm -rf "$out"
mkdir -p "$out"

cut16k() { head -c 16384 "$1"; }

# Readers: the fixtures of their own format.
add_reader() { # target, files...
  local target=$1; shift
  mkdir -p "$out/$target"
  for f in "$@"; do cut16k "$f" >"$out/$target/$(basename "$f")"; done
}
add_reader fuzz_reader_mp3 "$fixtures"/mp3/*.mp3
add_reader fuzz_reader_aac "$fixtures"/aac/*.aac
add_reader fuzz_reader_aif "$fixtures"/aiff/*
add_reader fuzz_reader_mp4 "$fixtures"/mp4/*
add_reader fuzz_reader_wav "$root"/examples/*.wav

# Tags: the head with the ID3v2 tag and the tail with the ID3v1 trailer.
head_and_tail() { head -c 8192 "$1"; tail -c 128 "$1"; }
mkdir -p "$out/fuzz_id3_load"
for f in "$fixtures"/mp3/tagged-*.mp3 "$fixtures"/aac/adts-44k-tagged.aac; do
  head_and_tail "$f" >"$out/fuzz_id3_load/$(basename "$f")"
done

# The facade: a first byte choosing the extension, then the file.
mkdir -p "$out/fuzz_facade"
ext_index() { case "$1" in mp3) echo 0;; aac) echo 1;; mp4) echo 2;; 3gp) echo 3;; m4v) echo 4;;
  m4a) echo 5;; wav) echo 6;; aif|aifc) echo 7;; mov) echo 8;; esac; }
for f in "$fixtures"/*/* "$root"/examples/*.wav; do
  name=$(basename "$f")
  i=$(ext_index "${name##*.}")
  { printf "\\x$(printf %02x "$i")"; cut16k "$f"; } >"$out/fuzz_facade/$name"
done

# The tag writer: a file, then as many bytes again for the record.
mkdir -p "$out/fuzz_id3_write"
for f in "$fixtures"/mp3/tagged-*.mp3 "$fixtures"/aac/adts-44k-tagged.aac; do
  { head_and_tail "$f"; head -c 44 /dev/zero; printf 'Title'; head -c 8271 /dev/zero; } \
    >"$out/fuzz_id3_write/$(basename "$f")"
done

# The filter: a 1836-byte record (the type text at byte 44, where the
# record's fileType lies), then a capability description.
mkdir -p "$out/fuzz_filter"
for type in MP3 AAC WAV H.264; do
  { head -c 44 /dev/zero; printf '%s' "$type"; head -c $((1836 - 44 - ${#type})) /dev/zero;
    cat "$root/devices/player-caps.plist"; } \
    >"$out/fuzz_filter/caps-$type"
done
# The front ends' targets take their structure from the input's bytes:
# the fixtures' heads give them realistic records, texts and names.
head2k() { head -c 2048 "$1"; }
for target in fuzz_views fuzz_report fuzz_difference fuzz_text fuzz_walk; do
  mkdir -p "$out/$target"
  for f in "$fixtures"/*/* "$root"/examples/*.wav; do head2k "$f" >"$out/$target/$(basename "$f")"; done
done
# The capability file: a fixture's head for the item and the reading, then
# the example device's list.
mkdir -p "$out/fuzz_caps"
for f in "$fixtures"/*/*; do
  { head -c 3000 "$f"; cat "$root/devices/player-caps.plist"; } >"$out/fuzz_caps/$(basename "$f")"
done
# The readings' readers: every fixture and example as it is, cut to the
# fuzzer's longest input.
mkdir -p "$out/fuzz_media"
for f in "$fixtures"/*/* "$root"/examples/*; do
  [ -f "$f" ] && head -c 65536 "$f" >"$out/fuzz_media/$(basename "$f")"
done
# Inputs that once found a fault stay in every corpus made from now on.
for dir in "$root"/fuzz/findings/*/; do
  [ -d "$dir" ] || continue
  target=$(basename "$dir")
  mkdir -p "$out/$target"
  cp "$dir"* "$out/$target/"
done
du -sh "$out"
