#!/usr/bin/env python3
"""Every subcommand and every long option the tool's --help names is in the
manual page and in the bash and zsh completion, and bash completes them.

usage: check_discoverable.py TOOL SOURCE_DIR
"""

import os
import re
import subprocess
import sys

TOOL, SOURCE = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
MAN = open(os.path.join(SOURCE, "doc", "fileinfo.1.scd"), encoding="utf-8").read()
BASH_FILE = os.path.join(SOURCE, "completions", "fileinfo.bash")
BASH = open(BASH_FILE, encoding="utf-8").read()
ZSH = open(os.path.join(SOURCE, "completions", "_fileinfo"), encoding="utf-8").read()


def help_text(*args):
    done = subprocess.run([TOOL, *args, "--help"], capture_output=True, text=True, timeout=30)
    assert done.returncode == 0, done
    return done.stdout


def long_options(text):
    return sorted({m for m in re.findall(r"(?<![\w-])(--[a-z][a-z0-9-]*(?:\.[0-9]+)?)", text.split("Subcommands:")[0])})


def bash_complete(*words):
    script = (f'source "{BASH_FILE}"; COMP_WORDS=({" ".join(words)}); COMP_CWORD={len(words) - 1}; '
              '_fileinfo; printf "%s\\n" "${COMPREPLY[@]}"')
    env = dict(os.environ, FILEINFO_DEVICES=os.path.join(SOURCE, "devices"))
    done = subprocess.run(["bash", "-c", script], capture_output=True, text=True, cwd="/", env=env, timeout=30)
    return done.stdout.split()


def main():
    failures = []

    def check(ok, what):
        if not ok:
            failures.append(what)
            print("FAIL", what)

    main_help = help_text()
    subcommands = re.findall(r"^  fileinfo (\w+) \.\.\.", main_help, re.M)
    check(subcommands, "--help lists no subcommands")
    bash_main = re.search(r'compgen -W "(--format[^"]*)"', BASH).group(1).split()
    for option in long_options(main_help):
        check(f"*{option}*" in MAN, f"the manual page does not name {option}")
        check(option in bash_main, f"bash completion does not offer {option}")
        check(f"'{option}" in ZSH or f"*{option}" in ZSH or f"){option}" in ZSH or f",{option}}}" in ZSH, f"zsh completion does not offer {option}")
    bash_subcommands = re.search(r'^_fileinfo_subcommands="([^"]*)"', BASH, re.M).group(1).split()
    for sub in subcommands:
        check(f"*fileinfo {sub}*" in MAN, f"the manual page does not describe the subcommand {sub}")
        check(sub in bash_subcommands, f"bash completion does not offer the subcommand {sub}")
        check(f"'{sub}:" in ZSH, f"zsh completion does not offer the subcommand {sub}")
        check(sub in bash_complete("fileinfo", sub[:3]), f"bash does not complete {sub[:3]} to {sub}")
        options = re.search(rf'^_fileinfo_options_{sub}="([^"]*)"', BASH, re.M)
        check(options, f"bash completion has no options for {sub}")
        for option in long_options(help_text(sub)):
            check(options and option in options.group(1).split(), f"bash completion does not offer {sub} {option}")
            check(f"*{option}*" in MAN.split("# SUBCOMMANDS")[-1] or option == "--help",
                  f"the manual page does not name {sub} {option}")
            check(f"{option}=" in ZSH or f"{option}[" in ZSH or f",{option}}}" in ZSH,
                  f"zsh completion does not offer {sub} {option}")
    check(bash_complete("fileinfo", "report", "--ou") == ["--output"], "bash does not complete report --ou")
    check("player-caps" in bash_complete("fileinfo", "--device", "play"), "bash does not complete device names")
    check(bash_complete("fileinfo", "--summary-f") == ["--summary-file"], "bash does not complete --summary-f")
    print(f"{len(subcommands)} subcommands, {len(long_options(main_help))} options checked")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
