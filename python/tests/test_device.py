"""fileinfo.Device: the library's verdict, as the tool gives it."""

import json
import os
import pickle
import subprocess

import pytest

import fileinfo
from conftest import CAPS, EXAMPLES, FIXTURES, TOOL


def tool_verdicts(*paths):
    if not os.access(TOOL, os.X_OK):
        pytest.skip(f"the fileinfo tool is not built ({TOOL})")
    done = subprocess.run(
        [TOOL, "--json", "--record", "--device", str(CAPS), "--explain", *map(str, paths)],
        capture_output=True,
        check=False,
    )
    return [json.loads(line) for line in done.stdout.decode().splitlines()]


def test_verdicts_equal_the_tools():
    device = fileinfo.Device(CAPS)
    expected = tool_verdicts(FIXTURES, EXAMPLES)
    records = list(fileinfo.scan([FIXTURES, EXAMPLES]))
    assert len(records) == len(expected)
    playable = 0
    for record, line in zip(records, expected):
        verdict = device.judge(record)
        assert isinstance(verdict, fileinfo.Verdict)
        assert (record.path, verdict.playable, verdict.refused_by) == (line["path"], line["playable"], line["refused_by"])
        if record.fileType:
            assert (verdict.explanation or None) == line["explanation"]
        elif record.status != 1:
            # Names the library has no reader for (.aifc): read by their bytes, never loaded by it.
            assert not verdict.playable and verdict.explanation == "the file did not load"
        else:
            # The library names no type for these; the package says why.
            assert not verdict.playable
            assert verdict.explanation == ("the file has no file type to look up (ADTS streams carry none)"
                                           if record.identified else "the file was not identified")
        playable += verdict.playable
    assert 0 < playable < len(records)


def test_a_refusal_names_the_requirement():
    verdict = fileinfo.Device(CAPS).judge(fileinfo.load(FIXTURES / "aiff" / "sox-stereo-44k-24bit.aif"))
    assert verdict == (False, "MaximumBitDepth", 'requirement MaximumBitDepth = "16" refuses it (bitsPerSample 24)')
    assert fileinfo.Device(CAPS).judge(fileinfo.load(EXAMPLES / "chord-vbr.mp3")) == (True, None, "")


def test_text_path_and_bytes_give_the_same_device():
    text = CAPS.read_text()
    record = fileinfo.load(FIXTURES / "mp4" / "h264-aac.mov")
    devices = [fileinfo.Device(CAPS), fileinfo.Device(str(CAPS)), fileinfo.Device(text), fileinfo.Device(text.encode())]
    assert len({d.judge(record) for d in devices}) == 1
    assert all(d.text == CAPS.read_bytes() for d in devices)
    assert devices[0].limit("H.264LC", "MaximumWidth") == fileinfo.Device(text).limit("H.264LC", "MaximumWidth")
    copy = pickle.loads(pickle.dumps(devices[0]))
    assert copy.judge(record) == devices[0].judge(record)


def test_every_record_gets_a_fresh_judgement():
    device = fileinfo.Device(CAPS)
    records = list(fileinfo.scan([FIXTURES, EXAMPLES]))
    first = [device.judge(r) for r in records]
    assert [device.judge(r) for r in reversed(records)] == list(reversed(first))


def test_bad_devices_raise(tmp_path):
    with pytest.raises(FileNotFoundError):
        fileinfo.Device(tmp_path / "missing.plist")
    with pytest.raises(IsADirectoryError):
        fileinfo.Device(tmp_path)
    with pytest.raises(ValueError):
        fileinfo.Device("<nothing here>")
    with pytest.raises(TypeError):
        fileinfo.Device(CAPS).judge({"fileType": "MP3"})


def test_files_that_did_not_load_are_never_playable(tmp_path):
    notes = tmp_path / "notes.txt"
    notes.write_text("x")
    verdict = fileinfo.Device(CAPS).judge(fileinfo.load(notes))
    assert verdict == (False, None, "the file did not load")


def test_a_device_list_is_found_by_name_as_the_tool_finds_it(tmp_path, monkeypatch):
    caps = CAPS.resolve()
    # From the build tree, the source tree's devices/ is searched.
    monkeypatch.chdir(tmp_path)
    by_name = fileinfo.Device("player-caps")
    assert by_name.text == caps.read_bytes()
    assert os.path.samefile(by_name.path, caps)
    (tmp_path / "mine.plist").write_bytes(caps.read_bytes())
    monkeypatch.setenv("FILEINFO_DEVICES", f"{tmp_path / 'elsewhere'}:{tmp_path}")
    monkeypatch.chdir("/")
    assert fileinfo.Device("mine").path == str(tmp_path / "mine.plist")
    with pytest.raises(FileNotFoundError) as caught:
        fileinfo.Device("no-such-player")
    assert caught.value.filename == "no-such-player"
