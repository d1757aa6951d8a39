#!/usr/bin/env bash
# Whole-collection scans side by side on one tree of distinct files:
# fileinfo with 1, 2, 4 and 8 jobs, TagLib, mutagen, mediainfo and exiftool,
# each over the same file list, warm (page cache filled) and cold (page
# cache dropped before every run, when this user may drop it). Also the peak
# resident memory of fileinfo per job count on the first 1,000 files and on
# the whole tree.
#   bench/scan_bench.sh TREE [BUILD_DIR]    (ROUNDS=n warm rounds, 3; COLD=0 skips cold runs)
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
tree=${1:?usage: scan_bench.sh TREE [BUILD_DIR]}
build=${2:-$root/build}
fileinfo=$build/tools/fileinfo
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

find "$tree" -type f | sort >"$work/files"
total=$(wc -l <"$work/files")
head -n 1000 "$work/files" >"$work/first1000"

drop_caches() { sync && echo 3 >/proc/sys/vm/drop_caches 2>/dev/null; }
cold=${COLD:-1}
if [ "$cold" = 1 ] && ! drop_caches; then
  echo "note: the page cache cannot be dropped here (needs root): cold runs skipped"
  cold=0
fi

seconds() { # runs "$@" once, prints elapsed seconds
  local start end
  start=$(date +%s.%N)
  "$@" >/dev/null 2>&1
  end=$(date +%s.%N)
  echo "$end - $start" | bc -l
}

declare -a tools
for j in 1 2 4 8; do
  eval "run_fi_$j() { \"\$fileinfo\" --json --no-progress --jobs $j --from \"\$work/files\"; }"
  tools+=("fileinfo --json --jobs $j|run_fi_$j")
done
if pkg-config --exists taglib 2>/dev/null &&
  c++ -O2 -std=c++17 -o "$work/taglib-read" "$root/bench/taglib_read.cpp" $(pkg-config --cflags --libs taglib); then
  run_taglib() { "$work/taglib-read" "$work/files"; }
  tools+=("TagLib properties+tags|run_taglib")
fi
if /usr/bin/python3 -c "import mutagen" 2>/dev/null; then
  run_mutagen() {
    /usr/bin/python3 -c '
import sys, mutagen
for line in open(sys.argv[1]):
    try: mutagen.File(line.rstrip("\n"))
    except Exception: pass' "$work/files"
  }
  tools+=("mutagen|run_mutagen")
fi
if command -v mediainfo >/dev/null; then
  run_mediainfo() { xargs -a "$work/files" -d '\n' mediainfo --Output=JSON; }
  tools+=("mediainfo --Output=JSON|run_mediainfo")
fi
if command -v exiftool >/dev/null; then
  run_exiftool() { exiftool -fast -json -@ "$work/files"; }
  tools+=("exiftool -fast -json|run_exiftool")
fi

rate() { echo "scale=0; $1 / $2" | bc -l; }
declare -A warm coldt
rounds=${ROUNDS:-3}
cat $(cat "$work/files") >/dev/null 2>&1
for ((round = 0; round < rounds; round++)); do
  for entry in "${tools[@]}"; do
    name=${entry%%|*}
    t=$(seconds "${entry#*|}")
    if [ -z "${warm[$name]:-}" ] || (($(echo "$t < ${warm[$name]}" | bc -l))); then warm[$name]=$t; fi
  done
done
if [ "$cold" = 1 ]; then
  for entry in "${tools[@]}"; do
    name=${entry%%|*}
    drop_caches
    coldt[$name]=$(seconds "${entry#*|}")
  done
fi

printf '%-30s %12s %12s %12s %12s\n' "tool" "warm s" "warm files/s" "cold s" "cold files/s"
for entry in "${tools[@]}"; do
  name=${entry%%|*}
  c=${coldt[$name]:-}
  printf '%-30s %12.3f %12s %12s %12s\n' "$name" "${warm[$name]}" "$(rate "$total" "${warm[$name]}")" \
    "${c:+$(printf '%.3f' "$c")}" "${c:+$(rate "$total" "$c")}"
done

echo
# Memory is measured on trees, which the walk streams: the first 1,000
# files (linked, not copied: the cache plays no part here) and the whole tree.
mkdir -p "$work/first1000tree"
while IFS= read -r f; do
  rel=${f#"$tree"/}
  mkdir -p "$work/first1000tree/$(dirname "$rel")"
  ln "$f" "$work/first1000tree/$rel" 2>/dev/null || cp "$f" "$work/first1000tree/$rel"
done <"$work/first1000"
echo "peak resident memory of fileinfo --json (KB):"
printf '%-8s %14s %14s\n' "jobs" "1,000 files" "$total files"
for j in 1 2 4 8; do
  small=$( { /usr/bin/time -f '%M' "$fileinfo" --json --no-progress --jobs "$j" "$work/first1000tree" >/dev/null; } 2>&1 | tail -1)
  large=$( { /usr/bin/time -f '%M' "$fileinfo" --json --no-progress --jobs "$j" "$tree" >/dev/null; } 2>&1 | tail -1)
  printf '%-8s %14s %14s\n' "$j" "$small" "$large"
done
echo "files: $total"
