#!/usr/bin/env python3
"""Runs every `fileinfo` command line of the README, as written, twice: with
the fileinfo program and with `python -m fileinfo`, each in a fresh copy of
the same small world (~/Music, song.mp3, music/, a/, b/ and devices/).

Checks that
- both front ends print the same bytes on standard output and standard error,
  leave the same files, and end with the same status (times masked);
- what a command prints or writes in a machine format parses with a real
  parser: csv and tsv with Python's csv module and with pandas (the same
  number of fields in every row), JSON lines with json, the report's page
  data with json.

usage: check_readme_examples.py TOOL SOURCE_DIR [PYTHON_PACKAGE_DIR]
Without PYTHON_PACKAGE_DIR (or when the package has no command line), only
the parsing is checked.
"""

import csv
import io
import json
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

TOOL, SOURCE = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
PACKAGE = os.path.abspath(sys.argv[3]) if len(sys.argv) > 3 else ""
README = os.path.join(SOURCE, "README.md")
PARENT = ""  # a temporary folder for the run

# The README's placeholders, as a reader fills them in.
PLACEHOLDERS = {"PATH...": "~/Music", "CAPS": "devices/player-caps.plist"}


# Options the README names in its text but shows in no example, and
# mistakes a new user makes: compared as well (status 2 allowed).
EXTRA = [
    "fileinfo --format tsv --summary ~/Music",
    "fileinfo --format table --fields path,durationMs,title ~/Music",
    "fileinfo --ext mp3,m4a --json ~/Music",
    "fileinfo --format csv --summary-file summary.txt ~/Music",
    "fileinfo --fields durationms ~/Music",
    "fileinfo --formt csv ~/Music",
    "fileinfo --help",
    "fileinfo report --help",
    "fileinfo --version",
    "fileinfo",
]


def readme_commands():
    """The lines of the README's sh blocks that run fileinfo, in order; a
    block's lines stay together, as they build on each other (--set, then
    --restore)."""
    blocks, block, inside = [], [], False
    for line in open(README, encoding="utf-8"):
        if line.startswith("```"):
            if inside and block:
                blocks.append(block)
            block, inside = [], line.strip() == "```sh"
            continue
        if not inside:
            continue
        command = re.sub(r"\s+#.*$", "", line.strip())
        if command.startswith("fileinfo ") or re.match(r"^find .*\| *fileinfo ", command):
            for name, value in PLACEHOLDERS.items():
                command = re.sub(r"(?<![\w/-])" + re.escape(name) + r"(?![\w/])", value, command)
            block.append(command)
    return blocks


def make_world(root):
    """A home with ~/Music, and a working folder with the README's files."""
    music = os.path.join(root, "home", "Music")
    shutil.copytree(os.path.join(SOURCE, "examples"), os.path.join(music, "examples"),
                    ignore=shutil.ignore_patterns("dask", "host"))
    shutil.copytree(os.path.join(SOURCE, "tests", "fixtures"), os.path.join(music, "fixtures"))
    work = os.path.join(root, "work")
    os.makedirs(os.path.join(work, "music", "inner"))
    os.makedirs(os.path.join(work, "a"))
    os.makedirs(os.path.join(work, "b"))
    shutil.copytree(os.path.join(SOURCE, "devices"), os.path.join(work, "devices"))
    mp3 = os.path.join(SOURCE, "examples", "chord-vbr.mp3")
    for target in ("song.mp3", "music/one.mp3", "music/inner/two.mp3", "a/three.mp3", "b/song.mp3"):
        shutil.copy(mp3, os.path.join(work, target))
    shutil.copy(os.path.join(SOURCE, "examples", "tone-stereo.aac"), os.path.join(work, "music", "four.aac"))
    return work


def run_block(block, front_end):
    """Runs a block's commands in a fresh world; returns, per command, its
    status, output, messages and the files then in the working folder."""
    results = []
    # Both front ends run in a world at the same place, so that paths,
    # and the table's widths, are the same.
    root = os.path.join(PARENT, "world")
    shutil.rmtree(root, ignore_errors=True)
    os.makedirs(root)
    work = make_world(root)
    bin_dir = os.path.join(root, "bin")
    os.makedirs(bin_dir)
    wrapper = os.path.join(bin_dir, "fileinfo")
    with open(wrapper, "w") as f:
        if front_end == "tool":
            f.write(f'#!/bin/sh\nexec {shlex.quote(TOOL)} "$@"\n')
        else:
            f.write(f'#!/bin/sh\nexec {shlex.quote(sys.executable)} -m fileinfo "$@"\n')
    os.chmod(wrapper, 0o755)
    env = dict(os.environ, HOME=os.path.join(root, "home"), PATH=bin_dir + os.pathsep + os.environ["PATH"],
               LC_ALL="C.UTF-8")
    if PACKAGE:
        env["PYTHONPATH"] = PACKAGE
    for command in block:
        done = subprocess.run(["bash", "-c", command], cwd=work, env=env, capture_output=True, timeout=120)
        files = {}
        for folder, _, names in os.walk(work):
            for name in names:
                path = os.path.join(folder, name)
                with open(path, "rb") as f:
                    files[os.path.relpath(path, work)] = f.read()
        results.append((command, done.returncode, done.stdout, done.stderr, files))
    return results


