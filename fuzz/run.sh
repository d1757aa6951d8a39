#!/usr/bin/env bash
# Runs fuzz targets for a bounded time each, starting from the committed
# corpus (new inputs go to a scratch folder, not into the repo). A crash,
# leak, timeout or out-of-memory fails the run and prints the reproducer.
#   fuzz/run.sh BUILD_DIR SECONDS [TARGET...]   (default: every target)
# FUZZ_WORK=DIR keeps the new inputs and the logs there; FUZZ_TIMEOUT=N
# sets the seconds an input may take (2).
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:?usage: run.sh BUILD_DIR SECONDS [TARGET...]}
seconds=${2:?usage: run.sh BUILD_DIR SECONDS [TARGET...]}
shift 2
targets=("$@")
if ((${#targets[@]} == 0)); then
  mapfile -t targets < <(cd "$build/fuzz" && ls fuzz_* | sort)
fi
work=${FUZZ_WORK:-$(mktemp -d)}
failed=0
for target in "${targets[@]}"; do
  corpus=$work/$target/corpus
  artifacts=$work/$target/artifacts
  mkdir -p "$corpus" "$artifacts"
  echo "== $target for ${seconds}s"
  # A load must finish in well under a second; 2 s allows for the sanitizers
  # (FUZZ_TIMEOUT=N for long runs on a machine busy with other work).
  "$build/fuzz/$target" -max_total_time="$seconds" -timeout="${FUZZ_TIMEOUT:-2}" -rss_limit_mb=2048 -max_len=65536 \
    -print_final_stats=1 -artifact_prefix="$artifacts/" "$corpus" "$root/fuzz/corpus/$target" \
    >"$work/$target/log" 2>&1
  status=$?
  grep -E '^stat::number_of_executed_units|^Done' "$work/$target/log" | sed 's/^/  /'
  if ((status != 0)); then
    failed=1
    echo "  FAILED (exit $status); the end of its log:"
    tail -n 60 "$work/$target/log" | sed 's/^/  | /'
    for a in "$artifacts"/*; do
      [ -e "$a" ] || continue
      echo "  reproducer $(basename "$a") ($(stat -c %s "$a") bytes), base64:"
      base64 -w 100 "$a" | sed 's/^/    /'
    done
  fi
done
exit $failed
