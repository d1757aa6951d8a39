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
from ._fileinfo import FIELDS, NUMBER_FIELDS, TEXT_FIELDS, Record

__version__: str = _fileinfo.__version__

__all__ = [
    "Device",
    "EditFailed",
    "EditRefused",
    "FIELDS",
    "FieldChange",
    "FrameChange",
    "NUMBER_FIELDS",
    "ReadBackMismatch",
    "Record",
    "TEXT_FIELDS",
    "TagEditResult",
    "Verdict",
    "__version__",
    "load",
    "restore_backup",
    "scan",
    "set_tags",
    "status_text",
    "to_pandas",
]

PathLike = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]


def _path_bytes(path: PathLike) -> bytes:
    return os.fsencode(os.fspath(path))


def status_text(status: int) -> str:
    """The library's text for a status code: 1 is "success"."""
    return _fileinfo.status_text(status)


def load(path: PathLike) -> Record:
    """Loads one file and returns its Record.

    Raises the OSError subclass of the system's reason when the path cannot
    be opened: FileNotFoundError, PermissionError, IsADirectoryError,
    NotADirectoryError, ... (OSError with EINVAL for a FIFO, device or
    socket, which is never opened, and for a path holding a NUL byte).
    Any other outcome, a file of no known
    format included, comes back in the record's status.
    """
    return _fileinfo.load(_path_bytes(path))


def _extensions(ext: Union[None, str, Iterable[str]]) -> list:
    if ext is None:
        return []
    if isinstance(ext, str):
        ext = [ext]
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
) -> "_fileinfo.Scan":
    """Records for files, and for every file below folders, in walk order.

    The order is the one a sequential scan gives: the paths as given, and
    inside a folder its entries sorted by name (bytewise), subfolders walked
    where they stand. Several threads load at once (`jobs`, default one per
    core) without holding the GIL: other Python threads keep running. The
    result is an iterator that holds a bounded number of records ahead, so
    memory stays flat over any number of files; `close()` (or leaving a
    `with` block) stops the scan early.

    In folders, only files whose extension a reader takes are loaded, and
    with `ext` (say ["mp3", "m4a"]) only those; names starting with a dot
    are passed over unless `hidden`. Symbolic links to files are followed,
    to folders not. Files named directly are always loaded.

    A path that cannot be reached (a named path that does not exist, a
    folder that cannot be listed, a file that cannot be opened) raises its
    OSError subclass, which ends the iteration; with `on_error`, the error
    is passed to it instead and the scan goes on. A path holding a NUL byte
    is such an error (OSError with EINVAL). A thread that cannot be started
    raises OSError.
    """
    if jobs is None:
        jobs = 0
    elif jobs < 1 or jobs > 1024:
        raise ValueError("jobs must be from 1 to 1024, as the tool's --jobs (or None: one per core)")
    if on_error is not None and not callable(on_error):
        raise TypeError("on_error must be callable")
    return _fileinfo.Scan(_roots(paths_or_dirs), jobs, _extensions(ext), hidden, on_error)


# ---- Devices ----


class Verdict(NamedTuple):
    """Whether a device plays a file, and if not, why."""

    playable: bool
    refused_by: Optional[str]  # the requirement key that refused the file, if one did
    explanation: str  # why not, in words; empty when playable


class Device:
    """A device, from its capability list (a property-list text).

    `caps_text_or_path` is the list's text (str or bytes holding a "<"), or
    the path of a file holding it. judge(record) gives the library's own
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
            with open(caps_text_or_path, "rb") as f:
                text = f.read()
            self.path = os.fsdecode(caps_text_or_path)
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
    path: PathLike, dry_run: bool = False, force: bool = False, backup: bool = True, **fields: Union[str, int]
) -> TagEditResult:
    """Writes tags into an MP3 or AAC file through the safe edit, and returns
    the difference it made (with dry_run: would make, touching nothing).

    Fields: title, artist, album, genre, year, comment, composer, lyrics
    (str; characters beyond Latin-1 are refused) and track (int 0-65535).
    The library's writer runs on a copy, which is checked and then renamed
    over the file; the original is kept as NAME.orig.EXT unless
    backup=False. When the edit would change more than the fields asked for
    (a frame the writer drops, a value cut short), it is refused with
    EditRefused unless force=True. A system call that fails raises its
    OSError subclass; the file is then as it was unless the error says so.
    """
    if not fields:
        raise ValueError("set_tags needs at least one field, for example title='...'")
    assignments = []
    for name, value in fields.items():
        if name not in _TAG_FIELDS:
            raise TypeError(f"set_tags() got an unknown field {name!r}; fields: {', '.join(_TAG_FIELDS)}")
        if name == "track":
            if isinstance(value, bool) or not isinstance(value, int):
                raise TypeError("track must be an int")
        elif not isinstance(value, str):
            raise TypeError(f"{name} must be a str")
        assignments.append(f"{name}={value}".encode("utf-8", "surrogateescape"))
    try:
        out = _fileinfo.set_tags(_path_bytes(path), assignments, dry_run, force, backup)
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


# ---- pandas ----


def to_pandas(records: Iterable[Record]):
    """A pandas DataFrame of the records, one row per file, typed columns:
    path, status_text and the 14 texts as "string"; status as int; the
    flags as bool; the 14 numbers as nullable unsigned integers (missing
    where the library kept no record). Raises ImportError without pandas."""
    from ._pandas import to_pandas as convert

    return convert(records)
