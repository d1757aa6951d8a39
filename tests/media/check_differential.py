#!/usr/bin/env python3
"""Compares the reading of every real fixture with ffprobe's streams and
mutagen's tags.

Usage: check_differential.py READ_MEDIA PROJECT_DIR

Stream fields must agree with ffprobe: the container family and the codec,
the sample rate, channels, bits per sample (PCM and lossless), picture size,
profile and level, and the duration within 1 % or 50 ms. Tag texts must
agree with mutagen's (with ffprobe's for RIFF INFO and AIFF text chunks,
which mutagen does not read). A difference is allowed only where it is
listed in EXCEPTIONS with the reason the other tool is wrong there.
Exits 77 (skipped) when ffprobe or mutagen is missing.
"""
import glob
import json
import os
import shutil
import subprocess
import sys

try:
    import mutagen
    import mutagen.id3
    import mutagen.mp4
except ImportError:
    print("skipped: mutagen is not installed (Debian python3-mutagen)")
    sys.exit(77)
if shutil.which("ffprobe") is None:
    print("skipped: ffprobe is not installed (Debian ffmpeg)")
    sys.exit(77)

# (file name, field): why the other tool's value is not the truth.
EXCEPTIONS = {
    ("mp2-sound.mp4", "audio_codec"):
        "ffprobe names MPEG-1 audio in an MP4 (object type 0x6B) mp3 without looking at a frame; "
        "the frames are Layer II (header FF FD)",
}

FAMILY = {
    "mp3": {"MP3"},
    "aac": {"AAC"},
    "wav": {"WAV"},
    "aiff": {"AIFF", "AIFC"},
    "mov,mp4,m4a,3gp,3g2,mj2": {"MP4", "M4A", "M4V", "MOV", "3GP"},
}

CODEC = {
    "mp3": "MP3", "mp2": "MP2", "mp1": "MP1", "alac": "ALAC", "amr_nb": "AMR-NB", "amr_wb": "AMR-WB",
    "ac3": "AC-3", "eac3": "E-AC-3", "h264": "H.264", "mpeg4": "MPEG-4 Visual", "h263": "H.263",
    "mpeg2video": "MPEG-2 Video", "mpeg1video": "MPEG-1 Video", "mjpeg": "MJPEG", "hevc": "H.265",
    "flac": "FLAC", "opus": "Opus",
}
AAC_PROFILE = {"LC": "AAC LC", "Main": "AAC Main", "LTP": "AAC LTP", "SSR": "AAC SSR", "HE-AAC": "HE-AAC",
               "HE-AACv2": "HE-AACv2"}


def ffprobe(path):
    out = subprocess.run(["ffprobe", "-v", "error", "-show_format", "-show_streams", "-of", "json", "--", path],
                         capture_output=True, text=True, check=False)
    return json.loads(out.stdout or "{}")


def codec_name(stream):
    name = stream.get("codec_name", "")
    if name == "aac":
        return AAC_PROFILE.get(stream.get("profile", ""), "AAC " + stream.get("profile", "?"))
    if name.startswith("pcm_"):
        return "PCM"
    return CODEC.get(name, name)


def first(streams, kind):
    for s in streams:
        if s.get("codec_type") == kind and s.get("disposition", {}).get("attached_pic", 0) == 0:
            return s
    return None


def mutagen_tags(path):
    """The tags as mutagen reads them, in the reading's names; None when
    mutagen reads no tags from the file."""
    try:
        f = mutagen.File(path)
        tags = f.tags if f is not None else None
    except Exception:  # mutagen's file types refuse some files outright
        tags = None
    if tags is None:
        # An ADTS stream with an ID3v2 tag in front is no file type of
        # mutagen's; its ID3 reader still reads the tag.
        try:
            tags = mutagen.id3.ID3(path)
        except Exception:
            return None
    out = {}
    if isinstance(tags, mutagen.id3.ID3):
        def text(frame_id):
            frames = tags.getall(frame_id)
            return "/".join(str(x) for x in frames[0].text) if frames and frames[0].text else ""
        out["title"], out["artist"], out["album"] = text("TIT2"), text("TPE1"), text("TALB")
        genres = tags.getall("TCON")
        out["genre"] = "/".join(genres[0].genres) if genres else ""
        year = tags.getall("TDRC")
        out["year"] = str(year[0].text[0])[:4] if year and year[0].text else ""
        out["composer"] = text("TCOM")
        comments = [c for c in tags.getall("COMM") if c.desc == ""] or tags.getall("COMM")
        out["comment"] = str(comments[0].text[0]) if comments and comments[0].text else ""
        track = text("TRCK")
        if track:
            number, _, total = track.partition("/")
            out["track"] = int(number) if number.strip().isdigit() else 0
            out["track_total"] = int(total) if total.strip().isdigit() else 0
    elif isinstance(tags, mutagen.mp4.MP4Tags):
        def item(key):
            value = tags.get(key)
            return str(value[0]) if value else ""
        out["title"], out["artist"], out["album"] = item("\xa9nam"), item("\xa9ART"), item("\xa9alb")
        out["genre"], out["year"] = item("\xa9gen"), item("\xa9day")[:4]
        out["comment"], out["composer"] = item("\xa9cmt"), item("\xa9wrt")
        if tags.get("trkn"):
            out["track"], out["track_total"] = tags["trkn"][0]
    else:
        return None
    return out


