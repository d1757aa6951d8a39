"""What libFileInfo reads from media files, from Python.

    >>> import fileinfo
    >>> r = fileinfo.load("song.mp3")
    >>> r.fileType, r.durationMs, r.title
    >>> for r in fileinfo.scan(["/music"], ext=["mp3", "m4a"]):
    ...     print(r.path, r.artist)
    >>> fileinfo.Device("devices/player-caps.plist").judge(r)
    Verdict(playable=True, refused_by=None, explanation='')

load() and scan() give Records: the library's 28 fields under their own
names, and path, status, status_text, is_audio, is_video, has_tags and
identified. A path that cannot be opened raises the OSError subclass of its
errno; every other outcome is in `status` (1 is success).

Beside the library's record, every Record carries the reading of what the
file really holds, `media` (a Media: type, audio_codec, duration_ms, ...,
and `tags`), with the names of the tool's JSON lines, and `record_differs`:
where the record says what a person would read otherwise. With a device,
`verdict` is its verdict on the reading and `library_verdict` the
library's own on the record.

The library prints "ReadWord warning!" on C's standard output; while this
package loads files, C's stdout is pointed at standard error, so the
warning never mixes with a script's own output (Python's print is not
affected).
"""

from __future__ import annotations

import os
from dataclasses import dataclass
from typing import Any, Callable, Iterable, Iterator, NamedTuple, Optional, Tuple, Union

from . import _fileinfo
from ._fileinfo import (
    FIELDS,
    NUMBER_FIELDS,
    READING_FIELDS,
    RECORD_DIFFERS_FIELDS,
    TAG_FIELDS,
    TEXT_FIELDS,
    Media,
    Record,
    Tags,
)

__version__: str = _fileinfo.__version__

__all__ = [
    "Device",
    "EditFailed",
    "EditRefused",
    "FIELDS",
    "FieldChange",
    "FrameChange",
    "Media",
    "NUMBER_FIELDS",
    "READING_FIELDS",
    "RECORD_DIFFERS_FIELDS",
    "ReadBackMismatch",
    "ReadingVerdict",
    "Record",
    "RecordDifference",
    "TAG_FIELDS",
    "TEXT_FIELDS",
    "Tags",
    "TagEditResult",
    "Verdict",
    "__version__",
    "load",
    "restore_backup",
    "scan",
    "set_tags",
    "status_text",
    "sync",
    "SyncRefused",
    "to_pandas",
]

PathLike = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]


def _path_bytes(path: PathLike) -> bytes:
    return os.fsencode(os.fspath(path))


def status_text(status: int) -> str:
    """The library's text for a status code: 1 is "success"."""
    return _fileinfo.status_text(status)


def _native_device(device: Union[None, PathLike, "Device"]) -> Any:
    if device is None:
        return None
    return (device if isinstance(device, Device) else Device(device))._device


def load(path: PathLike, device: Union[None, PathLike, "Device"] = None) -> Record:
    """Loads one file and returns its Record: the library's record and,
    beside it, the reading of what the file holds (`media`).

    With `device` (a Device, or a capability list's text or path) the
    record carries `verdict` (on the reading) and `library_verdict`.

    Raises the OSError subclass of the system's reason when the path cannot
    be opened: FileNotFoundError, PermissionError, IsADirectoryError,
    NotADirectoryError, ... (OSError with EINVAL for a FIFO, device or
    socket, which is never opened, and for a path holding a NUL byte).
    Any other outcome, a file of no known
    format included, comes back in the record's status.
    """
    return _fileinfo.load(_path_bytes(path), _native_device(device))


def _extensions(ext: Union[None, str, Iterable[str]]) -> list:
    if ext is None:
        return []
    if isinstance(ext, str):
        ext = ext.split(",")  # "mp3,m4a", as the tool's --ext takes it
    out = []
    for e in ext:
        e = e.lower().lstrip(".")
        if not e:
            raise ValueError("an empty extension selects nothing")
        out.append(e)
    return out


