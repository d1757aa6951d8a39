#!/usr/bin/env bash
# The memory of one tag edit against the size of the file: a tagged MP3
# (the fixture's tag and first frames) made 16 MiB and 2 GiB long by a hole
# after its frames, edited with each writer; the maximum resident set size
# from /usr/bin/time -v. The fields writer streams its copy and keeps the
# file's holes, so its memory stays flat; the library's writer checks its
# copy against a second edit in memory (a memory file, which the resident
# size of the process does not count).
#
# Measured (2 cores, ext4): the fields writer 5.6 MiB for 16 MiB and 5.7 MiB
# for 2 GiB, the edited file keeping its holes (28 KiB on disk).
#
# Then an AIFF file whose tags are in its text chunks (the fixture, its SSND
# made 16 MiB and 2 GiB long by a hole), its title made longer: NAME lies
# before SSND, so the whole sound moves in the copy, in 1 MiB blocks, its
# zero blocks written as holes. Measured (2 cores, ext4): 6.8 MiB for 16 MiB
# and 6.6 MiB for 2 GiB, 1,028 KiB on disk after (the one block holding
# samples is written whole), the title and duration read back.
#
#   bench/edit_memory.sh [BUILD_DIR] [FOLDER]
#
# FOLDER (default: a new folder under /tmp) must be on a file system with
# holes (ext4, xfs, tmpfs, ...). Not a test: it measures.
set -euo pipefail
build=${1:-build}
folder=${2:-$(mktemp -d /tmp/fileinfo-edit-memory-XXXXXX)}
tool="$build/tools/fileinfo"
fixture="$(dirname "$0")/../tests/fixtures/mp3/tagged-id3v2.mp3"

# The peak resident size in KiB, then the tool's own count of the edit.
peak_kib() {
  { /usr/bin/time -v "$@" 2>&1 >/dev/null || true; } |
    awk -F': ' '/Maximum resident set size/ {kib = $2} /^fileinfo: [0-9]+ changed/ {sub(/^fileinfo: /, ""); edit = $0}
                END {print kib " KiB (" edit ")"}'
}

for size in 16M 2G; do
  for writer in fields library; do
    file="$folder/song-$size.mp3"
    cp "$fixture" "$file"
    truncate -s "$size" "$file"
    force=""
    [ "$writer" = library ] && force="--force"
    peak=$(peak_kib "$tool" --set title=Measured --set track=2 --writer "$writer" $force --no-backup "$file")
    status=$("$tool" --json "$file" >/dev/null 2>&1 && echo loads || echo "does not load")
    echo "$size $writer: max RSS $peak, $(du -k "$file" | cut -f1) KiB on disk after, $status"
    rm -f "$file"
  done
done

aiff_fixture="$(dirname "$0")/../tests/fixtures/aiff/ffmpeg-tagged-11k.aif"
for size in 16M 2G; do
  file="$folder/tone-$size.aif"
  cp "$aiff_fixture" "$file"
  truncate -s "$size" "$file"
  # The FORM and SSND sizes cover the hole (SSND's header is at 94).
  python3 - "$file" <<'PY'
import os, struct, sys
path = sys.argv[1]
size = os.path.getsize(path)
with open(path, "r+b") as f:
    f.seek(4); f.write(struct.pack(">I", size - 8))
    f.seek(98); f.write(struct.pack(">I", size - 102))
PY
  before=$("$tool" --json "$file" 2>/dev/null | python3 -c 'import json,sys; m=json.load(sys.stdin)["media"]; print(m["tags"]["title"], m["duration_ms"])')
  peak=$(peak_kib "$tool" --set "title=A title longer than the one there" --no-backup "$file")
  after=$("$tool" --json "$file" 2>/dev/null | python3 -c 'import json,sys; m=json.load(sys.stdin)["media"]; print(m["tags"]["title"], m["duration_ms"])')
  echo "$size aiff text chunks: max RSS $peak, $(du -k "$file" | cut -f1) KiB on disk after; before: $before; after: $after"
  rm -f "$file"
done
rmdir "$folder" 2>/dev/null || true
