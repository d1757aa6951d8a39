#!/usr/bin/env python3
"""What `fileinfo --set` does with the library's writer, as one line per
case: the exit status, standard error, standard output of a dry run (the
folder's path replaced by DIR) and every file left in the folder, hashed.
The listing of a file after an edit is the tool's plain or JSON listing,
which is not the writer's and may change on its own: left out.

  library_writer.py TOOL [OPTION...]          prints the lines
  library_writer.py --check EXPECTED TOOL [OPTION...]
                                              compares them with EXPECTED

The OPTIONs go before each case's own arguments: `--writer library` on
today's tool must give what the tool gave before it had a second writer
(EXPECTED was made with that tool, without the option).
"""
import hashlib
import os
import shutil
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
FILES = [
    "tests/fixtures/mp3/" + n for n in sorted(os.listdir(os.path.join(ROOT, "tests/fixtures/mp3")))
] + [
    "tests/fixtures/aac/" + n for n in sorted(os.listdir(os.path.join(ROOT, "tests/fixtures/aac")))
] + ["examples/chord-vbr.mp3", "examples/tone-stereo.aac", "examples/tone-mono.wav", "examples/tone-tagged.m4a"]
CASES = [
    ["--set", "title=New", "--set", "track=12", "--force", "--no-backup"],
    ["--set", "genre=Rock", "--set", "year=2020", "--dry-run"],
    ["--set", "title=New"],
    ["--json", "--force", "--set", "artist=Caf\u00e9", "--set", "comment=Hello", "--set", "lyrics=La"],
    ["--force", "--set", "composer=" + "x" * 200, "--set", "album=A"],
]


def digest(data):
    return hashlib.sha1(data).hexdigest()[:16]


def run(tool, options, source, case):
    folder = tempfile.mkdtemp(prefix="fileinfo-library-writer-")
    try:
        name = os.path.basename(source)
        path = os.path.join(folder, name)
        shutil.copy(os.path.join(ROOT, source), path)
        done = subprocess.run([tool] + options + case + [path], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              check=False)
        out = done.stdout.replace(folder.encode(), b"DIR") if "--dry-run" in case else b""
        err = done.stderr.replace(folder.encode(), b"DIR")
        files = ",".join(n + ":" + digest(open(os.path.join(folder, n), "rb").read())
                         for n in sorted(os.listdir(folder)))
        return "%s %s exit=%d out=%s err=%s files=%s" % (source, " ".join(case), done.returncode, digest(out),
                                                         digest(err), files)
    finally:
        shutil.rmtree(folder, ignore_errors=True)


def lines(tool, options):
    return [run(tool, options, f, c) for f in FILES for c in CASES]


def main():
    args = sys.argv[1:]
    if args[0] == "--check":
        expected = open(args[1], encoding="utf-8").read().splitlines()
        got = lines(args[2], args[3:])
        wrong = [(e, g) for e, g in zip(expected, got) if e != g]
        for e, g in wrong:
            print("expected: " + e + "\n     got: " + g)
        if len(expected) != len(got):
            print("expected %d cases, got %d" % (len(expected), len(got)))
        print("%d cases, %d differ" % (len(got), len(wrong)))
        return 1 if wrong or len(expected) != len(got) else 0
    print("\n".join(lines(args[0], args[1:])))
    return 0


if __name__ == "__main__":
    sys.exit(main())