def _roots(paths_or_dirs: Union[PathLike, Iterable[PathLike]]) -> list:
    if isinstance(paths_or_dirs, (str, bytes, os.PathLike)):
        return [_path_bytes(paths_or_dirs)]
    return [_path_bytes(p) for p in paths_or_dirs]


def scan(
    paths_or_dirs: Union[PathLike, Iterable[PathLike]],
    jobs: Optional[int] = None,
    ext: Union[None, str, Iterable[str]] = None,
    *,
    hidden: bool = False,
    on_error: Optional[Callable[[OSError], Any]] = None,
    device: Union[None, PathLike, "Device"] = None,
) -> "_fileinfo.Scan":
    """Records for files, and for every file below folders, in walk order.

    The order is the one a sequential scan gives: the paths as given, and
    inside a folder its entries sorted by name (bytewise), subfolders walked
    where they stand. Several threads load at once (`jobs`, default one per
    core) without holding the GIL: other Python threads keep running. The
    result is an iterator that holds a bounded number of records ahead, so
    memory stays flat over any number of files; `close()` (or leaving a
    `with` block) stops the scan early.

    In folders, only files of a media format's extension (.mp3, .aiff,
    .m4b, ...) or of none are loaded, by their bytes, and
    with `ext` (say ["mp3", "m4a"]) only those; names starting with a dot
    are passed over unless `hidden`. Symbolic links to files are followed,
    to folders not. Files named directly are always loaded.

    A path that cannot be reached (a named path that does not exist, a
    folder that cannot be listed, a file that cannot be opened) raises its
    OSError subclass, which ends the iteration; with `on_error`, the error
    is passed to it instead and the scan goes on. So does a FIFO, device or
    socket, named or found in a walk (OSError EINVAL, "not a regular file
    (FIFO)"): it is never opened, and never dropped in silence. A path
    holding a NUL byte is such an error too (OSError with EINVAL). The paths
    a walk passes over by choice (extensions no reader takes or not in
    `ext`, hidden names, links to folders) are counted by reason in the
    iterator's `skipped` dict, as the tool's summary counts them. A thread
    that cannot be started raises OSError.

    With `device`, every record carries `verdict` and `library_verdict`,
    judged on the loading threads.
    """
    if jobs is None:
        jobs = 0
    elif jobs < 1 or jobs > 1024:
        raise ValueError("jobs must be from 1 to 1024, as the tool's --jobs (or None: one per core)")
    if on_error is not None and not callable(on_error):
        raise TypeError("on_error must be callable")
    return _fileinfo.Scan(_roots(paths_or_dirs), jobs, _extensions(ext), hidden, on_error, _native_device(device))


# ---- Devices ----


class Verdict(NamedTuple):
    """Whether a device plays a file, and if not, why."""

    playable: bool
    refused_by: Optional[str]  # the requirement key that refused the file, if one did
    explanation: str  # why not, in words; empty when playable


class ReadingVerdict(NamedTuple):
    """Whether a device plays what the file really holds, and if not, every
    requirement that refuses it."""

    playable: bool
    refused_by: Tuple[str, ...]  # every requirement key that refuses the file, in the list's order
    explanation: str  # every refusal in words; empty when playable


class RecordDifference(NamedTuple):
    """A record field a person would read otherwise than the reading:
    RecordDifference("durationMs", 8000, 15023). `record` and `reading` are
    int, str, or None for a text or tag that is not there."""

    field: str  # the record's field name
    record: Union[int, str, None]
    reading: Union[int, str, None]


