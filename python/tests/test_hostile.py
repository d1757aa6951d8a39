"""Paths, files and limits that must not take a Python host down: a path
holding a NUL byte, more threads than allowed or than the system gives, and
the tool's warnings, which Python must not leave out.

Whatever could crash the interpreter runs in a child interpreter."""

import errno
import fcntl
import os
import shutil
import struct
import tempfile
import subprocess
import sys
import zlib

import pytest

import fileinfo
from conftest import CAPS, EXAMPLES, TOOL

NUL_REASON = "the path holds a NUL byte"


def _child(code: str) -> subprocess.CompletedProcess:
    """Runs code in a child interpreter that finds the package."""
    return subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, timeout=120, check=False)


# ---- A path holding a NUL byte ----


def test_scan_of_a_path_with_a_nul_is_an_oserror_with_its_reason():
    done = _child(
        "import fileinfo\n"
        "errors = []\n"
        "records = list(fileinfo.scan(['/tmp\\0x'], on_error=errors.append))\n"
        "print(len(records), [(e.errno, e.strerror, e.filename) for e in errors])\n"
    )
    assert done.returncode == 0, done.stderr
    assert done.stdout == f"0 [({errno.EINVAL}, '{NUL_REASON}', '/tmp\\x00x')]\n"


def test_load_of_a_path_with_a_nul_is_an_oserror_with_its_reason(tmp_path):
    song = tmp_path / "song.wav"
    song.write_bytes((EXAMPLES / "tone-mono.wav").read_bytes())
    with pytest.raises(OSError) as raised:
        fileinfo.load(str(song) + "\0.mp3")
    assert raised.value.errno == errno.EINVAL
    assert raised.value.strerror == NUL_REASON


def test_set_tags_on_a_path_with_a_nul_is_an_oserror_and_touches_nothing(tmp_path):
    song = tmp_path / "song.mp3"
    before = (EXAMPLES / "chord-vbr.mp3").read_bytes()
    song.write_bytes(before)
    with pytest.raises(OSError) as raised:
        fileinfo.set_tags(str(song) + "\0x", title="New")
    assert raised.value.errno == errno.EINVAL
    assert song.read_bytes() == before


# ---- Threads ----


def test_scan_with_more_jobs_than_the_tool_takes_is_a_value_error():
    done = _child(
        "import fileinfo\n"
        "try:\n"
        f"    fileinfo.scan([{str(EXAMPLES)!r}], jobs=100000)\n"
        "except ValueError as e:\n"
        "    print('ValueError', e)\n"
    )
    assert done.returncode == 0, done.stderr
    assert done.stdout.startswith("ValueError jobs must be from 1 to 1024")


def test_scan_whose_threads_cannot_start_raises_oserror():
    # Too little address space for 1024 thread stacks.
    done = _child(
        "import resource, fileinfo\n"
        "resource.setrlimit(resource.RLIMIT_AS, (1 << 30, resource.getrlimit(resource.RLIMIT_AS)[1]))\n"
        "try:\n"
        f"    list(fileinfo.scan([{str(EXAMPLES)!r}], jobs=1024))\n"
        "    print('started')\n"
        "except OSError as e:\n"
        "    print('OSError', e.strerror)\n"
    )
    assert done.returncode == 0, done.stderr
    assert done.stdout.startswith("OSError fileinfo.scan: cannot start its loading threads: ")


# ---- The tool's warnings ----


def _atom(kind: bytes, body: bytes) -> bytes:
    return struct.pack(">I", 8 + len(body)) + kind + body


def _compressed_movie() -> bytes:
    """A QuickTime movie whose header is zlib-compressed: loading it needs
    the temporary file "/temp.bin"."""
    mvhd = _atom(b"mvhd", bytes(12) + struct.pack(">II", 600, 6000) + bytes(80))
    inner = _atom(b"moov", mvhd)
    packed = zlib.compress(inner)
    cmov = _atom(b"cmov", _atom(b"dcom", b"zlib") + struct.pack(">I4sI", 12 + len(packed), b"cmvd", len(inner)) + packed)
    return _atom(b"ftyp", b"qt  " + bytes(4)) + _atom(b"moov", cmov) + _atom(b"mdat", bytes(5000))


