#!/usr/bin/env bash
# Remakes docs/report.png, the README's picture of `fileinfo report`: the
# report of examples/ for the example device, its top part at desktop
# width in the light theme, reduced to a small palette image.
# Needs: a build in build/ (or BUILD=dir), chromium, python3-pil.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BUILD:-build}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$build/tools/fileinfo" report examples --device player-caps \
  --title "My examples on the Pocket Player" -o "$work/report.html"
chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
  --disable-background-networking --disable-component-update --disable-sync \
  --user-data-dir="$work/profile" --proxy-server=127.0.0.1:9 --hide-scrollbars \
  --force-device-scale-factor=1 --window-size=1280,1300 \
  --screenshot="$work/shot.png" "file://$work/report.html" 2>/dev/null
/usr/bin/python3 - "$work/shot.png" docs/report.png <<'PY'
import sys
from PIL import Image
image = Image.open(sys.argv[1]).convert("RGB")
image.quantize(colors=48, method=Image.Quantize.MEDIANCUT).save(sys.argv[2], optimize=True)
PY
echo "docs/report.png: $(stat -c %s docs/report.png) bytes"
