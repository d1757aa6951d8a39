#!/usr/bin/env bash
# Runs, on one tree, the tools a user would otherwise pick (each only if it
# is installed) and `fileinfo --json`, and prints files per second for each
# and the ratio to fileinfo.
#   bench/compare.sh TREE [BUILD_DIR]     (ROUNDS=n: rounds of the quick tools, 5)
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
tree=${1:?usage: compare.sh TREE [BUILD_DIR]}
build=${2:-$root/build}
fileinfo=$build/tools/fileinfo
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

find "$tree" -type f | sort >"$work/files"
total=$(wc -l <"$work/files")
cat $(cat "$work/files") >/dev/null 2>&1  # warm the page cache

once() { # runs "$@" once, prints elapsed seconds
  local start end
  start=$(date +%s.%N)
  "$@" >/dev/null 2>&1
  end=$(date +%s.%N)
  echo "$end - $start" | bc -l
}

declare -a names rates
add() { names+=("$1"); rates+=("$2"); }
rate() { echo "scale=1; $1 / $2" | bc -l; }

# The quick tools, each given as "name|command": run in turns, round after
# round, so that all of them see the shared machine in the same states; the
# best round of each counts.
declare -a quick
run_fileinfo() { "$fileinfo" --json "$tree"; }
quick+=("fileinfo --json|run_fileinfo")
run_fileinfo_one() { "$fileinfo" --json --jobs 1 "$tree"; }
quick+=("fileinfo --json --jobs 1|run_fileinfo_one")
run_reading() { "$build/bench/fileinfo-reading-read" "$work/files"; }
if [ -x "$build/bench/fileinfo-reading-read" ]; then quick+=("readings alone, one process|run_reading"); fi
run_library() { "$build/bench/fileinfo-library-read" "$work/files"; }
if [ -x "$build/bench/fileinfo-library-read" ]; then quick+=("libFileInfo facade, one process|run_library"); fi
run_taglib() { "$work/taglib-read" "$work/files"; }
if pkg-config --exists taglib 2>/dev/null &&
  c++ -O2 -std=c++17 -o "$work/taglib-read" "$root/bench/taglib_read.cpp" $(pkg-config --cflags --libs taglib); then
  quick+=("TagLib properties+tags|run_taglib")
fi
python=""
for candidate in python3 /usr/bin/python3; do
  if "$candidate" -c "import mutagen" 2>/dev/null; then python=$candidate; break; fi
done
run_mutagen() {
  "$python" -c '
import sys, mutagen
for line in open(sys.argv[1]):
    try: mutagen.File(line.rstrip("\n"))
    except Exception: pass' "$work/files"
}
if [ -n "$python" ]; then quick+=("mutagen (one process)|run_mutagen"); fi
rounds=${ROUNDS:-5}
declare -a best
for ((round = 0; round < rounds; round++)); do
  for i in "${!quick[@]}"; do
    t=$(once "${quick[i]#*|}")
    if [ -z "${best[i]:-}" ] || (($(echo "$t < ${best[i]}" | bc -l))); then best[i]=$t; fi
  done
done
for i in "${!quick[@]}"; do add "${quick[i]%%|*}" "$(rate "$total" "${best[i]}")"; done
peak=$( { /usr/bin/time -f '%M' "$fileinfo" --json "$tree" >/dev/null; } 2>&1 | tail -1)

# The slow tools run once.
if command -v mediainfo >/dev/null; then
  t=$(once xargs -a "$work/files" -d '\n' mediainfo --Output=JSON)
  add "mediainfo --Output=JSON" "$(rate "$total" "$t")"
fi
if command -v ffprobe >/dev/null; then
  head -n 200 "$work/files" >"$work/subset"
  n=$(wc -l <"$work/subset")
  t=$(once xargs -a "$work/subset" -d '\n' -n 1 ffprobe -v quiet -show_format -show_streams)
  add "ffprobe (per file, $n files)" "$(rate "$n" "$t")"
fi
if command -v exiftool >/dev/null; then
  t=$(once exiftool -fast -json -@ "$work/files")
  add "exiftool -fast -json" "$(rate "$total" "$t")"
fi

base=${rates[0]}
taglib=""
for i in "${!names[@]}"; do
  if [[ ${names[i]} == TagLib* ]]; then taglib=${rates[i]}; fi
done
printf '%-32s %12s %16s %14s\n' "tool" "files/s" "fileinfo ÷ tool" "tool ÷ TagLib"
for i in "${!names[@]}"; do
  against=""
  if [ -n "$taglib" ]; then against=$(echo "scale=2; ${rates[i]} / $taglib" | bc -l); fi
  printf '%-32s %12s %16s %14s\n' "${names[i]}" "${rates[i]}" "$(echo "scale=1; $base / ${rates[i]}" | bc -l)" "$against"
done
echo "files: $total; fileinfo peak resident memory: ${peak} KB"