class Device:
    """A device, from its capability list (a property-list text).

    `caps_text_or_path` is the list's text (str or bytes holding a "<"),
    the path of a file holding it, or the name of an installed list
    ("player-caps"), found as `fileinfo --device` finds it. judge(record) gives the library's own
    verdict, with a fresh filter for every record.
    """

    def __init__(self, caps_text_or_path: Union[PathLike, "Device"]):
        if isinstance(caps_text_or_path, Device):
            text = caps_text_or_path.text
        elif isinstance(caps_text_or_path, bytes) and b"<" in caps_text_or_path:
            text = caps_text_or_path
        elif isinstance(caps_text_or_path, str) and "<" in caps_text_or_path:
            text = caps_text_or_path.encode("utf-8", "surrogateescape")
        else:
            # A path, or the name of an installed list ("player-caps"), as
            # fileinfo --device takes it.
            path = os.fsdecode(_fileinfo.find_device_list(os.fsencode(caps_text_or_path)))
            with open(path, "rb") as f:
                text = f.read()
            self.path = path
        self._device = _fileinfo.Device(text)

    path: Optional[str] = None

    @property
    def text(self) -> bytes:
        """The capability list's text, as given."""
        return self._device.text

    def judge(self, record: Record) -> Verdict:
        """The library's verdict on a loaded record. A file that did not load,
        or that no reader identified, is never playable."""
        if not isinstance(record, Record):
            raise TypeError(f"judge() takes a fileinfo.Record, not {type(record).__name__}")
        return Verdict(*self._device.judge(record))

    def judge_reading(self, record: Record) -> ReadingVerdict:
        """The verdict on what the file holds (record.media): every key the
        filter checks, with its plain meaning."""
        if not isinstance(record, Record):
            raise TypeError(f"judge_reading() takes a fileinfo.Record, not {type(record).__name__}")
        return ReadingVerdict(*self._device.judge_reading(record))

    def limit(self, file_type: str, key: str) -> int:
        """The number a requirement gives under a file type ("MaximumWidth"
        under "H.264"), or -1 when the list does not give it."""
        return self._device.limit(file_type, key)

    def __reduce__(self):
        return (Device, (self.text,))

    def __repr__(self) -> str:
        where = f"path={self.path!r}" if self.path else f"{len(self.text)} bytes"
        return f"Device({where})"


# ---- Tag edits ----


class FieldChange(NamedTuple):
    """A record field whose value changes (texts; numbers in decimal)."""

    field: str
    before: str
    after: str


class FrameChange(NamedTuple):
    """An ID3v2 frame that the edit drops, changes or adds."""

    kind: str  # "dropped", "changed" or "added"
    id: str
    before: str
    after: str


class ReadBackMismatch(NamedTuple):
    """A value given that does not read back as given (cut, or not stored)."""

    field: str
    given: str
    read_back: str
    why: str


@dataclass(frozen=True)
class TagEditResult:
    """What set_tags did, or with dry_run would do."""

    status: str  # "changed", or "would_change" for a dry run
    path: str  # the file edited (symbolic links resolved)
    backup_path: Optional[str]  # the copy of the original kept, if one was made
    fields: Tuple[FieldChange, ...]
    frames: Tuple[FrameChange, ...]
    mismatches: Tuple[ReadBackMismatch, ...]
    goes_beyond: bool  # the edit changes more than the fields asked for
    text: str  # the difference in words, one change a line

    @property
    def changed(self) -> bool:
        return self.status == "changed"

    @property
    def empty(self) -> bool:
        return not (self.fields or self.frames or self.mismatches)


class EditRefused(Exception):
    """set_tags refused the edit before touching the file: a check failed,
    or the difference goes beyond the request (pass force=True to write
    anyway). `result` holds the difference when one was found."""

    def __init__(self, reason: str, result: Optional[TagEditResult]):
        super().__init__(reason)
        self.reason = reason
        self.result = result


class EditFailed(RuntimeError):
    """The edit failed for a reason that is no system error. `touched` says
    whether the path already holds new bytes."""

    def __init__(self, reason: str, touched: bool):
        super().__init__(reason)
        self.reason = reason
        self.touched = touched


def _python_words(message: str) -> str:
    """The edit's messages name the tool's options; say it as this API does."""
    for option, argument in (("--set ", ""), ("--set: ", ""), ("--force", "force=True"), ("--no-backup", "backup=False")):
        message = message.replace(option, argument)
    return message


