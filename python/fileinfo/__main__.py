"""python -m fileinfo: the common uses of the fileinfo tool, from Python.

    python -m fileinfo --json PATH...            one JSON object per file
    python -m fileinfo --format csv PATH...      one CSV row per file
    python -m fileinfo --device CAPS PATH...     says whether the device plays each

The JSON lines are the tool's: the same keys, order and values. The exit
status is 0 when every file loaded, 1 otherwise, 2 for a usage mistake.
"""

from __future__ import annotations

import argparse
import csv
import json
import os
import sys
from typing import List, Optional

import fileinfo


def _path_fields(path: str) -> dict:
    """The tool's "path" (invalid UTF-8 replaced by U+FFFD, as its writer
    does) and, for a path that is not UTF-8, its exact bytes in hex."""
    raw = os.fsencode(path)
    try:
        return {"path": raw.decode("utf-8")}
    except UnicodeDecodeError:
        return {"path": raw.decode("utf-8", "replace"), "path_bytes": raw.hex()}


def _json_line(record: fileinfo.Record, verdict: Optional[fileinfo.Verdict], explain: bool) -> str:
    d = record.as_dict()
    line = {
        **_path_fields(d["path"]),
        "status": d["status"],
        "status_text": d["status_text"],
        "is_audio": d["is_audio"],
        "is_video": d["is_video"],
        "has_tags": d["has_tags"],
        "identified": d["identified"],
        "record": {n: d[n] for n in fileinfo.NUMBER_FIELDS + fileinfo.TEXT_FIELDS} if record.has_record else None,
    }
    if verdict is not None:
        line["playable"] = verdict.playable
        if explain:
            line["refused_by"] = verdict.refused_by
            line["explanation"] = verdict.explanation or None
    if record.warnings:
        line["warnings"] = list(record.warnings)
    return json.dumps(line, ensure_ascii=False, separators=(",", ":"))


def _text(record: fileinfo.Record, verdict: Optional[fileinfo.Verdict], explain: bool) -> str:
    lines = [record.path, f"  status: {record.status} ({record.status_text})"]
    yn = {True: "yes", False: "no"}
    lines.append(f"  audio: {yn[record.is_audio]}, video: {yn[record.is_video]}, tags: {yn[record.has_tags]}")
    lines += [f"  warning: {w}" for w in record.warnings]
    if not record.has_record:
        lines.append("  (no record)")
    else:
        for n in fileinfo.NUMBER_FIELDS:
            lines.append(f"  {n}: {getattr(record, n)}")
        for n in fileinfo.TEXT_FIELDS:
            lines.append(f'  {n}: "{getattr(record, n)}"')
    if verdict is not None:
        text = "playable" if verdict.playable else "not playable"
        if explain and verdict.explanation:
            text += ": " + verdict.explanation
        lines.append("  device: " + text)
    return "\n".join(lines)


def main(argv: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(
        prog="python -m fileinfo", description="Shows what libFileInfo reads from media files."
    )
    parser.add_argument("paths", nargs="+", help="media files or directories (walked recursively)")
    parser.add_argument("--json", action="store_true", help="print one JSON object per file (JSON Lines)")
    parser.add_argument("--format", choices=["text", "json", "csv"], help="output form (default text)")
    parser.add_argument("--device", metavar="CAPS", help="capability description of a device: say whether it plays each file")
    parser.add_argument("--explain", action="store_true", help="with --device: say which requirement refused a file")
    parser.add_argument("--jobs", type=int, default=None, help="files loaded at once (default: one per core)")
    parser.add_argument("--ext", action="append", help="in folders, load only this extension (repeatable)")
    parser.add_argument("--hidden", action="store_true", help="walk into names that start with a dot")
    parser.add_argument("--version", action="version", version=f"fileinfo {fileinfo.__version__}")
    args = parser.parse_args(argv)
    form = args.format or ("json" if args.json else "text")
    if args.json and form != "json":
        parser.error("--json and --format " + form + " contradict each other")
    if args.explain and not args.device:
        parser.error("--explain needs --device")
    if args.jobs is not None and args.jobs < 1:
        parser.error("--jobs must be at least 1")

    device = None
    if args.device:
        try:
            device = fileinfo.Device(args.device)
        except (OSError, ValueError) as e:
            print(f"fileinfo: {args.device}: cannot read the capability description ({e})", file=sys.stderr)
            return 2

    failed = False

    def report(error: OSError) -> None:
        nonlocal failed
        failed = True
        print(f"fileinfo: {error.filename}: {error.strerror}", file=sys.stderr)

    out = sys.stdout
    writer = None
    if form == "csv":
        writer = csv.writer(out, lineterminator="\n")
        header = list(fileinfo.FIELDS)
        if device is not None:
            header += ["playable", "refused_by", "explanation"]
        writer.writerow(header)
    try:
        with fileinfo.scan(args.paths, jobs=args.jobs, ext=args.ext, hidden=args.hidden, on_error=report) as records:
            for record in records:
                failed |= record.status != 1
                for warning in record.warnings:
                    print(f"fileinfo: {record.path}: {warning}", file=sys.stderr)
                verdict = device.judge(record) if device is not None else None
                if form == "json":
                    out.write(_json_line(record, verdict, args.explain) + "\n")
                elif form == "csv":
                    row = ["" if v is None else v for v in record.as_dict().values()]
                    if verdict is not None:
                        row += [verdict.playable, verdict.refused_by or "", verdict.explanation]
                    writer.writerow(row)
                else:
                    out.write(_text(record, verdict, args.explain) + "\n")
    except BrokenPipeError:
        return 1
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
