#!/usr/bin/env python3
"""Compares a media file before and after a tag edit, independently of the
edit's own checks. Prints one JSON object:

  changed_keys  the tag keys (ID3v2 frame keys, MP4 item names, AIFF text
                chunk ids) whose value or text encoding differs, sorted
  version       the ID3v2 version after the edit, "2.3" or "2.4", or null
  values        every tag key after the edit with its text, for exact checks
  encodings     every ID3v2 text frame after the edit with its encoding
  same_audio    the audio bytes are identical: for MP3 and AAC the bytes
                between the ID3v2 tag and the APE/ID3v1 tags behind, for MP4
                the contents of the mdat boxes, for WAV and AIFF the sample
                chunk
  same_samples  ffmpeg decodes both files to the same samples
  id3v1_before, id3v1_after   whether an ID3v1 trailer is there
  chunks_before, chunks_after the ids of an AIFF file's chunks in order, or []

AIFF text chunks (NAME, AUTH, ANNO, "(c) ") are keyed by their id, a second
chunk of an id as "ANNO#2"; their text is cut at a NUL and taken as UTF-8.

usage: compare_edit.py BEFORE AFTER
"""
import hashlib
import json
import struct
import subprocess
import sys

import mutagen.aiff
import mutagen.id3
import mutagen.mp4
import mutagen.wave


def kind(path):
    head = open(path, "rb").read(12)
    if head[:4] == b"RIFF":
        return "wav"
    if head[:4] == b"FORM":
        return "aiff"
    if head[4:8] in (b"ftyp", b"moov", b"mdat", b"free", b"wide"):
        return "mp4"
    return "id3"


def tags(path):
    k = kind(path)
    if k == "mp4":
        t = mutagen.mp4.MP4(path).tags
    elif k == "aiff":
        t = mutagen.aiff.AIFF(path).tags
    elif k == "wav":
        t = mutagen.wave.WAVE(path).tags
    else:
        try:
            t = mutagen.id3.ID3(path, load_v1=False)
        except mutagen.id3.ID3NoHeaderError:
            t = None
    return t


def describe(t):
    values, encodings = {}, {}
    if t is None:
        return values, encodings
    for key in t.keys():
        value = t[key]
        if hasattr(value, "text"):
            text = value.text
            values[key] = text if isinstance(text, str) else "/".join(str(x) for x in text)
            encodings[key] = int(getattr(value, "encoding", -1))
        elif hasattr(value, "data") and isinstance(value.data, bytes):
            values[key] = hashlib.sha1(value.data).hexdigest()
        else:
            values[key] = repr(value)
    return values, encodings


def form_chunks(data):
    """The (id, body) of each chunk of an AIFF FORM, pad bytes skipped."""
    out, at = [], 12
    end = min(len(data), 8 + struct.unpack(">I", data[4:8])[0]) if len(data) >= 12 else 0
    while at + 8 <= end:
        name = data[at:at + 4]
        size = struct.unpack(">I", data[at + 4:at + 8])[0]
        out.append((name.decode("latin-1"), data[at + 8:at + 8 + size]))
        at += 8 + size + (size & 1)
    return out


def aiff_texts(path):
    values, seen = {}, {}
    for name, body in form_chunks(open(path, "rb").read()):
        if name in ("NAME", "AUTH", "ANNO", "(c) "):
            seen[name] = seen.get(name, 0) + 1
            key = name if seen[name] == 1 else "%s#%d" % (name, seen[name])
            values[key] = body.split(b"\0")[0].decode("utf-8", "replace")
    return values


def mp4_audio(data):
    out, at = [], 0
    while at + 8 <= len(data):
        size, name = struct.unpack(">I4s", data[at:at + 8])
        header = 8
        if size == 1:
            size = struct.unpack(">Q", data[at + 8:at + 16])[0]
            header = 16
        elif size == 0:
            size = len(data) - at
        if size < header:
            break
        if name == b"mdat":
            out.append(data[at + header:at + size])
        at += size
    return b"".join(out)


def chunk(data, wanted, big_endian):
    at = 12
    while at + 8 <= len(data):
        name = data[at:at + 4]
        size = struct.unpack(">I" if big_endian else "<I", data[at + 4:at + 8])[0]
        if name == wanted:
            return data[at + 8:at + 8 + size]
        at += 8 + size + (size & 1)
    return b""


def id3_audio(path, data):
    start = 0
    while data[start:start + 3] == b"ID3":
        flags = data[start + 5]
        size = 0
        for b in data[start + 6:start + 10]:
            size = size << 7 | b
        start += 10 + size + (10 if flags & 0x10 else 0)
    end = len(data)
    if data[end - 128:end - 125] == b"TAG":
        end -= 128
    if data[end - 32:end - 24] == b"APETAGEX":
        size, flags = struct.unpack("<I4xI", data[end - 20:end - 8])
        end -= size + (32 if flags & 0x80000000 else 0)
    return data[start:end]


def audio(path):
    data = open(path, "rb").read()
    k = kind(path)
    if k == "mp4":
        return mp4_audio(data)
    if k == "wav":
        return chunk(data, b"data", False)
    if k == "aiff":
        return chunk(data, b"SSND", True)
    return id3_audio(path, data)


def samples(path):
    run = subprocess.run(["ffmpeg", "-v", "error", "-i", path, "-map", "0:a", "-f", "s16le", "-"],
                         stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
    return run.returncode, hashlib.sha1(run.stdout).hexdigest(), len(run.stdout)


def main():
    before, after = sys.argv[1], sys.argv[2]
    tb, ta = tags(before), tags(after)
    vb, eb = describe(tb)
    va, ea = describe(ta)
    is_aiff = kind(before) == "aiff"
    if is_aiff:
        vb.update(aiff_texts(before))
        va.update(aiff_texts(after))
    changed = sorted(k for k in set(vb) | set(va) if vb.get(k) != va.get(k) or eb.get(k) != ea.get(k))
    version = None
    if ta is not None and hasattr(ta, "version") and ta.version:
        version = "2.%d" % ta.version[1]
    sb, sa = samples(before), samples(after)
    print(json.dumps({
        "changed_keys": changed,
        "version": version,
        "values": va,
        "encodings": ea,
        "same_audio": audio(before) == audio(after) and len(audio(before)) > 0,
        "same_samples": sb[0] == 0 and sa[0] == 0 and sb[1:] == sa[1:] and sb[2] > 0,
        "id3v1_before": open(before, "rb").read()[-128:][:3] == b"TAG",
        "id3v1_after": open(after, "rb").read()[-128:][:3] == b"TAG",
        "chunks_before": [n for n, _ in form_chunks(open(before, "rb").read())] if is_aiff else [],
        "chunks_after": [n for n, _ in form_chunks(open(after, "rb").read())] if is_aiff else [],
    }, ensure_ascii=False, sort_keys=True))


if __name__ == "__main__":
    main()
