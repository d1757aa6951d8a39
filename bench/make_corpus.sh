#!/usr/bin/env bash
# Builds the benchmark tree from the repo's real media fixtures: copies them
# round-robin, 100 files a folder, until COUNT files exist.
#   bench/make_corpus.sh OUT_DIR [COUNT]   (default 10000)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=${1:?usage: make_corpus.sh OUT_DIR [COUNT]}
count=${2:-10000}

mapfile -t sources < <(find "$root/tests/fixtures" "$root/examples" -maxdepth 3 -type f \
  \( -iname '*.mp3' -o -iname '*.aac' -o -iname '*.mp4' -o -iname '*.m4a' -o -iname '*.m4v' \
     -o -iname '*.mov' -o -iname '*.3gp' -o -iname '*.wav' -o -iname '*.aif' \) | sort)
if ((${#sources[@]} == 0)); then
  echo "make_corpus: no media fixtures found" >&2
  exit 1
fi

rm -rf "$out"
mkdir -p "$out"
for ((i = 0; i < count; i++)); do
  src=${sources[i % ${#sources[@]}]}
  dir=$out/$(printf '%04d' $((i / 100)))
  mkdir -p "$dir"
  name=$(basename "$src")
  cp "$src" "$dir/$(printf '%05d' "$i")-$name"
done
echo "$count files from ${#sources[@]} fixtures in $out"
