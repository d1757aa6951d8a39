"""fileinfo.set_tags with the fields writer (the default): Unicode texts,
track as an int or "N/TOTAL", MP4 files, and the difference as the reading
reads the copy back."""

import shutil

import mutagen.id3
import mutagen.mp4
import pytest

import fileinfo
from conftest import EXAMPLES, FIXTURES


@pytest.fixture
def song(tmp_path):
    path = tmp_path / "song.mp3"
    shutil.copy(FIXTURES / "mp3" / "tagged-id3v2.mp3", path)
    return path


def test_a_unicode_title_and_a_track_of_a_total_need_no_force(song):
    before = mutagen.id3.ID3(song)
    done = fileinfo.set_tags(song, title="日本の歌 🎵", track="3/12")
    assert done.changed and not done.goes_beyond and done.mismatches == ()
    assert fileinfo.FieldChange("title", "Chord in A", "日本の歌 🎵") in done.fields
    assert fileinfo.FieldChange("track", "7", "3/12") in done.fields
    after = mutagen.id3.ID3(song)
    assert str(after["TIT2"]) == "日本の歌 🎵" and str(after["TRCK"]) == "3/12"
    assert after.version == before.version == (2, 3, 0)
    assert {k for k in after.keys() if k not in ("TIT2", "TRCK")} == {k for k in before.keys() if k not in ("TIT2", "TRCK")}
    assert (song.parent / "song.orig.mp3").exists()


def test_track_as_an_int(song):
    done = fileinfo.set_tags(song, backup=False, track=9)
    assert fileinfo.FieldChange("track", "7", "9") in done.fields


def test_the_dry_run_lists_the_tags_that_change_and_touches_nothing(song):
    before = song.read_bytes()
    planned = fileinfo.set_tags(song, dry_run=True, album="Ålbum")
    assert planned.status == "would_change"
    assert planned.fields == (fileinfo.FieldChange("album", "Fixtures", "Ålbum"),)
    assert planned.frames == () and planned.mismatches == ()
    assert song.read_bytes() == before
    assert sorted(p.name for p in song.parent.iterdir()) == ["song.mp3"]


def test_mp4_files_take_tags(tmp_path):
    path = tmp_path / "tone.m4a"
    shutil.copy(EXAMPLES / "tone-tagged.m4a", path)
    done = fileinfo.set_tags(path, backup=False, artist="Ünïcödé", genre="Jazz")
    assert done.changed
    tags = mutagen.mp4.MP4(path).tags
    assert tags["\xa9ART"] == ["Ünïcödé"] and tags["\xa9gen"] == ["Jazz"]


def test_a_value_that_would_not_read_back_is_refused(song):
    before = song.read_bytes()
    with pytest.raises(fileinfo.EditRefused) as caught:
        fileinfo.set_tags(song, year="2021-05-01")
    assert caught.value.result is not None and caught.value.result.mismatches
    assert "--" not in str(caught.value)
    assert song.read_bytes() == before


def test_id3v23_converts_an_id3v24_tag(tmp_path):
    path = tmp_path / "song.mp3"
    shutil.copy(FIXTURES / "mp3" / "mono-ffmpeg.mp3", path)
    fileinfo.set_tags(path, backup=False, id3v23=True, title="Old player")
    assert mutagen.id3.ID3(path).version == (2, 3, 0)


def test_mistakes(song):
    with pytest.raises(ValueError):
        fileinfo.set_tags(song, track="3/x")
    with pytest.raises(TypeError):
        fileinfo.set_tags(song, track=3.5)


def test_aiff_text_chunks_take_the_title_artist_and_comment(tmp_path):
    # NAME, AUTH and ANNO hold the tags; the texts are written there as
    # UTF-8, and a field they cannot hold goes into a new ID3 chunk.
    path = tmp_path / "tone.aif"
    shutil.copy(EXAMPLES / "tone-tagged.aif", path)
    planned = fileinfo.set_tags(path, dry_run=True, title="Café 日本", comment="")
    assert planned.fields == (fileinfo.FieldChange("title", "Tuning Tone", "Café 日本"),
                              fileinfo.FieldChange("comment", "A4 reference", ""))
    done = fileinfo.set_tags(path, backup=False, title="Café 日本", comment="", album="Tones")
    assert done.changed and not done.goes_beyond and done.mismatches == ()
    data = path.read_bytes()
    assert "NAME\0\0\0\x0cCafé 日本".encode() in data and b"ANNO" not in data and b"AUTH\0\0\0\x08Test Lab" in data
    tags = fileinfo.load(path).media.tags
    assert (tags.title, tags.artist, tags.comment, tags.album) == ("Café 日本", "Test Lab", None, "Tones")
