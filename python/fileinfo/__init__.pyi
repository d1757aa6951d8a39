import os
from typing import Any, Callable, Dict, Iterable, Iterator, NamedTuple, Optional, Tuple, Union

import pandas

PathLike = Union[str, bytes, os.PathLike[str], os.PathLike[bytes]]

__version__: str
FIELDS: Tuple[str, ...]
NUMBER_FIELDS: Tuple[str, ...]
TEXT_FIELDS: Tuple[str, ...]

class Record:
    """What the library read from one file. Immutable."""

    _fields: Tuple[str, ...]
    @property
    def path(self) -> str: ...
    @property
    def status(self) -> int: ...
    @property
    def status_text(self) -> str: ...
    @property
    def is_audio(self) -> bool: ...
    @property
    def is_video(self) -> bool: ...
    @property
    def has_tags(self) -> bool: ...
    @property
    def has_record(self) -> bool: ...
    @property
    def identified(self) -> bool: ...
    # The library's record: None when it kept none.
    @property
    def isVbr(self) -> Optional[int]: ...
    @property
    def trackNumber(self) -> Optional[int]: ...
    @property
    def level(self) -> Optional[int]: ...
    @property
    def profile(self) -> Optional[int]: ...
    @property
    def profileLevelId(self) -> Optional[int]: ...
    @property
    def bitsPerSample(self) -> Optional[int]: ...
    @property
    def height(self) -> Optional[int]: ...
    @property
    def width(self) -> Optional[int]: ...
    @property
    def fileSize(self) -> Optional[int]: ...
    @property
    def frameRate(self) -> Optional[int]: ...
    @property
    def sampleRate(self) -> Optional[int]: ...
    @property
    def bitRate(self) -> Optional[int]: ...
    @property
    def peakBitRate(self) -> Optional[int]: ...
    @property
    def durationMs(self) -> Optional[int]: ...
    @property
    def fileType(self) -> Optional[str]: ...
    @property
    def audioCodec(self) -> Optional[str]: ...
    @property
    def audioFormat(self) -> Optional[str]: ...
    @property
    def videoFormat(self) -> Optional[str]: ...
    @property
    def spareText(self) -> Optional[str]: ...
    @property
    def channelMode(self) -> Optional[str]: ...
    @property
    def title(self) -> Optional[str]: ...
    @property
    def artist(self) -> Optional[str]: ...
    @property
    def album(self) -> Optional[str]: ...
    @property
    def genre(self) -> Optional[str]: ...
    @property
    def lyrics(self) -> Optional[str]: ...
    @property
    def year(self) -> Optional[str]: ...
    @property
    def comment(self) -> Optional[str]: ...
    @property
    def composer(self) -> Optional[str]: ...
    def as_dict(self) -> dict[str, Any]: ...
    def __eq__(self, other: object) -> bool: ...
    def __hash__(self) -> int: ...

class _Scan(Iterator[Record]):
    def __iter__(self) -> _Scan: ...
    def __next__(self) -> Record: ...
    def close(self) -> None: ...
    def __enter__(self) -> _Scan: ...
    def __exit__(self, *args: object) -> bool: ...
    @property
    def found(self) -> int: ...

def status_text(status: int) -> str: ...
def load(path: PathLike) -> Record: ...
def scan(
    paths_or_dirs: Union[PathLike, Iterable[PathLike]],
    jobs: Optional[int] = None,
    ext: Union[None, str, Iterable[str]] = None,
    *,
    hidden: bool = False,
    on_error: Optional[Callable[[OSError], Any]] = None,
) -> _Scan: ...

class Verdict(NamedTuple):
    playable: bool
    refused_by: Optional[str]
    explanation: str

class Device:
    path: Optional[str]
    def __init__(self, caps_text_or_path: Union[PathLike, Device]) -> None: ...
    @property
    def text(self) -> bytes: ...
    def judge(self, record: Record) -> Verdict: ...
    def limit(self, file_type: str, key: str) -> int: ...

class FieldChange(NamedTuple):
    field: str
    before: str
    after: str

class FrameChange(NamedTuple):
    kind: str
    id: str
    before: str
    after: str

class ReadBackMismatch(NamedTuple):
    field: str
    given: str
    read_back: str
    why: str

class TagEditResult:
    status: str
    path: str
    backup_path: Optional[str]
    fields: Tuple[FieldChange, ...]
    frames: Tuple[FrameChange, ...]
    mismatches: Tuple[ReadBackMismatch, ...]
    goes_beyond: bool
    text: str
    @property
    def changed(self) -> bool: ...
    @property
    def empty(self) -> bool: ...

class EditRefused(Exception):
    reason: str
    result: Optional[TagEditResult]

class EditFailed(RuntimeError):
    reason: str
    touched: bool

def set_tags(
    path: PathLike,
    dry_run: bool = False,
    force: bool = False,
    backup: bool = True,
    *,
    title: str = ...,
    artist: str = ...,
    album: str = ...,
    genre: str = ...,
    year: str = ...,
    comment: str = ...,
    composer: str = ...,
    lyrics: str = ...,
    track: int = ...,
) -> TagEditResult: ...
def restore_backup(backup_path: PathLike, original_path: Optional[PathLike] = None) -> str: ...
def to_pandas(records: Iterable[Record]) -> pandas.DataFrame: ...

class SyncRefused(RuntimeError): ...

def sync(
    sources: Union[PathLike, Iterable[PathLike]],
    to: PathLike,
    device: Union[PathLike, Device],
    dry_run: bool = ...,
    *,
    jobs: int = ...,
    ext: Union[None, str, Iterable[str]] = ...,
    hidden: bool = ...,
    keep_removed: bool = ...,
    fat_names: bool = ...,
) -> Dict[str, Any]: ...
