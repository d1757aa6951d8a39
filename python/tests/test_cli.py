"""python -m fileinfo is the fileinfo tool: the same bytes, messages and exit
statuses for every option, Ctrl-C included; and run in-process, it leaves
Python's output and signal handling as they were."""

import json
import os
import signal
import subprocess
import sys
import time

import pytest

import fileinfo
from conftest import CAPS, EXAMPLES, FIXTURES, TOOL


def run(*args, **kw):
    return subprocess.run([sys.executable, "-m", "fileinfo", *map(str, args)], capture_output=True, timeout=120, **kw)


def tool(*args, **kw):
    if not os.access(TOOL, os.X_OK):
        pytest.skip(f"the fileinfo tool is not built ({TOOL})")
    return subprocess.run([TOOL, *map(str, args)], capture_output=True, timeout=120, **kw)


SAME_AS_THE_TOOL = [
    ("--json", FIXTURES, EXAMPLES),
    ("--format", "list", EXAMPLES),
    ("--format", "table", EXAMPLES),
    ("--format", "csv", EXAMPLES),
    ("--format", "tsv", "--fields", "path,durationMs,title", EXAMPLES),
    ("--fields", "path,fileType", "--json", EXAMPLES),
    ("--ext", "mp3,m4a", "--json", EXAMPLES),
    ("--json", "--device", CAPS, "--explain", FIXTURES / "mp3", FIXTURES / "mp4"),
    ("--device", CAPS, "--only", "unplayable", "--explain", EXAMPLES),
    ("--strict", "--json", FIXTURES),
    ("--all-fields", EXAMPLES / "chord-vbr.mp3"),
    ("--fields", "durationms", EXAMPLES),
    ("--summry", EXAMPLES),
    ("--help",),
    ("report", "--help"),
    ("--version",),
    (),
    ("/nonexistent/file.mp3",),
]


@pytest.mark.parametrize("args", SAME_AS_THE_TOOL, ids=lambda a: " ".join(map(str, a)) or "(no arguments)")
def test_prints_the_tools_bytes_and_ends_with_its_status(args):
    ours, theirs = run(*args), tool(*args)
    assert ours.returncode == theirs.returncode
    assert ours.stdout == theirs.stdout
    assert ours.stderr == theirs.stderr


def test_default_format_off_a_terminal_is_the_listing_and_ext_lists_split():
    listing = run(EXAMPLES / "chord-vbr.mp3")
    assert listing.returncode == 0
    assert listing.stdout.startswith(str(EXAMPLES / "chord-vbr.mp3").encode() + b"\n  status: 1 (success)\n")
    chosen = [json.loads(line)["path"] for line in run("--ext", "mp3,m4a", "--json", EXAMPLES).stdout.splitlines()]
    assert chosen == [str(EXAMPLES / "chord-vbr.mp3"), str(EXAMPLES / "tone-tagged.m4a")]


def test_paths_from_standard_input():
    paths = f"{EXAMPLES / 'chord-8s.wav'}\n{EXAMPLES / 'tone-mono.wav'}\n".encode()
    ours = run("--json", "--from", "-", input=paths)
    theirs = tool("--json", "--from", "-", input=paths)
    assert ours.stdout == theirs.stdout and len(ours.stdout.splitlines()) == 2


def test_summary_of_csv_goes_to_standard_error():
    done = run("--format", "csv", "--summary", EXAMPLES)
    assert b"summary" not in done.stdout
    assert done.stderr.startswith(b"summary:\n  files:      6 loaded,")


def interrupted(command, tmp_path):
    """Runs `command` on 400 files into a pipe drained slowly, sends SIGINT
    while it writes; returns (status, stdout, stderr)."""
    folder = tmp_path / "many"
    folder.mkdir()
    data = (EXAMPLES / "tone-mono.wav").read_bytes()
    for k in range(400):
        (folder / f"f{1000 + k}.wav").write_bytes(data)
    read, write = os.pipe()
    child = subprocess.Popen([*command, "--json", "--summary", "--jobs", "2", str(folder)], stdout=write,
                             stderr=subprocess.PIPE)
    os.close(write)
    # The first bytes come once the tool runs (the interpreter has started).
    first = os.read(read, 1)
    child.send_signal(signal.SIGINT)
    rest = b""
    while True:
        chunk = os.read(read, 65536)
        if not chunk:
            break
        rest += chunk
    os.close(read)
    err = child.stderr.read()
    return child.wait(timeout=60), first + rest, err


def test_ctrl_c_ends_with_130_and_the_summary_of_what_was_done(tmp_path):
    status, out, err = interrupted([sys.executable, "-m", "fileinfo"], tmp_path)
    assert status == 130
    assert err == b"fileinfo: interrupted\n"  # no KeyboardInterrupt traceback
    lines = [json.loads(line) for line in out.splitlines()]
    assert lines[-1]["summary"]["interrupted"] is True
    assert lines[-1]["summary"]["loaded"] == len(lines) - 1 < 400


def test_in_process_run_keeps_pythons_output_order_and_sigint_handler():
    script = (
        "import signal, sys\n"
        "from fileinfo.__main__ import main\n"
        "before = signal.getsignal(signal.SIGINT)\n"
        "print('before', flush=False)\n"
        f"status = main(['--json', '--fields', 'path', {str(EXAMPLES / 'chord-vbr.mp3')!r}])\n"
        "print('after', status, signal.getsignal(signal.SIGINT) is before)\n"
        f"main(['--json', '--fields', 'path', {str(EXAMPLES / 'tone-mono.wav')!r}])\n"
    )
    done = subprocess.run([sys.executable, "-c", script], capture_output=True, timeout=60)
    assert done.stdout.decode() == (
        "before\n"
        f'{{"path":"{EXAMPLES / "chord-vbr.mp3"}"}}\n'
        "after 0 True\n"
        f'{{"path":"{EXAMPLES / "tone-mono.wav"}"}}\n'
    )


def test_other_threads_run_while_the_tool_runs():
    # The GIL is released for the run: a Python thread goes on meanwhile.
    script = (
        "import threading, time\n"
        "from fileinfo.__main__ import main\n"
        "ticks = []\n"
        "stop = threading.Event()\n"
        "def tick():\n"
        "    while not stop.is_set():\n"
        "        ticks.append(1); time.sleep(0.001)\n"
        "t = threading.Thread(target=tick); t.start()\n"
        "import os\n"
        "r, w = os.pipe()\n"
        "pid = os.fork()\n"
        "if pid == 0:\n"
        "    os.close(w); time.sleep(0.5)\n"
        "    while os.read(r, 65536): pass\n"
        "    os._exit(0)\n"
        "saved = os.dup(1); os.dup2(w, 1); os.close(w)\n"
        "n = len(ticks)\n"
        f"main(['--json', {str(FIXTURES)!r}, {str(EXAMPLES)!r}] * 20)\n"
        "os.dup2(saved, 1)\n"
        "during = len(ticks) - n\n"
        "stop.set(); t.join(); os.waitpid(pid, 0)\n"
        "print(during > 0)\n"
    )
    done = subprocess.run([sys.executable, "-c", script], capture_output=True, timeout=120)
    assert done.stdout == b"True\n", done.stderr
