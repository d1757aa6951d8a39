"""fileinfo.sync: the same plan and run as `fileinfo sync`."""

import fcntl
import os
import shutil

import pytest

import fileinfo
from conftest import CAPS, EXAMPLES, FIXTURES


@pytest.fixture
def collection(tmp_path):
    src = tmp_path / "music"
    (src / "Album").mkdir(parents=True)
    shutil.copy(FIXTURES / "mp3" / "cbr128.mp3", src / "Album" / "01 One.mp3")
    shutil.copy(EXAMPLES / "tone-mono.wav", src / "Album" / "02 Two.wav")
    (src / "notes.txt").write_text("not media")
    dev = tmp_path / "device"
    dev.mkdir()
    return src, dev


def test_dry_run_returns_the_plan_and_writes_nothing(collection):
    src, dev = collection
    out = fileinfo.sync([src], dev, CAPS, dry_run=True)
    assert out["status"] == "ok"
    assert out["result"] is None
    assert sorted(os.path.basename(e["source"]) for e in out["plan"]) == ["01 One.mp3", "02 Two.wav", "notes.txt"]
    for e in out["plan"]:
        assert set(e) >= {"action", "source", "device_path", "reason", "bytes", "refused_by", "library_playable"}
    notes = next(e for e in out["plan"] if e["source"].endswith("notes.txt"))
    assert (notes["action"], notes["device_path"]) == ("skip", None)
    assert out["totals"]["skipped"]["not a media file"] == 1
    assert os.listdir(dev) == []


def test_run_gives_each_file_its_result_and_a_second_run_loads_nothing(collection):
    src, dev = collection
    first = fileinfo.sync(src, dev, fileinfo.Device(CAPS))
    assert first["result"]["failed"] == 0
    assert all(e["result"] == "done" for e in first["plan"])
    copied = [e for e in first["plan"] if e["action"] == "copy"]
    assert first["result"]["copied"] == len(copied)
    for e in copied:
        with open(e["source"], "rb") as a, open(os.path.join(dev, e["device_path"]), "rb") as b:
            assert a.read() == b.read()
    second = fileinfo.sync(src, dev, CAPS)
    assert second["totals"]["loaded"] == 0
    assert second["totals"]["actions"]["keep"][0] == len(copied)


def test_device_folder_inside_a_source_is_a_value_error(collection):
    src, _ = collection
    with pytest.raises(ValueError, match="lies inside the source"):
        fileinfo.sync(src, src / "Album", CAPS)


def test_second_sync_while_one_runs_is_refused(collection):
    src, dev = collection
    with open(dev / ".fileinfo-sync.lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        with pytest.raises(fileinfo.SyncRefused, match="another sync"):
            fileinfo.sync(src, dev, CAPS)
