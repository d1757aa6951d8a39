#!/usr/bin/env bash
# Prints the record of every fixture, example and fuzzing-corpus file, each
# loaded under every extension the library reads, as fileinfo's JSON lines.
# Run it before and after a change to the library and diff the two outputs:
# a change that should move no record must leave them byte-identical.
#   scripts/record_snapshot.sh build > before.jsonl
# and compare them with scripts/compare_snapshots.py before.jsonl after.jsonl.
set -euo pipefail
build=${1:-build}
root=$(cd "$(dirname "$0")/.." && pwd)
tool=$(cd "$build" && pwd)/tools/fileinfo
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
n=0
while IFS= read -r -d '' f; do
  n=$((n + 1))
  for ext in mp3 aac mp4 m4a m4v mov 3gp wav aif; do
    cp "$f" "$tree/$(printf '%05d' "$n")-$(basename "${f%.*}").$ext"
  done
done < <(find "$root/tests/fixtures" "$root/examples" "$root/fuzz/corpus" -type f \
           ! -name '*.txt' ! -name '*.plist' ! -name '*.cpp' ! -name 'CMakeLists.txt' -print0 | sort -z)
# DAMAGED=N adds N copies damaged at random but repeatably (seeded): bytes
# changed, sizes cut or grown.
if [ "${DAMAGED:-0}" -gt 0 ]; then
  /usr/bin/python3 - "$tree" "$DAMAGED" <<'PY'
import os, random, sys
tree, count = sys.argv[1], int(sys.argv[2])
rng = random.Random(14)
sources = sorted(f for f in os.listdir(tree))
for k in range(count):
    name = rng.choice(sources)
    data = bytearray(open(os.path.join(tree, name), "rb").read())
    for _ in range(rng.randint(1, 8)):
        if data and rng.random() < 0.8:
            data[rng.randrange(len(data))] = rng.randrange(256)
        elif data:
            data = data[:rng.randrange(len(data))] if rng.random() < 0.5 else data + bytes(rng.randrange(4096))
    open(os.path.join(tree, "zz%05d-%s" % (k, name)), "wb").write(data)
PY
fi
cd "$tree"
# The library's record alone: --record keeps the lines as the tool wrote them
# before it showed readings (a tool from before --record has only those).
record=()
if "$tool" --help 2>/dev/null | grep -q -- '--record'; then record=(--record); fi
"$tool" --json "${record[@]}" . 2>/dev/null || true