@pytest.fixture
def unusable_temp_file():
    """/temp.bin as a symbolic link, which no load follows; held apart from
    the other tests that use the file, as the C++ tests do."""
    with open("/tmp/fileinfo-temp-bin.lock", "a") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        try:
            if os.path.lexists("/temp.bin"):
                os.remove("/temp.bin")
            try:
                os.symlink("/nonexistent", "/temp.bin")
            except OSError:
                pytest.skip("the file-system root is not writable here")
            yield os.strerror(errno.ELOOP)
        finally:
            if os.path.lexists("/temp.bin"):
                os.remove("/temp.bin")


def test_records_carry_the_tools_warning(tmp_path, unusable_temp_file):
    movie = tmp_path / "movie.mov"
    movie.write_bytes(_compressed_movie())
    warning = f"the compressed movie header could not be inflated: /temp.bin: {unusable_temp_file}"
    assert fileinfo.load(movie).warnings == (warning,)
    assert [r.warnings for r in fileinfo.scan([movie])] == [(warning,)]
    assert fileinfo.load(EXAMPLES / "tone-mono.wav").warnings == ()


@pytest.mark.parametrize("options", [["--json"], ["--json", "--device", str(CAPS), "--explain"]])
def test_json_lines_are_the_tools_byte_for_byte(tmp_path, unusable_temp_file, options):
    if not os.access(TOOL, os.X_OK):
        pytest.skip(f"the fileinfo tool is not built ({TOOL})")
    tree = tmp_path / "tree"
    tree.mkdir()
    (tree / "movie.mov").write_bytes(_compressed_movie())
    wav = (EXAMPLES / "tone-mono.wav").read_bytes()
    for name in (b"caf\xe9.wav", b"bad\xc3\x28.wav", b"ok\xe2\x82\xac.wav", b"tab\tquote\"back\\.wav"):
        with open(os.path.join(os.fsencode(tree), name), "wb") as f:
            f.write(wav)
    tool = subprocess.run([TOOL, *options, str(tree)], capture_output=True, check=False)
    ours = subprocess.run([sys.executable, "-m", "fileinfo", *options, str(tree)], capture_output=True, check=False)
    assert b'"path_bytes"' in tool.stdout and b'"warnings"' in tool.stdout
    assert ours.stdout == tool.stdout
    assert ours.returncode == tool.returncode


@pytest.fixture
def temp_file_held_apart():
    """No /temp.bin, and the other tests that use it kept away meanwhile."""
    with open("/tmp/fileinfo-temp-bin.lock", "a") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        try:
            if os.path.lexists("/temp.bin"):
                os.remove("/temp.bin")
            yield
        finally:
            if os.path.lexists("/temp.bin"):
                os.remove("/temp.bin")


def test_json_lines_are_the_tools_for_a_user_who_cannot_write_the_temporary_file(temp_file_held_apart):
    """As a user who may not create /temp.bin: the warning says Permission denied."""
    if not os.access(TOOL, os.X_OK):
        pytest.skip(f"the fileinfo tool is not built ({TOOL})")
    if os.geteuid() != 0 or shutil.which("setpriv") is None:
        pytest.skip("needs root and setpriv to run as another user")
    tree = tempfile.mkdtemp(prefix="fileinfo-hostile-")
    try:
        os.chmod(tree, 0o755)
        with open(os.path.join(tree, "movie.mov"), "wb") as f:
            f.write(_compressed_movie())
        with open(os.path.join(os.fsencode(tree), b"caf\xe9.wav"), "wb") as f:
            f.write((EXAMPLES / "tone-mono.wav").read_bytes())
        as_nobody = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
        tool = subprocess.run([*as_nobody, TOOL, "--json", tree], capture_output=True, check=False)
        ours = subprocess.run([*as_nobody, sys.executable, "-m", "fileinfo", "--json", tree], capture_output=True, check=False)
        warning = "the compressed movie header could not be inflated: /temp.bin: " + os.strerror(errno.EACCES)
        assert warning.encode() in tool.stdout and b'"path_bytes"' in tool.stdout
        assert ours.stdout == tool.stdout
        assert ours.stderr.decode().splitlines() == tool.stderr.decode().splitlines()
    finally:
        shutil.rmtree(tree)
