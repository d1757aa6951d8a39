"""fileinfo.scan: the tool's records in the walk's order, errors, the GIL, memory."""

import errno
import os
import shutil
import resource
import threading
import time

import pytest

import fileinfo
from conftest import EXAMPLES, FIXTURES, record_as_tool_json, tool_json


def test_a_folder_scan_equals_the_tools_walk():
    expected = tool_json(FIXTURES, EXAMPLES)
    got = [record_as_tool_json(r) for r in fileinfo.scan([FIXTURES, EXAMPLES])]
    assert [g["path"] for g in got] == [e["path"] for e in expected]
    assert got == expected


def test_the_order_is_the_sequential_walks_whatever_the_jobs(media_tree):
    one = [r.path for r in fileinfo.scan(media_tree, jobs=1)]
    assert one == [r.path for r in fileinfo.scan(media_tree, jobs=4)]
    assert one == [r.path for r in fileinfo.scan(media_tree)]
    walked = []
    for folder, dirs, files in os.walk(media_tree):
        dirs.sort()
        entries = sorted([(d, True) for d in dirs] + [(f, False) for f in files])
        for name, is_dir in entries:
            if not is_dir and fileinfo._fileinfo.walk_takes(name):
                walked.append(os.path.join(folder, name))
    # os.walk visits subfolders after the files; the scan walks them in place.
    assert sorted(one) == sorted(walked)
    assert one == sorted(one, key=lambda p: p.split(os.sep))


def test_named_paths_keep_their_order_and_a_named_file_is_always_answered(tmp_path):
    notes = tmp_path / "notes.txt"
    notes.write_text("not media")
    paths = [EXAMPLES / "tone-mono.wav", notes, EXAMPLES / "chord-vbr.mp3"]
    records = list(fileinfo.scan(paths))
    assert [r.path for r in records] == [str(p) for p in paths]
    assert [r.status for r in records] == [1, 10, 1]
    # The tool names the skipped file on stderr instead of printing a line.
    assert [record_as_tool_json(r) for r in (records[0], records[2])] == tool_json(*paths)
    assert records == [fileinfo.load(p) for p in paths]


def test_a_single_path_may_be_given_alone():
    assert [r.path for r in fileinfo.scan(str(EXAMPLES))] == [r.path for r in fileinfo.scan([EXAMPLES])]


def test_ext_selects_extensions_in_folders():
    records = list(fileinfo.scan(FIXTURES, ext=["MP3", ".m4a"]))
    assert records and {os.path.splitext(r.path)[1] for r in records} == {".mp3", ".m4a"}
    assert [r.path for r in fileinfo.scan(FIXTURES, ext="aac")] == sorted(str(p) for p in (FIXTURES / "aac").iterdir())


def test_hidden_names_are_walked_only_when_asked(media_tree):
    (media_tree / ".hidden").mkdir()
    (media_tree / ".hidden" / "song.mp3").write_bytes((EXAMPLES / "chord-vbr.mp3").read_bytes())
    assert not any(".hidden" in r.path for r in fileinfo.scan(media_tree))
    assert any(".hidden" in r.path for r in fileinfo.scan(media_tree, hidden=True))


def test_errors_raise_or_go_to_on_error(media_tree):
    missing = media_tree / "missing"
    with pytest.raises(FileNotFoundError) as caught:
        list(fileinfo.scan([missing, media_tree]))
    assert caught.value.errno == errno.ENOENT and caught.value.filename == str(missing)
    assert caught.value.strerror == os.strerror(errno.ENOENT)

    errors = []
    records = list(fileinfo.scan([missing, media_tree], on_error=errors.append))
    assert [type(e) for e in errors] == [FileNotFoundError]
    assert [r.path for r in records] == [r.path for r in fileinfo.scan(media_tree)]

    (media_tree / "dangling.mp3").symlink_to(media_tree / "nowhere.mp3")
    errors.clear()
    list(fileinfo.scan(media_tree, on_error=errors.append))
    assert [(type(e), e.filename) for e in errors] == [(FileNotFoundError, str(media_tree / "dangling.mp3"))]

    fifo = media_tree / "pipe.mp3"
    os.mkfifo(fifo)
    with pytest.raises(OSError) as caught:
        list(fileinfo.scan(fifo))
    assert caught.value.errno == errno.EINVAL and "FIFO" in caught.value.strerror
    with pytest.raises(ValueError):
        fileinfo.scan(media_tree, jobs=0)


def test_close_ends_the_scan_early(media_tree):
    with fileinfo.scan(media_tree, jobs=2) as records:
        first = next(records)
        assert first.status == 1
    assert list(records) == []


