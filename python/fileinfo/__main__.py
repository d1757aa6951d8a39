"""python -m fileinfo: the fileinfo tool itself, from Python.

    python -m fileinfo [OPTIONS] PATH...     what `fileinfo [OPTIONS] PATH...` does

The command line is the tool's own code, in the package's extension module:
the same options, output bytes, messages and exit statuses (130 after
Ctrl-C). `python -m fileinfo --help` lists the options.
"""

from __future__ import annotations

import os
import signal
import sys
from typing import List, Optional

from fileinfo import _fileinfo


def main(argv: Optional[List[str]] = None) -> int:
    """Runs `fileinfo ARGS...` in this process and returns its exit status."""
    if not hasattr(_fileinfo, "run_tool"):
        print("fileinfo: this build of the package has no command line (built without the tool)", file=sys.stderr)
        return 2
    args = sys.argv[1:] if argv is None else list(argv)
    # The tool writes to the descriptors themselves: what Python holds in
    # its buffers goes first.
    sys.stdout.flush()
    sys.stderr.flush()
    return _fileinfo.run_tool([b"fileinfo", *(os.fsencode(a) for a in args)])


if __name__ == "__main__":
    # As the program: a reader that goes away (| head) ends the run quietly.
    if hasattr(signal, "SIGPIPE"):
        signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    sys.exit(main())