_TAG_FIELDS = ("title", "artist", "album", "genre", "year", "comment", "composer", "lyrics", "track")


def set_tags(
    path: PathLike,
    dry_run: bool = False,
    force: bool = False,
    backup: bool = True,
    *,
    writer: str = "fields",
    id3v23: bool = False,
    **fields: Union[str, int],
) -> TagEditResult:
    """Writes tags through the safe edit, and returns the difference it made
    (with dry_run: would make, touching nothing).

    Fields: title, artist, album, genre, year, comment, composer, lyrics
    (str) and track. The writer runs on a copy, which is checked and then
    renamed over the file; the original is kept as NAME.orig.EXT unless
    backup=False. A system call that fails raises its OSError subclass; the
    file is then as it was unless the error says so.

    writer="fields" (the default) changes only the fields given, in MP3,
    AAC, MP4, and WAV and AIFF files that hold tags: texts are Unicode,
    track is an int or "N/TOTAL", an empty text or track 0 removes the tag.
    The difference is the tags and stream fields that change as the file's
    reading gives them back; an edit that does not read back as given, or
    that moves a stream field, is refused with EditRefused. id3v23=True
    writes an ID3v2.4 tag as ID3v2.3.

    writer="library" is the library's own writer, for MP3 and AAC files:
    8-bit (Latin-1) texts, track an int 0-65535. When its edit would change
    more than the fields asked for (a frame the writer drops, a value cut
    short), it is refused with EditRefused unless force=True.
    """
    if not fields:
        raise ValueError("set_tags needs at least one field, for example title='...'")
    assignments = []
    for name, value in fields.items():
        if name not in _TAG_FIELDS:
            raise TypeError(f"set_tags() got an unknown field {name!r}; fields: {', '.join(_TAG_FIELDS)}")
        if name == "track":
            text_track = writer != "library" and isinstance(value, str)
            if isinstance(value, bool) or not (isinstance(value, int) or text_track):
                raise TypeError("track must be an int" + ("" if writer == "library" else ' or "N/TOTAL"'))
        elif not isinstance(value, str):
            raise TypeError(f"{name} must be a str")
        assignments.append(f"{name}={value}".encode("utf-8", "surrogateescape"))
    try:
        out = _fileinfo.set_tags(_path_bytes(path), assignments, dry_run, force, backup, writer, id3v23)
    except ValueError as e:
        raise ValueError(_python_words(str(e))) from None
    d = out["difference"]
    result = TagEditResult(
        status=out["status"],
        path=out["path"],
        backup_path=out["backup_path"],
        fields=tuple(FieldChange(*f) for f in d["fields"]),
        frames=tuple(FrameChange(*f) for f in d["frames"]),
        mismatches=tuple(ReadBackMismatch(*m) for m in d["mismatches"]),
        goes_beyond=out["goes_beyond"],
        text=d["text"],
    )
    status = out["status"]
    if status in ("changed", "would_change"):
        return result
    if status == "refused":
        raise EditRefused(_python_words(out["reason"]), result)
    _raise_edit_failure(out, path)


def _raise_edit_failure(out: dict, path: PathLike) -> None:
    """A failed edit's OSError (its errno, the system's reason, the edit's
    account in a note), or EditFailed when no system call failed."""
    if out["error"]:
        error = OSError(out["error"], os.strerror(out["error"]), os.fsdecode(path))
        if hasattr(error, "add_note"):
            error.add_note(out["reason"])
        error.touched = out["touched"]  # type: ignore[attr-defined]
        raise error
    raise EditFailed(_python_words(out["reason"]), out["touched"])


def restore_backup(backup_path: PathLike, original_path: Optional[PathLike] = None) -> str:
    """Puts a backup that set_tags kept back over its original, atomically
    (a copy renamed over it); the backup stays. Without original_path, the
    original is found from the backup's name (song.orig-2.mp3: song.mp3).
    Returns the path restored; raises EditRefused when the backup's name
    says nothing of its original, or the OSError of a failed call."""
    original = b"" if original_path is None else _path_bytes(original_path)
    out = _fileinfo.restore_backup(_path_bytes(backup_path), original)
    if out["status"] == "changed":
        return out["path"]
    if out["status"] == "refused":
        raise EditRefused(_python_words(out["reason"]), None)
    _raise_edit_failure(out, backup_path)
    raise AssertionError("unreachable")