def _big_silent_mp3(path, megabytes):
    """A sparse file of zeros named .mp3: the reader looks through all of it
    for a frame, which takes a while, without using disk room."""
    with open(path, "wb") as f:
        f.truncate(megabytes << 20)
    return path


class Ticker:
    """A second Python thread that notes the time every millisecond. It needs
    the GIL for every note: while another thread holds the GIL, no note."""

    def __init__(self):
        self.stamps = []
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._run)

    def _run(self):
        while not self._stop.is_set():
            self.stamps.append(time.perf_counter())
            time.sleep(0.001)

    def __enter__(self):
        self._thread.start()
        time.sleep(0.02)
        return self

    def __exit__(self, *args):
        self._stop.set()
        self._thread.join()

    def notes_in_middle_of(self, started, ended):
        """Notes taken in the middle half of [started, ended]: away from the
        edges, where the caller still held or again held the GIL in Python."""
        quarter = (ended - started) / 4
        return sum(started + quarter < t < ended - quarter for t in self.stamps)


def test_other_threads_run_while_the_scan_waits_for_a_load(tmp_path):
    slow = _big_silent_mp3(tmp_path / "silence.mp3", 64)
    with Ticker() as ticker:
        records = fileinfo.scan([slow, EXAMPLES], jobs=1)
        started = time.perf_counter()
        first = next(records)  # waits for the one long load
        ended = time.perf_counter()
        rest = list(records)
    assert first.path == str(slow) and first.status == 1 and not first.identified
    assert rest and ended - started > 0.04, f"the load took {ended - started:.3f}s: too short to tell"
    # With the GIL held through the wait, the ticking thread could not take
    # a single note until next() returned.
    assert ticker.notes_in_middle_of(started, ended) >= 3


def test_load_releases_the_gil_too(tmp_path):
    slow = _big_silent_mp3(tmp_path / "silence.mp3", 64)
    with Ticker() as ticker:
        started = time.perf_counter()
        fileinfo.load(slow)
        ended = time.perf_counter()
    assert ended - started > 0.04
    assert ticker.notes_in_middle_of(started, ended) >= 3


def test_memory_stays_flat_over_a_long_scan(tmp_path):
    # Links to a copy of the test's own: a file takes some 65,000 links at
    # most, and pytest keeps the folders of earlier runs.
    song = tmp_path / "song.mp3"
    shutil.copy(EXAMPLES / "chord-vbr.mp3", song)
    tree = tmp_path / "tree"
    for k in range(20):
        folder = tree / f"d{k:02}"
        folder.mkdir(parents=True)
        for n in range(1000):
            os.link(song, folder / f"{n:04}.mp3")
    count = 0
    rss = []
    for r in fileinfo.scan(tree):
        count += 1
        if count in (2000, 20000):
            rss.append(resource.getrusage(resource.RUSAGE_SELF).ru_maxrss)
    assert count == 20000
    # Keeping 18,000 records of ~2 KB would take 36 MB; a flat scan takes none.
    assert rss[1] - rss[0] < 12 * 1024, f"peak memory grew by {rss[1] - rss[0]} KB"


def test_close_from_another_thread_wakes_a_waiting_scan(tmp_path):
    slow = _big_silent_mp3(tmp_path / "silence.mp3", 48)
    records = fileinfo.scan([slow] * 20, jobs=1)
    got = []
    reader = threading.Thread(target=lambda: got.extend(records))
    reader.start()
    time.sleep(0.05)
    records.close()
    reader.join(timeout=30)
    assert not reader.is_alive()
    assert len(got) < 20
    assert list(records) == []


def test_special_files_found_in_a_walk_are_reported_and_passed_over_paths_counted(tmp_path):
    tree = tmp_path / "tree"
    tree.mkdir()
    shutil.copy(EXAMPLES / "chord-vbr.mp3", tree / "a.mp3")
    os.mkfifo(tree / "b.mp3")
    (tmp_path / "elsewhere").mkdir()
    (tree / "c").symlink_to(tmp_path / "elsewhere")
    (tree / "d.txt").write_text("notes")
    errors = []
    with fileinfo.scan(tree, on_error=errors.append) as records:
        paths = [r.path for r in records]
        skipped = dict(records.skipped)
    assert paths == [str(tree / "a.mp3")]
    assert [(type(e), e.filename, e.strerror) for e in errors] == [
        (OSError, str(tree / "b.mp3"), "not a regular file (FIFO)"),
    ]
    assert errors[0].errno == errno.EINVAL
    assert skipped == {"extension not read": 1, "special file": 1, "link to a folder": 1}
    # Without a handler, the first of them ends the iteration, as an unreachable path does.
    with pytest.raises(OSError) as caught:
        list(fileinfo.scan(tree))
    assert caught.value.filename == str(tree / "b.mp3")
