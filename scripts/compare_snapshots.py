#!/usr/bin/python3
"""Compares two outputs of scripts/record_snapshot.sh line by line and
counts, per record field (or per key of the line), how many files moved,
with the first example of each. Exit status 1 when anything moved.

    scripts/compare_snapshots.py before.jsonl after.jsonl
"""
import collections
import json
import sys


def main(before_path, after_path):
    before = [json.loads(line) for line in open(before_path, encoding="utf-8")]
    after = [json.loads(line) for line in open(after_path, encoding="utf-8")]
    if len(before) != len(after):
        print(f"line counts differ: {len(before)} and {len(after)}")
        return 1
    moved = collections.Counter()
    examples = {}
    for old, new in zip(before, after):
        if old.get("path") != new.get("path"):
            print(f"paths differ: {old.get('path')} and {new.get('path')}")
            return 1
        old_record, new_record = old.get("record") or {}, new.get("record") or {}
        for key in sorted(set(old) | set(new)):
            if key == "record" and old_record and new_record:
                for field in old_record:
                    if old_record[field] != new_record.get(field):
                        moved[field] += 1
                        examples.setdefault(field, (old["path"], old_record[field], new_record.get(field)))
            elif old.get(key) != new.get(key):
                moved[key] += 1
                examples.setdefault(key, (old["path"], old.get(key), new.get(key)))
    print(f"{len(before)} files compared")
    for field, count in moved.most_common():
        path, was, now = examples[field]
        print(f"  {field}: {count} files, e.g. {path}: {was!r} -> {now!r}")
    if not moved:
        print("  no field moved")
    return 1 if moved else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2]))
