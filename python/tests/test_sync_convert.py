"""fileinfo.sync converts what the device refuses, as `fileinfo sync` does."""

import os
import shutil

import pytest

import fileinfo
from conftest import CAPS, EXAMPLES, FIXTURES

needs_ffmpeg = pytest.mark.skipif(shutil.which("ffmpeg") is None, reason="no ffmpeg on PATH")


@pytest.fixture
def refused(tmp_path):
    src = tmp_path / "music"
    src.mkdir()
    shutil.copy(FIXTURES / "mp4" / "alac.m4a", src / "-x lossless.m4a")
    shutil.copy(FIXTURES / "aiff" / "sox-stereo-44k-24bit.aif", src / "deep.aif")
    shutil.copy(EXAMPLES / "tone-mono.wav", src / "plays.wav")
    dev = tmp_path / "device"
    dev.mkdir()
    return src, dev


def by_name(out):
    return {os.path.basename(e["source"]): e for e in out["plan"]}


@needs_ffmpeg
def test_refused_files_are_planned_as_conversions_with_their_targets(refused):
    src, dev = refused
    out = fileinfo.sync([src], dev, CAPS, dry_run=True)
    plan = by_name(out)
    assert plan["plays.wav"]["action"] == "copy"
    alac = plan["-x lossless.m4a"]
    assert alac["action"] == "convert"
    assert alac["device_path"] == "-x lossless.m4a"
    assert alac["conversion"]["type"] == "AAC"
    assert alac["conversion"]["audio"] == {
        "codec": "AAC LC",
        "sample_rate": 16000,
        "channels": 1,
        "bits_per_sample": 0,
        "bit_rate": 32000,
        "silent": False,
    }
    deep = plan["deep.aif"]
    assert deep["action"] == "convert"
    assert deep["refused_by"] == "MaximumBitDepth, MaximumDataRate"
    assert deep["conversion"]["words"] == "PCM 44.1 kHz stereo 16-bit in .aif"
    assert out["converter"].endswith("ffmpeg")
    assert os.listdir(dev) == []


@needs_ffmpeg
def test_a_run_converts_proves_and_a_second_run_keeps(refused):
    src, dev = refused
    out = fileinfo.sync([src], dev, CAPS, jobs=2)
    assert out["result"]["converted"] == 2
    assert out["result"]["copied"] == 1
    assert out["result"]["failed"] == 0
    assert sorted(n for n in os.listdir(dev) if not n.startswith(".")) == ["-x lossless.m4a", "deep.aif", "plays.wav"]
    device = fileinfo.Device(CAPS)
    for name in ("-x lossless.m4a", "deep.aif"):
        record = fileinfo.load(dev / name)
        assert record.status == 1
        assert device.judge(record).playable
        assert device.judge_reading(record).playable
    again = fileinfo.sync([src], dev, CAPS)
    assert again["result"]["converted"] == 0
    assert again["result"]["kept"] == 3
    assert again["totals"]["loaded"] == 0


def test_convert_false_skips_with_the_refusing_key(refused):
    src, dev = refused
    out = fileinfo.sync([src], dev, CAPS, dry_run=True, convert=False)
    deep = by_name(out)["deep.aif"]
    assert deep["action"] == "skip"
    assert deep["refused_by"] == "MaximumBitDepth, MaximumDataRate"
    assert out["converter"] is None


def test_a_missing_ffmpeg_skips_with_the_reason_and_copies_still_happen(refused):
    src, dev = refused
    out = fileinfo.sync([src], dev, CAPS, ffmpeg="/nonexistent")
    plan = by_name(out)
    assert plan["deep.aif"]["action"] == "skip"
    assert plan["deep.aif"]["reason"] == "needs ffmpeg to become PCM 44.1 kHz stereo 16-bit in .aif"
    assert out["totals"]["skipped"]["needs ffmpeg"] == 2
    assert out["result"]["copied"] == 1
    assert out["converter"] is None


@needs_ffmpeg
def test_a_copy_that_becomes_a_conversion_is_one_update_that_replaces_it(tmp_path):
    src = tmp_path / "music"
    src.mkdir()
    shutil.copy(FIXTURES / "mp3" / "cbr128.mp3", src / "song.mp3")
    dev = tmp_path / "device"
    dev.mkdir()
    assert fileinfo.sync([src], dev, CAPS)["result"]["copied"] == 1
    # The same list without MP3: the song becomes AAC in .m4a.
    text = open(CAPS, encoding="utf-8").read()
    start, end = text.index("<key>MP3</key>"), text.index("<key>AAC</key>")
    no_mp3 = tmp_path / "no-mp3.plist"
    no_mp3.write_text(text[:start] + text[end:], encoding="utf-8")
    out = fileinfo.sync([src], dev, str(no_mp3))
    (entry,) = out["plan"]
    assert entry["action"] == "update"
    assert str(entry["device_path"]) == "song.m4a"
    assert str(entry["replaces"]) == "song.mp3"
    assert entry["replaced_bytes"] == os.path.getsize(src / "song.mp3")
    assert entry["reason"] == "becomes .m4a"
    assert out["result"]["updated"] == 1
    assert sorted(p for p in os.listdir(dev) if not p.startswith(".fileinfo")) == ["song.m4a"]
