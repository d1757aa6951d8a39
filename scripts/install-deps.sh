#!/usr/bin/env bash
# Installs the Debian packages the build, the tests, the manual page and
# the Python package and the report's browser tests need, only those missing, with sudo unless already root.
set -euo pipefail
packages=(cmake g++ make pkg-config zlib1g-dev libcli11-dev nlohmann-json3-dev libgtest-dev libtag1-dev
          python3 scdoc man-db bash-completion zsh
          python3-dev pybind11-dev python3-pybind11 python3-pytest python3-pandas python3-dask
          python3-distributed chromium python3-pil python3-mutagen ffmpeg
          libsqlite3-dev dosfstools rsync)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
((${#missing[@]})) || exit 0
echo "installing: ${missing[*]}"
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}"
