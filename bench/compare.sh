#!/usr/bin/env bash
# Runs, on one tree, the tools a user would otherwise pick (each only if it
# is installed) and `fileinfo --json`, and prints files per second for each
# and the ratio to fileinfo.
#   bench/compare.sh TREE [BUILD_DIR]
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

seconds() { # runs "$@", prints the best elapsed seconds of three runs for quick tools
  local best t i
  best=$(once "$@")
  if (($(echo "$best < 5" | bc -l))); then
    for i in 1 2; do
      t=$(once "$@")
      if (($(echo "$t < $best" | bc -l))); then best=$t; fi
    done
  fi
  echo "$best"
}

declare -a names rates
add() { names+=("$1"); rates+=("$2"); }
rate() { echo "scale=1; $1 / $2" | bc -l; }

# fileinfo itself, and its peak memory over the whole tree.
t=$(seconds "$fileinfo" --json "$tree")
add "fileinfo --json" "$(rate "$total" "$t")"
peak=$( { /usr/bin/time -f '%M' "$fileinfo" --json "$tree" >/dev/null; } 2>&1 | tail -1)

if command -v mediainfo >/dev/null; then
  t=$(seconds xargs -a "$work/files" -d '\n' mediainfo --Output=JSON)
  add "mediainfo --Output=JSON" "$(rate "$total" "$t")"
fi
if command -v ffprobe >/dev/null; then
  head -n 200 "$work/files" >"$work/subset"
  n=$(wc -l <"$work/subset")
  t=$(seconds xargs -a "$work/subset" -d '\n' -n 1 ffprobe -v quiet -show_format -show_streams)
  add "ffprobe (per file, $n files)" "$(rate "$n" "$t")"
fi
if pkg-config --exists taglib 2>/dev/null; then
  c++ -O2 -std=c++17 -o "$work/taglib-read" "$root/bench/taglib_read.cpp" $(pkg-config --cflags --libs taglib) &&
    { t=$(seconds "$work/taglib-read" "$work/files"); add "TagLib properties+tags" "$(rate "$total" "$t")"; }
fi
python=""
for candidate in python3 /usr/bin/python3; do
  if "$candidate" -c "import mutagen" 2>/dev/null; then python=$candidate; break; fi
done
if [ -n "$python" ]; then
  t=$(seconds "$python" -c '
import sys, mutagen
for line in open(sys.argv[1]):
    try: mutagen.File(line.rstrip("\n"))
    except Exception: pass' "$work/files")
  add "mutagen (one process)" "$(rate "$total" "$t")"
fi
if command -v exiftool >/dev/null; then
  t=$(seconds exiftool -fast -json -@ "$work/files")
  add "exiftool -fast -json" "$(rate "$total" "$t")"
fi

base=${rates[0]}
printf '%-32s %12s %14s\n' "tool" "files/s" "fileinfo ÷ tool"
for i in "${!names[@]}"; do
  printf '%-32s %12s %14s\n' "${names[i]}" "${rates[i]}" "$(echo "scale=1; $base / ${rates[i]}" | bc -l)"
done
echo "files: $total; fileinfo peak resident memory: ${peak} KB"
