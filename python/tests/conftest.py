"""Shared fixtures: where the sources, the built package and the tool are.

CTest sets PYTHONPATH to the build's package folder, FILEINFO_TOOL and
FILEINFO_SOURCE_DIR. Run by hand, the default build folder ./build is used:
    PYTHONPATH=build/python /usr/bin/python3 -m pytest -q python/tests
"""

import json
import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

SOURCE = Path(os.environ.get("FILEINFO_SOURCE_DIR", Path(__file__).resolve().parents[2]))
if "PYTHONPATH" not in os.environ:
    # Worker processes (Dask, subprocesses) find the package the same way.
    os.environ["PYTHONPATH"] = str(SOURCE / "build" / "python")
    sys.path.insert(0, os.environ["PYTHONPATH"])
TOOL = os.environ.get("FILEINFO_TOOL") or str(SOURCE / "build" / "tools" / "fileinfo")

FIXTURES = SOURCE / "tests" / "fixtures"
EXAMPLES = SOURCE / "examples"
CAPS = SOURCE / "devices" / "player-caps.plist"


# The extensions the library's readers take; the tool skips the others.
READ_EXTENSIONS = {".mp3", ".aac", ".mp4", ".m4a", ".m4v", ".mov", ".3gp", ".wav", ".aif"}


def media_files():
    """Every fixture and example file whose extension a reader takes, sorted."""
    files = sorted(p for p in FIXTURES.rglob("*") if p.is_file())
    files += sorted(p for p in EXAMPLES.iterdir() if p.is_file())
    return [p for p in files if p.suffix.lower() in READ_EXTENSIONS]


def tool_json(*args, record=True):
    """The fileinfo tool's JSON lines for the arguments, parsed: of the
    library's record alone (--record), or with `record=False` with the
    reading beside it."""
    if not os.access(TOOL, os.X_OK):
        pytest.skip(f"the fileinfo tool is not built ({TOOL})")
    options = ["--json", "--record"] if record else ["--json"]
    done = subprocess.run([TOOL, *options, *map(str, args)], capture_output=True, check=False)
    assert done.returncode in (0, 1), done.stderr.decode()
    return [json.loads(line) for line in done.stdout.decode().splitlines()]


def record_as_tool_json(record):
    """A Record in the shape of one of the tool's JSON lines."""
    d = record.as_dict()
    import fileinfo

    return {
        "path": d["path"],
        "status": d["status"],
        "status_text": d["status_text"],
        "is_audio": d["is_audio"],
        "is_video": d["is_video"],
        "has_tags": d["has_tags"],
        "identified": d["identified"],
        "record": {n: d[n] for n in fileinfo.NUMBER_FIELDS + fileinfo.TEXT_FIELDS} if record.has_record else None,
    }


@pytest.fixture
def media_tree(tmp_path):
    """A copy of the fixtures and examples in a fresh folder."""
    tree = tmp_path / "tree"
    shutil.copytree(FIXTURES, tree / "fixtures")
    shutil.copytree(EXAMPLES, tree / "examples")
    return tree