def masked(data, root_free=True):
    """Bytes without what differs from run to run: times and the page's
    date."""
    data = re.sub(rb"time:       [0-9.]+ s", b"time:       T s", data)
    data = re.sub(rb'"seconds":[0-9.]+', b'"seconds":T', data)
    data = re.sub(rb'"generated":"[^"]*"', b'"generated":"T"', data)
    data = re.sub(rb"fileinfo-readme-[A-Za-z0-9_]+", b"ROOT", data)
    return data


def first_difference(a, b):
    for x, y in zip(masked(a).splitlines(), masked(b).splitlines()):
        if x != y:
            return f"\n  {x!r}\n  {y!r}"
    return "in length"


def parse_csv(text, delimiter, command):
    rows = list(csv.reader(io.StringIO(text), delimiter=delimiter))
    assert rows, f"{command}: no rows"
    widths = {len(r) for r in rows}
    assert len(widths) == 1, f"{command}: rows of {sorted(widths)} fields"
    try:
        import pandas
    except ImportError:
        return
    frame = pandas.read_csv(io.StringIO(text), sep=delimiter, dtype=str, keep_default_na=False)
    assert len(frame) == len(rows) - 1, f"{command}: pandas read {len(frame)} rows of {len(rows) - 1}"
    assert list(frame.columns) == rows[0], f"{command}: pandas' columns {list(frame.columns)}"


def check_parses(command, status, out, files):
    """The machine formats read back with real parsers."""
    args = shlex.split(command.split("|")[-1])
    machine = None
    if "--json" in args or "--format" in args and args[args.index("--format") + 1] == "json":
        machine = "json"
    elif "--format" in args:
        machine = args[args.index("--format") + 1]
    target = None
    if ">" in args:
        target = files[args[args.index(">") + 1]].decode("utf-8")
    text = target if target is not None else out.decode("utf-8")
    if machine == "json":
        lines = [json.loads(line) for line in text.splitlines()]
        assert lines, f"{command}: no JSON lines"
    elif machine in ("csv", "tsv"):
        parse_csv(text, "," if machine == "csv" else "\t", command)
    if status == 2:
        return None  # a usage error prints nothing to parse
    if args[:2] == ["fileinfo", "report"] and "-o" in args:
        page = files[args[args.index("-o") + 1]].decode("utf-8")
        data = re.search(r'<script type="application/json" id="report-data">(.*?)</script>', page, re.S)
        assert data, f"{command}: the page holds no data"
        json.loads(data.group(1).replace("<\\/", "</"))
    return machine


def main():
    global PARENT
    with tempfile.TemporaryDirectory(prefix="fileinfo-readme-") as PARENT:
        return check_all()


def check_all():
    blocks = readme_commands()
    count = sum(len(b) for b in blocks)
    assert count >= 12, f"only {count} fileinfo lines found in the README"
    blocks.append(EXTRA)
    python_too = bool(PACKAGE)
    if python_too:
        probe = subprocess.run([sys.executable, "-c", "import fileinfo._fileinfo as m; print(hasattr(m, 'run_tool'))"],
                               env=dict(os.environ, PYTHONPATH=PACKAGE), capture_output=True, text=True)
        python_too = probe.stdout.strip() == "True"
    failures = []
    for block in blocks:
        tool = run_block(block, "tool")
        python = run_block(block, "python") if python_too else None
        for k, (command, status, out, err, files) in enumerate(tool):
            try:
                machine = check_parses(command, status, out, files)
                allowed = (0, 1, 2, 3) if block is EXTRA else (0, 1, 3)
                assert status in allowed, f"{command}: status {status}: {err.decode(errors='replace')}"
                if python is not None:
                    _, p_status, p_out, p_err, p_files = python[k]
                    assert p_status == status, f"{command}: python -m fileinfo ended with {p_status}, the tool {status}"
                    assert masked(p_out) == masked(out), f"{command}: the outputs differ: {first_difference(p_out, out)}"
                    assert masked(p_err) == masked(err), f"{command}: the messages differ:\n{p_err!r}\n{err!r}"
                    assert sorted(p_files) == sorted(files), f"{command}: other files left"
                    for name in files:
                        assert masked(p_files[name]) == masked(files[name]), f"{command}: {name} differs"
                print(f"ok   {command}   [status {status}{', ' + machine if machine else ''}]")
            except AssertionError as e:
                failures.append(str(e))
                print(f"FAIL {e}")
    if not python_too:
        print("python -m fileinfo not compared: no package with the command line given")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
