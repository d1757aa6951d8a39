#!/usr/bin/env bash
# The sync's benchmark: a first sync of 10,000 files against `cp -r` of the
# same files, a re-sync that changes nothing against `rsync -a` of the same
# tree to the same place, and the peak memory of syncs of 1,000 and 10,000
# files. Every file of the tree is one the device plays, so the sync copies
# all of them, as cp does.
#   bench/sync_bench.sh [BUILD_DIR] [WORK_DIR] [COUNT]
# Needs hyperfine, rsync and GNU time. Record the numbers in bench/RESULTS.md.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
work=${2:-$(mktemp -d)}
count=${3:-10000}
tool=$build/tools/fileinfo
caps=$root/devices/player-caps.plist
mkdir -p "$work"

# The fixtures the device plays, by the sync's own plan.
plays=$work/plays
rm -rf "$plays" && mkdir -p "$plays"
"$tool" sync "$root/tests/fixtures" "$root/examples" --to "$plays" --device "$caps" --dry-run --format json |
  python3 -c 'import json, sys
for line in sys.stdin:
    d = json.loads(line)
    if d.get("action") == "copy": print(d["source"])' > "$work/plays.txt"
echo "$(wc -l < "$work/plays.txt") fixtures the device plays"

# COUNT files round-robin from them, 100 a folder.
make_tree() {  # OUT N
  rm -rf "$1" && mkdir -p "$1"
  mapfile -t sources < "$work/plays.txt"
  for ((i = 0; i < $2; i++)); do
    src=${sources[i % ${#sources[@]}]}
    dir=$1/$(printf '%04d' $((i / 100)))
    mkdir -p "$dir"
    cp "$src" "$dir/$(printf '%05d' "$i")-$(basename "$src")"
  done
}
# REUSE_TREES=1 keeps trees an earlier run made.
if [[ ${REUSE_TREES:-0} != 1 || ! -d $work/tree ]]; then
  make_tree "$work/tree" "$count"
  make_tree "$work/tree1000" 1000
fi
echo "tree: $count files, $(du -sh "$work/tree" | cut -f1)"

echo "== first sync against cp -r (warm cache)"
hyperfine -w 1 -r 5 \
  --prepare "rm -rf $work/dev $work/cp; mkdir $work/dev" \
  -n "fileinfo sync" "$tool sync $work/tree --to $work/dev --device $caps" \
  -n "cp -r" "cp -r $work/tree $work/cp"

echo "== re-sync that changes nothing against rsync -a"
rm -rf "$work/dev" "$work/rs" && mkdir "$work/dev"
"$tool" sync "$work/tree" --to "$work/dev" --device "$caps" > /dev/null
rsync -a "$work/tree/" "$work/rs/"
hyperfine -N -w 1 -r 10 \
  -n "fileinfo sync (no change)" "$tool sync $work/tree --to $work/dev --device $caps" \
  -n "rsync -a (no change)" "rsync -a $work/tree/ $work/rs/"

echo "== peak memory (KB)"
for tree in tree1000 tree; do
  rm -rf "$work/dev" && mkdir "$work/dev"
  first=$(/usr/bin/time -f %M "$tool" sync "$work/$tree" --to "$work/dev" --device "$caps" 2>&1 >/dev/null | tail -1)
  again=$(/usr/bin/time -f %M "$tool" sync "$work/$tree" --to "$work/dev" --device "$caps" 2>&1 >/dev/null | tail -1)
  echo "$tree: first sync $first, re-sync $again"
done
