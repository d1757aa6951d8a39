"""The reading beside the record: Record.media, record_differs and the two
verdicts, with the names and values of the tool's JSON lines."""

import pickle

import fileinfo
from conftest import CAPS, EXAMPLES, FIXTURES, media_files, tool_json


def differs_as_json(record):
    if record.record_differs is None:
        return None
    return [{"field": d.field, "record": d.record, "reading": d.reading} for d in record.record_differs]


def test_media_and_record_differs_equal_the_tools_json_for_every_fixture():
    files = media_files()
    expected = tool_json(*files, record=False)
    assert len(expected) == len(files)
    for path, line in zip(files, expected):
        r = fileinfo.load(path)
        assert r.media.as_dict() == line["media"], path
        assert differs_as_json(r) == line["record_differs"], path


def test_scan_with_a_device_gives_both_verdicts_as_the_tool():
    lines = tool_json("--device", CAPS, "--explain", FIXTURES, EXAMPLES, record=False)
    records = list(fileinfo.scan([FIXTURES, EXAMPLES], device=CAPS))
    assert len(records) == len(lines)
    for r, line in zip(records, lines):
        assert isinstance(r.verdict, fileinfo.ReadingVerdict) and isinstance(r.library_verdict, fileinfo.Verdict)
        assert r.verdict.playable == line["verdict"]["playable"] == line["playable"], r.path
        assert list(r.verdict.refused_by) == line["verdict"]["refused_by"], r.path
        assert (r.verdict.explanation or None) == line["verdict"]["explanation"], r.path
        assert r.library_verdict.playable == line["library_verdict"]["playable"], r.path
        assert r.library_verdict.refused_by == line["library_verdict"]["refused_by"], r.path


def test_without_a_device_there_is_no_verdict():
    r = fileinfo.load(EXAMPLES / "tone-mono.wav")
    assert r.verdict is None and r.library_verdict is None


def test_the_reading_of_a_wav_beside_its_record():
    r = fileinfo.load(EXAMPLES / "tone-mono.wav", device=fileinfo.Device(CAPS))
    m = r.media
    assert (m.type, m.audio_codec, m.video_codec) == ("WAV", "PCM", None)
    assert (m.sample_rate, m.channels, m.bits_per_sample, m.duration_ms, m.size) == (8000, 1, 16, 1000, 16044)
    assert m.tags.title is None and m.tags.track is None
    # The record stays the library's.
    assert (r.durationMs, r.channelMode, r.title) == (0, "Mono", "tone-mono")
    assert r.record_differs == [
        fileinfo.RecordDifference("title", "tone-mono", None),
        fileinfo.RecordDifference("durationMs", 0, 1000),
        fileinfo.RecordDifference("bitsPerSample", 0, 16),
    ]
    assert r.library_verdict == fileinfo.Verdict(True, None, "")


def test_media_names_are_the_json_keys():
    m = fileinfo.load(EXAMPLES / "tone-mono.wav").media
    d = m.as_dict()
    assert tuple(k for k in d if k != "tags") == fileinfo.READING_FIELDS
    assert tuple(d["tags"]) == fileinfo.TAG_FIELDS
    for name in fileinfo.READING_FIELDS:
        assert getattr(m, name) == d[name]
    for name in fileinfo.TAG_FIELDS:
        assert getattr(m.tags, name) == d["tags"][name]


def test_an_unidentified_file_has_a_reading_without_type_and_nothing_to_compare(tmp_path):
    junk = tmp_path / "noise.mp3"
    junk.write_bytes(b"\x55" * 3000)
    r = fileinfo.load(junk)
    assert r.media.type is None and r.media.size == 3000
    assert r.record_differs is None and r.reading_error is None


def test_the_reading_survives_pickling():
    r = fileinfo.load(EXAMPLES / "chord-vbr.mp3")
    back = pickle.loads(pickle.dumps(r))
    assert back == r and back.media == r.media and back.media.as_dict() == r.media.as_dict()
    assert back.record_differs == r.record_differs
