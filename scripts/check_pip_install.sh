#!/usr/bin/env bash
# pip install from the clone, as the README says: a fresh virtual
# environment that sees Debian's packages, `pip install --no-build-isolation .`
# (the in-tree build backend runs the project's CMake), then the package,
# its library, the fileinfo program and the device lists from there alone.
#   scripts/check_pip_install.sh
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
/usr/bin/python3 -m venv --system-site-packages "$work/venv"
FILEINFO_WHEEL_BUILD_DIR=${FILEINFO_WHEEL_BUILD_DIR:-$root/build-wheel} \
  "$work/venv/bin/pip" install --no-build-isolation --no-index --quiet "$root"
cd "$work"
"$work/venv/bin/python" - "$root/examples/chord-vbr.mp3" "$work/venv" <<'PY'
import os, subprocess, sys
import fileinfo
venv = os.path.realpath(sys.argv[2])
assert os.path.realpath(fileinfo.__file__).startswith(venv), fileinfo.__file__
library = [p for p in open("/proc/self/maps").read().split() if os.path.basename(p).startswith("libFileInfo.so")]
assert library and all(os.path.realpath(p).startswith(venv) for p in library), library
record = fileinfo.load(sys.argv[1])
assert record.status == 1 and record.fileType == "MP3", record
tool = os.path.join(venv, "bin", "fileinfo")
args = ["--device", "player-caps", "--json", "--fields", "path,playable", sys.argv[1]]
program = subprocess.run([tool, *args], capture_output=True)
module = subprocess.run([sys.executable, "-m", "fileinfo", *args], capture_output=True)
assert program.returncode == module.returncode == 0, (program, module)
assert program.stdout == module.stdout == ('{"path":"%s","playable":true}\n' % sys.argv[1]).encode(), program
print(f"  fileinfo {fileinfo.__version__} installed by pip into {venv}: module, library, tool and device lists")
PY
echo "pip install check passed"