# ---- Sync ----


class SyncRefused(RuntimeError):
    """The device folder cannot be synced now: another sync holds it, or its
    manifest is of a newer schema than this package knows."""


def sync(
    sources: Union[PathLike, Iterable[PathLike]],
    to: PathLike,
    device: Union[PathLike, Device],
    dry_run: bool = False,
    *,
    jobs: int = 0,
    ext: Union[None, str, Iterable[str]] = None,
    hidden: bool = False,
    keep_removed: bool = False,
    fat_names: bool = False,
    convert: bool = True,
    ffmpeg: Optional[PathLike] = None,
) -> dict:
    """Puts on a device what it plays and keeps it in step, as `fileinfo
    sync` does (the same code): copy, convert, keep, update, remove or skip
    for every file the walk of `sources` finds, below the folder `to`.

    A file the device refuses is converted with the ffmpeg program (found on
    PATH, or `ffmpeg`) into what the device's list allows, and lands only
    when both verdicts play the converted file; convert=False skips it
    instead. Without ffmpeg such files are skipped, "needs ffmpeg".

    Returns a dict: "status" ("ok", or "no room" when the plan does not fit
    and nothing was written), "plan" (one dict per file: action, source,
    device_path, reason, bytes, refused_by, library_playable, target, for
    a conversion "conversion" (type, container, extension, words, and
    "audio" and "video" dicts of codec, rates, channels, picture size,
    profile, level, and "silent" for a silent track added to a movie
    without sound), for an update whose file becomes another type
    "replaces" and "replaced_bytes" (the old device file, removed once the
    new one lands), and after a run, "result": "done", "failed" or "not
    run", with "error"),
    "totals" (counts and bytes by action, skips by reason, needed, freed
    and free bytes, fits, short_by, loaded) and "result" (None for a dry
    run; else copied, converted, updated, kept, removed, skipped, failed,
    bytes_written, seconds, device_failed, device_error) and "converter"
    (the ffmpeg program used, or None).

    Raises ValueError for a device folder that is missing, lies inside a
    source or holds one; SyncRefused when another sync holds it or its
    manifest is newer; OSError when its manifest cannot be used. Ctrl-C
    stops after the files in flight and raises KeyboardInterrupt.
    """
    if not isinstance(device, Device):
        device = Device(device)
    out = _fileinfo.sync(
        _roots(sources),
        _path_bytes(to),
        device._device,
        dry_run,
        jobs,
        _extensions(ext),
        hidden,
        keep_removed,
        fat_names,
        convert,
        b"" if ffmpeg is None else _path_bytes(ffmpeg),
    )
    status = out["status"]
    if status == "usage":
        raise ValueError(out["error"])
    if status in ("locked", "newer"):
        raise SyncRefused(out["error"])
    if status == "error":
        raise OSError(out["error"])
    return out


# ---- pandas ----


def to_pandas(records: Iterable[Record]):
    """A pandas DataFrame of the records, one row per file, typed columns.

    path, status, status_text, is_audio, is_video, has_tags and identified;
    then the reading under its own names (type, audio_codec, duration_ms,
    ..., and the tags flat: title, artist, ...; texts as "string", numbers
    as nullable unsigned integers, frame_rate as Float64); record_differs
    (the differing record fields, comma-separated; missing when nothing
    could be compared); then the library's record, each field prefixed
    with "record." ("record.durationMs"; texts "string", numbers UInt16 or
    UInt32, missing where the library kept no record). Records judged
    against a device add playable, refused_by and explanation (on the
    reading), library_playable and library_refused_by. Raises ImportError
    without pandas."""
    from ._pandas import to_pandas as convert

    return convert(records)
