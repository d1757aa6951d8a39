"""The build backend of `pip install .`: runs the project's CMake.

Written in-tree (pyproject.toml names it with backend-path) so that a build
needs nothing from PyPI: only CMake, a compiler and Debian's packages
(pybind11-dev, python3-dev). `pip install --no-build-isolation .` then
builds the library, the tool and the Python package with CMake, installs
them into a staging prefix and packs that into a wheel:

- the package `fileinfo` goes where the interpreter keeps packages
  (site-packages of a virtual environment);
- libFileInfo.so, the `fileinfo` program, the manual page, the device
  lists, the headers and the CMake package go under the environment's
  prefix (lib/, bin/, share/, include/), where the module and the program
  find the library through their relative run paths.

The CMake build folder is build-wheel/ in the source tree (kept, so a
second install is quick); FILEINFO_WHEEL_BUILD_DIR names another, and
FILEINFO_WHEEL_JOBS the parallel jobs. ccache is used when installed.
"""

from __future__ import annotations

import base64
import hashlib
import os
import re
import shutil
import subprocess
import sys
import sysconfig
import tempfile
import zipfile

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
NAME = "fileinfo"
SUMMARY = "What libFileInfo reads from media files, from Python: loads, scans, device verdicts, tag edits"


def _version() -> str:
    with open(os.path.join(ROOT, "CMakeLists.txt"), encoding="utf-8") as f:
        found = re.search(r"project\(\s*FileInfo\s+VERSION\s+([0-9.]+)", f.read())
    if not found:
        raise RuntimeError("no project version in CMakeLists.txt")
    return found.group(1)


def _tag() -> str:
    python = f"cp{sys.version_info.major}{sys.version_info.minor}"
    platform = re.sub(r"[^A-Za-z0-9]", "_", sysconfig.get_platform())
    return f"{python}-{python}-{platform}"


def _metadata() -> str:
    return (
        "Metadata-Version: 2.1\n"
        f"Name: {NAME}\n"
        f"Version: {_version()}\n"
        f"Summary: {SUMMARY}\n"
        "Requires-Python: >=3.9\n"
        "Provides-Extra: pandas\n"
        "Provides-Extra: dask\n"
    )


def _wheel_file() -> str:
    return f"Wheel-Version: 1.0\nGenerator: fileinfo_build\nRoot-Is-Purelib: false\nTag: {_tag()}\n"


def _package_dir() -> str:
    """Where the interpreter's packages lie, relative to the prefix that
    the wheel's data go to: lib/python3.X/site-packages in a venv."""
    return os.path.relpath(sysconfig.get_path("platlib"), sysconfig.get_path("data"))


def _run(command: list) -> None:
    print("+", " ".join(command), file=sys.stderr, flush=True)
    subprocess.run(command, check=True, stdout=sys.stderr)


def _build_and_stage(stage: str) -> None:
    build = os.environ.get("FILEINFO_WHEEL_BUILD_DIR") or os.path.join(ROOT, "build-wheel")
    configure = [
        "cmake", "-S", ROOT, "-B", build,
        "-DCMAKE_BUILD_TYPE=Release",
        f"-DPython3_EXECUTABLE={sys.executable}",
        "-DFILEINFO_BUILD_PYTHON=ON",
        "-DFILEINFO_BUILD_TESTS=OFF",
        "-DFILEINFO_BUILD_BENCH=OFF",
        "-DCMAKE_INSTALL_LIBDIR=lib",
        f"-DFILEINFO_PYTHON_INSTALL_DIR={_package_dir()}",
    ]
    if shutil.which("ccache"):
        configure.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
    _run(configure)
    jobs = os.environ.get("FILEINFO_WHEEL_JOBS") or str(os.cpu_count() or 1)
    _run(["cmake", "--build", build, "-j", jobs])
    _run(["cmake", "--install", build, "--prefix", stage])


def _record_line(arcname: str, data: bytes) -> str:
    digest = base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
    return f"{arcname},sha256={digest},{len(data)}"


def _pack(stage: str, wheel_directory: str) -> str:
    version = _version()
    package_dir = _package_dir()
    data_dir = f"{NAME}-{version}.data/data"
    info_dir = f"{NAME}-{version}.dist-info"
    wheel_name = f"{NAME}-{version}-{_tag()}.whl"
    records = []
    with zipfile.ZipFile(os.path.join(wheel_directory, wheel_name), "w", zipfile.ZIP_DEFLATED) as wheel:

        def add(arcname: str, data: bytes, mode: int = 0o644) -> None:
            info = zipfile.ZipInfo(arcname, date_time=(2020, 1, 1, 0, 0, 0))
            info.external_attr = (0o100000 | mode) << 16
            info.compress_type = zipfile.ZIP_DEFLATED
            wheel.writestr(info, data)
            records.append(_record_line(arcname, data))

        for folder, dirs, names in os.walk(stage):
            dirs.sort()
            for name in sorted(names):
                path = os.path.join(folder, name)
                relative = os.path.relpath(path, stage)
                if relative.startswith(os.path.join("lib", "pkgconfig")):
                    continue  # its prefix= is the staging folder's; the CMake package is relocatable
                # Wheels hold no symbolic links: each name gets the file itself.
                with open(path, "rb") as f:
                    data = f.read()
                mode = 0o755 if os.access(path, os.X_OK) else 0o644
                if relative.startswith(package_dir + os.sep):
                    add(os.path.relpath(path, os.path.join(stage, package_dir)), data, mode)
                else:
                    add(f"{data_dir}/{relative}", data, mode)
        add(f"{info_dir}/METADATA", _metadata().encode())
        add(f"{info_dir}/WHEEL", _wheel_file().encode())
        add(f"{info_dir}/top_level.txt", f"{NAME}\n".encode())
        record = "\n".join(records + [f"{info_dir}/RECORD,,"]) + "\n"
        wheel.writestr(zipfile.ZipInfo(f"{info_dir}/RECORD", date_time=(2020, 1, 1, 0, 0, 0)), record)
    return wheel_name


# ---- PEP 517 ----


def get_requires_for_build_wheel(config_settings=None):
    return []


def get_requires_for_build_sdist(config_settings=None):
    return []


def prepare_metadata_for_build_wheel(metadata_directory, config_settings=None):
    info_dir = f"{NAME}-{_version()}.dist-info"
    os.makedirs(os.path.join(metadata_directory, info_dir), exist_ok=True)
    with open(os.path.join(metadata_directory, info_dir, "METADATA"), "w") as f:
        f.write(_metadata())
    with open(os.path.join(metadata_directory, info_dir, "WHEEL"), "w") as f:
        f.write(_wheel_file())
    return info_dir


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    with tempfile.TemporaryDirectory(prefix="fileinfo-wheel-") as stage:
        _build_and_stage(stage)
        return _pack(stage, wheel_directory)


def build_sdist(sdist_directory, config_settings=None):
    """The tracked files of the source tree, as git lists them."""
    import tarfile

    base = f"{NAME}-{_version()}"
    files = subprocess.run(["git", "-C", ROOT, "ls-files", "-z"], check=True, capture_output=True).stdout
    name = f"{base}.tar.gz"
    with tarfile.open(os.path.join(sdist_directory, name), "w:gz") as tar:
        for relative in filter(None, files.decode().split("\0")):
            tar.add(os.path.join(ROOT, relative), arcname=f"{base}/{relative}", recursive=False)
        info = tarfile.TarInfo(f"{base}/PKG-INFO")
        data = _metadata().encode()
        info.size = len(data)
        import io

        tar.addfile(info, io.BytesIO(data))
    return name
