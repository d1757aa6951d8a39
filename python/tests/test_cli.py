"""python -m fileinfo: the tool's JSON lines, CSV, devices, exit statuses."""

import csv
import io
import json
import os
import subprocess
import sys

import pytest

import fileinfo
from conftest import CAPS, EXAMPLES, FIXTURES, TOOL


def run(*args):
    return subprocess.run([sys.executable, "-m", "fileinfo", *map(str, args)], capture_output=True, timeout=120)


def tool(*args):
    if not os.access(TOOL, os.X_OK):
        pytest.skip(f"the fileinfo tool is not built ({TOOL})")
    return subprocess.run([TOOL, *map(str, args)], capture_output=True, timeout=120)


def test_json_lines_are_the_tools_byte_for_byte():
    ours, theirs = run("--json", FIXTURES, EXAMPLES), tool("--json", FIXTURES, EXAMPLES)
    assert ours.returncode == theirs.returncode == 0, ours.stderr
    assert ours.stdout == theirs.stdout


def test_json_with_a_device_is_the_tools_for_identified_files():
    args = ("--json", "--device", CAPS, "--explain", FIXTURES / "mp3", FIXTURES / "mp4", EXAMPLES / "chord-vbr.mp3")
    ours, theirs = run(*args), tool(*args)
    assert ours.stdout == theirs.stdout, ours.stderr


def test_csv_has_a_typed_header_and_one_row_a_file():
    done = run("--format", "csv", "--device", CAPS, EXAMPLES)
    assert done.returncode == 0  # every example loads
    rows = list(csv.reader(io.StringIO(done.stdout.decode())))
    assert rows[0] == list(fileinfo.FIELDS) + ["playable", "refused_by", "explanation"]
    assert [r[0] for r in rows[1:]] == [r.path for r in fileinfo.scan(EXAMPLES)]


def test_exit_statuses_and_errors(tmp_path):
    missing = tmp_path / "missing.mp3"
    done = run("--json", missing, EXAMPLES / "chord-vbr.mp3")
    assert done.returncode == 1
    assert done.stderr.decode() == f"fileinfo: {missing}: {os.strerror(2)}\n"
    assert json.loads(done.stdout)["path"] == str(EXAMPLES / "chord-vbr.mp3")
    assert run("--explain", EXAMPLES).returncode == 2
    assert run("--json", "--format", "csv", EXAMPLES).returncode == 2
    text = run(EXAMPLES / "chord-vbr.mp3")
    assert text.returncode == 0 and b"  fileType: \"MP3\"" in text.stdout
