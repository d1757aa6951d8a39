#!/usr/bin/env bash
# The memory of one tag edit against the size of the file: a tagged MP3
# (the fixture's tag and first frames) made 16 MiB and 2 GiB long by a hole
# after its frames, edited with each writer; the maximum resident set size
# from /usr/bin/time -v. The fields writer streams its copy and keeps the
# file's holes, so its memory stays flat; the library's writer checks its
# copy against a second edit in memory.
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

peak_kib() { { /usr/bin/time -v "$@" 2>&1 >/dev/null || true; } | awk -F': ' '/Maximum resident set size/ {print $2}'; }

for size in 16M 2G; do
  for writer in fields library; do
    file="$folder/song-$size.mp3"
    cp "$fixture" "$file"
    truncate -s "$size" "$file"
    force=""
    [ "$writer" = library ] && force="--force"
    kib=$(peak_kib "$tool" --set title=Measured --set track=2 --writer "$writer" $force --no-backup "$file")
    status=$("$tool" --json "$file" >/dev/null 2>&1 && echo loads || echo "does not load")
    echo "$size $writer: max RSS ${kib} KiB ($(du -k "$file" | cut -f1) KiB on disk, $status)"
    rm -f "$file"
  done
done
rmdir "$folder" 2>/dev/null || true