def close_duration(ours_ms, theirs_s):
    theirs_ms = float(theirs_s) * 1000.0
    return abs(ours_ms - theirs_ms) <= max(50.0, theirs_ms * 0.01)


def main():
    read_media, project = sys.argv[1], sys.argv[2]
    files = sorted(glob.glob(os.path.join(project, "tests/fixtures/*/*")) +
                   [p for p in glob.glob(os.path.join(project, "examples/*")) if os.path.isfile(p)])
    lines = subprocess.run([read_media] + files, capture_output=True, text=True, check=True).stdout.splitlines()
    failures = []
    checked = 0

    def expect(path, field, ours, theirs):
        nonlocal checked
        checked += 1
        if ours == theirs:
            return
        if (os.path.basename(path), field) in EXCEPTIONS:
            return
        failures.append(f"{os.path.relpath(path, project)}: {field}: ours {ours!r}, theirs {theirs!r}")

    for line in lines:
        r = json.loads(line)
        path = r["path"]
        probe = ffprobe(path)
        fmt = probe.get("format", {})
        family = FAMILY.get(fmt.get("format_name", ""))
        if family is None:
            expect(path, "type", r.get("type", ""), "")
            continue
        expect(path, "type", r.get("type", "") in family, True)
        audio, video = first(probe.get("streams", []), "audio"), first(probe.get("streams", []), "video")
        if audio:
            expect(path, "audio_codec", r["audio_codec"], codec_name(audio))
            expect(path, "sample_rate", r["sample_rate"], int(audio.get("sample_rate", 0)))
            expect(path, "channels", r["channels"], audio.get("channels", 0))
            # Bits of compressed sound (ADPCM) are the codec's business.
            if r["audio_codec"] in ("PCM", "ALAC"):
                bits = audio.get("bits_per_raw_sample") or audio.get("bits_per_sample") or 0
                expect(path, "bits_per_sample", r["bits_per_sample"], int(bits))
        else:
            expect(path, "audio_codec", r["audio_codec"], "")
        if video:
            expect(path, "video_codec", r["video_codec"], codec_name(video))
            expect(path, "width", r["width"], video.get("width", 0))
            expect(path, "height", r["height"], video.get("height", 0))
            if "profile" in video and r["video_codec"] in ("H.264", "H.265", "MPEG-4 Visual"):
                expect(path, "profile", r["profile"], video["profile"])
                expect(path, "level", r["level"], video.get("level", 0))
        else:
            expect(path, "video_codec", r["video_codec"], "")
        if "duration" in fmt:
            expect(path, "duration", close_duration(r["duration_ms"], fmt["duration"]), True)
        expect(path, "size", r["size"], int(fmt.get("size", r["size"])))
        theirs = mutagen_tags(path)
        if theirs is None:
            # mutagen reads neither RIFF INFO nor AIFF text chunks: ffprobe does.
            probe_tags = {k.lower(): v for k, v in fmt.get("tags", {}).items()}
            if r["type"] in ("WAV", "AIFF", "AIFC") and probe_tags:
                # ffprobe calls an AIFF's AUTH chunk "author".
                artist = probe_tags.get("artist", probe_tags.get("author", ""))
                for ours_name, theirs_value in (("title", probe_tags.get("title", "")), ("artist", artist),
                                                ("comment", probe_tags.get("comment", ""))):
                    expect(path, ours_name, r["tags"][ours_name], theirs_value)
            continue
        for name, value in theirs.items():
            expect(path, name, r["tags"][name], value)

    for failure in failures:
        print(failure)
    print(f"{len(lines)} files, {checked} values compared, {len(failures)} differences")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
