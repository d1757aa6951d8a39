"""fileinfo.set_tags: the safe edit's difference, with and without dry_run; the
library's writer here, the fields writer in test_set_tags_fields.py."""

import errno
import shutil

import pytest

import fileinfo
from conftest import EXAMPLES, FIXTURES

@pytest.fixture
def song(tmp_path):
    path = tmp_path / "song.mp3"
    shutil.copy(EXAMPLES / "chord-vbr.mp3", path)
    return path


def test_dry_run_gives_the_difference_and_touches_nothing(song):
    before = song.read_bytes()
    planned = fileinfo.set_tags(song, dry_run=True, writer="library", title="Café", track=3)
    assert planned.status == "would_change" and not planned.changed and planned.backup_path is None
    assert FieldChange("title", "Chord", "Café") in planned.fields
    assert FieldChange("trackNumber", "0", "3") in planned.fields
    assert ("changed", "TIT2", "Chord", "Café") in planned.frames
    assert song.read_bytes() == before
    assert sorted(p.name for p in song.parent.iterdir()) == ["song.mp3"]
    assert "title" in planned.text


def test_the_edit_makes_the_difference_the_dry_run_announced(song):
    original = song.read_bytes()
    planned = fileinfo.set_tags(song, dry_run=True, writer="library", title="Café", track=3)
    done = fileinfo.set_tags(song, force=True, writer="library", title="Café", track=3)
    assert done.status == "changed" and done.changed
    assert (done.fields, done.frames, done.mismatches) == (planned.fields, planned.frames, planned.mismatches)
    record = fileinfo.load(song)
    assert (record.title, record.trackNumber) == ("Café", 3)
    assert done.backup_path == str(song.parent / "song.orig.mp3")
    assert (song.parent / "song.orig.mp3").read_bytes() == original


def test_an_edit_beyond_the_request_is_refused_without_force(song):
    before = song.read_bytes()
    planned = fileinfo.set_tags(song, dry_run=True, writer="library", title="New")
    if not planned.goes_beyond:
        pytest.skip("this edit stays within the request")
    with pytest.raises(fileinfo.EditRefused) as caught:
        fileinfo.set_tags(song, writer="library", title="New")
    assert "force=True" in str(caught.value) and "--" not in str(caught.value)
    assert caught.value.result is not None and caught.value.result.fields == planned.fields
    assert song.read_bytes() == before


def test_no_backup_when_asked(song):
    done = fileinfo.set_tags(song, force=True, writer="library", backup=False, artist="Someone")
    assert done.backup_path is None and fileinfo.load(song).artist == "Someone"
    assert sorted(p.name for p in song.parent.iterdir()) == ["song.mp3"]


def test_mistakes_and_errors(song, tmp_path):
    with pytest.raises(FileNotFoundError) as caught:
        fileinfo.set_tags(tmp_path / "missing.mp3", title="x")
    assert caught.value.errno == errno.ENOENT
    wav = tmp_path / "tone.wav"
    shutil.copy(EXAMPLES / "tone-mono.wav", wav)
    with pytest.raises(fileinfo.EditRefused):
        fileinfo.set_tags(wav, title="x")
    with pytest.raises(ValueError) as caught:
        fileinfo.set_tags(song, writer="library", title="日本")
    assert "Latin-1" in str(caught.value) and "--set" not in str(caught.value)
    with pytest.raises(TypeError):
        fileinfo.set_tags(song, colour="red")
    with pytest.raises(TypeError):
        fileinfo.set_tags(song, writer="library", track="3")
    with pytest.raises(ValueError):
        fileinfo.set_tags(song, track="3/0")
    with pytest.raises(ValueError):
        fileinfo.set_tags(song, writer="other", title="x")
    with pytest.raises(ValueError):
        fileinfo.set_tags(song)


def test_aac_files_take_tags_too(tmp_path):
    aac = tmp_path / "tone.aac"
    shutil.copy(FIXTURES / "aac" / "adts-44k-stereo.aac", aac)
    done = fileinfo.set_tags(aac, force=True, writer="library", title="Tone")
    assert done.changed and fileinfo.load(aac).title == "Tone"


def test_a_backup_goes_back(song):
    original = song.read_bytes()
    done = fileinfo.set_tags(song, force=True, writer="library", title="Changed")
    assert fileinfo.restore_backup(done.backup_path) == str(song)
    assert song.read_bytes() == original and fileinfo.load(song).title == "Chord"
    with pytest.raises(FileNotFoundError):
        fileinfo.restore_backup(song.parent / "gone.orig.mp3")


FieldChange = fileinfo.FieldChange
