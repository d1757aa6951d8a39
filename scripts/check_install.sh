#!/usr/bin/env bash
# Installs the library into a temporary prefix and builds the example host
# against the installed package only: once through find_package, once
# through pkg-config and a plain compiler command. Then runs the host on
# examples/ and compiles every installed header in one translation unit.
#   scripts/check_install.sh [BUILD_DIR]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null
echo "installed into a temporary prefix:"
(cd "$prefix" && find . -type f -o -type l | sort | sed 's/^/  /')

echo "== host through find_package(FileInfo CONFIG)"
cmake -S "$root/examples/host" -B "$work/host" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/host" >/dev/null
media=("$root"/examples/*.*)
LD_LIBRARY_PATH="$prefix/lib" "$work/host/fileinfo-host" "$root/devices/player-caps.plist" "${media[@]}"

echo "== host through pkg-config"
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
# shellcheck disable=SC2046
c++ -std=c++17 -o "$work/host-pc" "$root/examples/host/main.cpp" $(pkg-config --cflags --libs fileinfo)
LD_LIBRARY_PATH="$prefix/lib" "$work/host-pc" "$root/devices/player-caps.plist" "${media[@]}" >/dev/null

echo "== the installed tool finds the installed device lists by name"
test -f "$prefix/share/fileinfo/devices/player-caps.plist"
(cd "$work" && env -u FILEINFO_DEVICES LD_LIBRARY_PATH="$prefix/lib" "$prefix/bin/fileinfo" --device player-caps \
  --summary-only "$root/examples" | grep -q "device:     6 playable, 0 unplayable")

echo "== every installed header in one translation unit"
for h in "$prefix"/include/FileInfo/*.h; do echo "#include \"$(basename "$h")\""; done >"$work/all.cpp"
echo "int main() { return 0; }" >>"$work/all.cpp"
c++ -std=c++17 -Wall -Wextra -Werror -I"$prefix/include/FileInfo" -c "$work/all.cpp" -o "$work/all.o"

echo "== exported symbols: the public API and nothing else"
nm -D --defined-only "$prefix"/lib/libFileInfo.so | awk '{print $3}' | c++filt | sort >"$work/symbols"
classes='MediaFileInfo|MediaFileInfoBase|WavInfo|AifInfo|Mp3Info|AacInfo|Mp4Info|Id3Info|FileInfoFilter|FileInfo|KEY_VAR_st|ExtFloat_st|MediaFileInfo_st'
tables='Mp3Tail|AacTail|Mp4Tail|TGPTail|M4vTail|M4aTail|WavTail|AifTail|MovTail|CHANNEL|Mp3FileType|AacFileType'
tables="$tables|WavFileType|AIFTYPE|AIFFORMAT|FormatType|H264LCFileType|PCM_FORMAT|RiffTag|WavTag|ID3V1TAG"
tables="$tables|ID3V2Ver2_TAG|ID3V2_TAG|SAMPLE"
grep -v -E "(^|[ <(])($classes)::|^(typeinfo|typeinfo name|vtable|VTT) for ($classes)\$|^($tables)\$|^strlwr\\(char\\*\\)\$|^MediaFileStatusText\\(int\\)\$|^FileInfoVersion\\(\\)\$|^MediaFileHasReader\\(char const\\*\\)\$|^MediaFileTakeTempFileError\\(\\)\$|^MediaFileSetTempFileWait\\(unsigned int\\)\$|^MediaFileSetTempFileInterrupt\\(int \\(\*\\)\\(\\)\\)\$|^FileInfoRequirementFields\\(char const\\*\\)\$|^(void |bool |char |int )?std::" \
  "$work/symbols" >"$work/unexpected" || true
echo "  $(wc -l <"$work/symbols") symbols exported"
if [ -s "$work/unexpected" ]; then
  echo "  symbols outside the public API:"
  sed 's/^/    /' "$work/unexpected"
  exit 1
fi
# The Python package, when the build made it: imported from the prefix
# alone, its module must find the prefix's library through its run path.
packages=$(find "$prefix" -type d -name fileinfo -path '*/python3*' | head -n 1)
if [ -n "$packages" ]; then
  echo "== Python package from the prefix"
  python=$(sed -n 's/^Python3_EXECUTABLE:[A-Z]*=//p' "$build/CMakeCache.txt")
  PYTHONPATH=$(dirname "$packages") "${python:-python3}" - "$root/examples/chord-vbr.mp3" "$prefix" <<'EOF'
import os, sys
import fileinfo
prefix = os.path.realpath(sys.argv[2])
assert os.path.realpath(fileinfo.__file__).startswith(prefix), fileinfo.__file__
maps = open("/proc/self/maps").read().split()
library = [p for p in maps if os.path.basename(p).startswith("libFileInfo.so")]
assert library and all(os.path.realpath(p).startswith(prefix) for p in library), library
record = fileinfo.load(sys.argv[1])
import subprocess
# python -m fileinfo finds the prefix's device lists by name too.
done = subprocess.run([sys.executable, "-m", "fileinfo", "--device", "player-caps", "--json", "--fields", "playable",
                       sys.argv[1]], capture_output=True, cwd="/")
assert done.stdout == b'{"playable":true}\n', done
assert record.status == 1 and record.fileType == "MP3", record
print(f"  fileinfo {fileinfo.__version__} from {os.path.dirname(fileinfo.__file__)}")
EOF
fi

echo "install check passed"
