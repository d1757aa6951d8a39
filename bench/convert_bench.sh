#!/usr/bin/env bash
# The conversion's benchmark: a first sync of COUNT files the device refuses
# (round-robin copies of every refused fixture), all converted, with
# --jobs 1 and --jobs 2; and the plan of a tree of 10,000 refused and
# playable files (a dry run: every refused file planned as a conversion,
# none done) against a plain `fileinfo --json` scan of the same tree.
#   bench/convert_bench.sh [BUILD_DIR] [WORK_DIR] [COUNT]
# Needs hyperfine and ffmpeg. Record the numbers in bench/RESULTS.md.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
work=${2:-$(mktemp -d)}
count=${3:-200}
tool=$build/tools/fileinfo
caps=$root/devices/player-caps.plist
mkdir -p "$work"

# The fixtures the sync converts, by its own plan.
mkdir -p "$work/fixture-dev"
"$tool" sync "$root/tests/fixtures" "$root/examples" "$root/tests/convert/fixtures" --to "$work/fixture-dev" --device "$caps" \
  --dry-run --format json |
  python3 -c 'import json, sys
for line in sys.stdin:
    d = json.loads(line)
    if d.get("action") in ("convert", "copy"): print(d["action"], d["source"])' > "$work/plan.txt"
grep '^convert ' "$work/plan.txt" | cut -d' ' -f2- > "$work/converts.txt"
grep '^copy ' "$work/plan.txt" | cut -d' ' -f2- > "$work/copies.txt"
echo "$(wc -l < "$work/converts.txt") fixtures converted, $(wc -l < "$work/copies.txt") copied"

make_tree() {  # OUT N LIST...
  local out=$1 n=$2
  shift 2
  rm -rf "$out" && mkdir -p "$out"
  mapfile -t sources < <(cat "$@")
  for ((i = 0; i < n; i++)); do
    src=${sources[i % ${#sources[@]}]}
    dir=$out/$(printf '%04d' $((i / 100)))
    mkdir -p "$dir"
    cp "$src" "$dir/$(printf '%05d' "$i")-$(basename "$src")"
  done
}
make_tree "$work/refused" "$count" "$work/converts.txt"
echo "tree: $count refused files, $(du -sh "$work/refused" | cut -f1)"

echo "== first sync converting $count files, --jobs 1 and --jobs 2"
hyperfine -w 0 -r 3 \
  --prepare "rm -rf $work/dev; mkdir $work/dev" \
  -n "convert, 1 job" "$tool sync $work/refused --to $work/dev --device $caps --jobs 1" \
  -n "convert, 2 jobs" "$tool sync $work/refused --to $work/dev --device $caps --jobs 2"

make_tree "$work/mixed" 10000 "$work/converts.txt" "$work/copies.txt"
rm -rf "$work/plan-dev" && mkdir "$work/plan-dev"
echo "== planning 10,000 files (no conversion done) against a scan (warm cache)"
hyperfine -N -w 1 -r 5 \
  -n "sync --dry-run" "$tool sync $work/mixed --to $work/plan-dev --device $caps --dry-run --format json" \
  -n "fileinfo --json" "$tool --json $work/mixed"
