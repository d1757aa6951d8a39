"""fileinfo.load: records equal to the tool's, texts decoded, errors raised."""

import dataclasses
import errno
import os
import pickle
import shutil
import subprocess
import sys

import pytest

import fileinfo
from conftest import EXAMPLES, FIXTURES, media_files, record_as_tool_json, tool_json


def test_version_is_the_librarys():
    assert fileinfo.__version__ == fileinfo._fileinfo.HEADER_VERSION
    assert fileinfo.__version__.count(".") == 2


def test_records_equal_the_tools_json_for_every_media_file():
    files = media_files()
    expected = tool_json(*files)
    assert len(expected) == len(files)
    for path, line in zip(files, expected):
        assert record_as_tool_json(fileinfo.load(path)) == line, path


def test_record_has_every_field_under_its_name():
    r = fileinfo.load(EXAMPLES / "chord-vbr.mp3")
    assert len(fileinfo.NUMBER_FIELDS) == 14 and len(fileinfo.TEXT_FIELDS) == 14
    d = r.as_dict()
    assert tuple(d) == fileinfo.FIELDS == fileinfo.Record._fields
    for name in fileinfo.FIELDS:
        assert getattr(r, name) == d[name]
    assert r.path == str(EXAMPLES / "chord-vbr.mp3")
    assert (r.status, r.status_text, r.fileType, r.title) == (1, "success", "MP3", "Chord")
    assert all(isinstance(getattr(r, n), int) for n in fileinfo.NUMBER_FIELDS)
    assert all(isinstance(getattr(r, n), str) for n in fileinfo.TEXT_FIELDS)


def test_record_is_frozen_and_pickles():
    r = fileinfo.load(EXAMPLES / "tone-tagged.m4a")
    with pytest.raises(AttributeError):
        r.title = "changed"
    with pytest.raises(AttributeError):
        del r.status
    copy = pickle.loads(pickle.dumps(r))
    assert copy == r and hash(copy) == hash(r) and copy.as_dict() == r.as_dict()
    assert r != fileinfo.load(EXAMPLES / "chord-vbr.mp3")
    match r:
        case fileinfo.Record(status=1, fileType=kind, title=title):
            assert (kind, title) == (r.fileType, r.title)
        case _:
            pytest.fail("a loaded record matches by field")
    assert "tone-tagged.m4a" in repr(r)


def test_identified_follows_what_a_reader_recognised(tmp_path):
    adts = fileinfo.load(EXAMPLES / "tone-stereo.aac")
    assert (adts.status, adts.fileType, adts.is_audio, adts.identified) == (1, "", True, True)
    noise = tmp_path / "noise.mp3"
    noise.write_bytes(bytes(range(256)) * 8)
    r = fileinfo.load(noise)
    assert (r.status, r.fileType, r.is_audio, r.is_video, r.identified) == (1, "", False, False, False)
    assert fileinfo.load(FIXTURES / "mp3" / "cbr128.mp3").identified


def test_latin1_texts_are_decoded(tmp_path):
    # An ID3v1 tag with a Latin-1 title at the end of a copy of an MP3.
    song = tmp_path / "cafe.mp3"
    shutil.copy(FIXTURES / "mp3" / "cbr128.mp3", song)
    tag = b"TAG" + b"Caf\xe9 \xbfs\xed?".ljust(30, b"\0") + b"Se\xf1or".ljust(30, b"\0") + bytes(30 + 4 + 30) + b"\xff"
    with open(song, "ab") as f:
        f.write(tag)
    r = fileinfo.load(song)
    assert r.title == "Café ¿sí?" and r.artist == "Señor"
    assert record_as_tool_json(r) == tool_json(song)[0]


def test_a_file_of_no_known_format_comes_back_in_status(tmp_path):
    text = tmp_path / "notes.txt"
    text.write_text("not media")
    r = fileinfo.load(text)
    assert r.status == 10 and r.status_text == fileinfo.status_text(10)
    assert not r.identified
    # The tool skips such a file in its walks and says why when it is named.
    assert tool_json(text) == []


@pytest.mark.parametrize(
    "make, exception, code",
    [
        (lambda d: d / "missing.mp3", FileNotFoundError, errno.ENOENT),
        (lambda d: d, IsADirectoryError, errno.EISDIR),
        (lambda d: d / "file.mp3" / "below.mp3", NotADirectoryError, errno.ENOTDIR),
    ],
)
def test_paths_that_cannot_be_opened_raise_their_oserror(tmp_path, make, exception, code):
    (tmp_path / "file.mp3").write_bytes(b"x")
    path = make(tmp_path)
    with pytest.raises(exception) as caught:
        fileinfo.load(path)
    assert caught.value.errno == code
    assert caught.value.strerror == os.strerror(code)
    assert caught.value.filename == str(path)


def test_an_unreadable_file_raises_permission_error(tmp_path):
    song = tmp_path / "locked.mp3"
    shutil.copy(EXAMPLES / "chord-vbr.mp3", song)
    song.chmod(0)
    if os.geteuid() != 0:
        with pytest.raises(PermissionError) as caught:
            fileinfo.load(song)
        assert caught.value.strerror == os.strerror(errno.EACCES)
        return
    # As root every file opens: ask an unprivileged user's process instead.
    tmp_path.chmod(0o755)
    check = (
        "import fileinfo, sys\n"
        "try:\n    fileinfo.load(sys.argv[1])\nexcept PermissionError as e:\n"
        "    print(type(e).__name__, e.errno, e.strerror, e.filename)\n"
    )
    try:
        done = subprocess.run(
            [sys.executable, "-c", check, str(song)],
            capture_output=True,
            text=True,
            user=65534,
            group=65534,
            timeout=60,
        )
    except (OSError, subprocess.SubprocessError) as e:
        pytest.skip(f"cannot run as an unprivileged user: {e}")
    if "ModuleNotFoundError" in done.stderr or "ImportError" in done.stderr:
        pytest.skip("an unprivileged user cannot import the built package here")
    assert done.stdout.strip() == f"PermissionError 13 {os.strerror(errno.EACCES)} {song}", done.stderr


def test_a_fifo_is_not_opened(tmp_path):
    fifo = tmp_path / "pipe.mp3"
    os.mkfifo(fifo)
    with pytest.raises(OSError) as caught:
        fileinfo.load(fifo)  # would block forever if it were opened
    assert caught.value.errno == errno.EINVAL and "FIFO" in caught.value.strerror


def test_paths_may_be_bytes_or_path_objects():
    path = EXAMPLES / "tone-mono.wav"
    assert fileinfo.load(path) == fileinfo.load(str(path)) == fileinfo.load(os.fsencode(path))


def test_the_librarys_warning_stays_off_standard_output(tmp_path):
    # An AIFF chunk whose size is all ones makes the library warn.
    movie = tmp_path / "warn.aif"
    movie.write_bytes(b"FORM" + (100000).to_bytes(4, "big") + b"AIFF" + b"JUNK" + b"\xff" * 4 + bytes(70000))
    code = "import fileinfo, sys\nr = fileinfo.load(sys.argv[1])\nprint('status', r.status)\n"
    done = subprocess.run([sys.executable, "-c", code, str(movie)], capture_output=True, text=True, timeout=60)
    assert done.returncode == 0, done.stderr
    assert done.stdout == f"status {fileinfo.load(movie).status}\n"
    assert "ReadWord warning!" in done.stderr
