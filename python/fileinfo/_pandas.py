"""Records to a pandas DataFrame with typed columns."""

from __future__ import annotations

from typing import Dict, Iterable, List

from ._fileinfo import NUMBER_FIELDS, READING_FIELDS, TAG_FIELDS, TEXT_FIELDS, Record

try:
    import pandas as pd
except ImportError as e:  # pragma: no cover - depends on the installation
    raise ImportError(
        "fileinfo.to_pandas needs pandas (Debian: apt-get install python3-pandas); "
        "without it, use Record.as_dict()"
    ) from e

# The record's numbers are C unsigned types: 16 bits for these, 32 for the rest.
_SHORT_FIELDS = {"trackNumber", "level", "profile", "profileLevelId", "bitsPerSample", "height", "width"}

# The reading's columns that are not texts; every other one is "string".
_READING_TYPES = {
    "duration_ms": "UInt64",
    "duration_estimated": "boolean",
    "sample_rate": "UInt32",
    "channels": "UInt32",
    "bits_per_sample": "UInt32",
    "bit_rate": "UInt64",
    "audio_bit_rate": "UInt64",
    "vbr": "boolean",
    "width": "UInt32",
    "height": "UInt32",
    "frame_rate": "Float64",
    "video_bit_rate": "UInt64",
    "video_peak_bit_rate": "UInt64",
    "profile_id": "UInt32",
    "level": "UInt32",
    "size": "UInt64",
    "track": "UInt32",
    "track_total": "UInt32",
}

# The prefix of the library's record columns: "record.durationMs".
RECORD_PREFIX = "record."

# Every column and its dtype: the result's facts, the reading's fields by
# their names (tags flat: "title"), where the record differs (the record's
# field names, comma-separated; missing when nothing could be compared),
# then the library's record, prefixed.
COLUMNS: Dict[str, str] = {
    "path": "string",
    "status": "int16",
    "status_text": "string",
    "is_audio": "bool",
    "is_video": "bool",
    "has_tags": "bool",
    "identified": "bool",
}
COLUMNS.update({n: _READING_TYPES.get(n, "string") for n in READING_FIELDS + TAG_FIELDS})
COLUMNS["record_differs"] = "string"
COLUMNS.update({RECORD_PREFIX + n: ("UInt16" if n in _SHORT_FIELDS else "UInt32") for n in NUMBER_FIELDS})
COLUMNS.update({RECORD_PREFIX + n: "string" for n in TEXT_FIELDS})

# With a device: the verdict on the reading (refused_by: its keys,
# comma-separated) and the library's.
VERDICT_COLUMNS: Dict[str, str] = {
    "playable": "boolean",
    "refused_by": "string",
    "explanation": "string",
    "library_playable": "boolean",
    "library_refused_by": "string",
}


def empty_frame(extra: Dict[str, str] = None) -> "pd.DataFrame":
    """A frame with no rows and every column typed: the meta of a dask frame."""
    columns = dict(COLUMNS, **(extra or {}))
    return pd.DataFrame({n: pd.Series([], dtype=t) for n, t in columns.items()})


def _row(r: Record, verdicts: bool) -> Dict[str, object]:
    row = {
        "path": r.path,
        "status": r.status,
        "status_text": r.status_text,
        "is_audio": r.is_audio,
        "is_video": r.is_video,
        "has_tags": r.has_tags,
        "identified": r.identified,
    }
    media = r.media
    values = media.as_dict() if media is not None else {}
    tags = values.pop("tags", {})
    for n in READING_FIELDS:
        row[n] = values.get(n)
    for n in TAG_FIELDS:
        row[n] = tags.get(n)
    differs = r.record_differs
    row["record_differs"] = None if differs is None else ",".join(d.field for d in differs)
    record = r.as_dict()
    for n in NUMBER_FIELDS + TEXT_FIELDS:
        row[RECORD_PREFIX + n] = record[n]
    if verdicts:
        v, lib = r.verdict, r.library_verdict
        row["playable"] = None if v is None else v.playable
        row["refused_by"] = None if v is None or not v.refused_by else ",".join(v.refused_by)
        row["explanation"] = None if v is None or not v.explanation else v.explanation
        row["library_playable"] = None if lib is None else lib.playable
        row["library_refused_by"] = None if lib is None else lib.refused_by
    return row


def to_pandas(records: Iterable[Record]) -> "pd.DataFrame":
    """One row per record; see fileinfo.to_pandas."""
    records = list(records)
    verdicts = any(r.verdict is not None for r in records)
    columns = dict(COLUMNS, **(VERDICT_COLUMNS if verdicts else {}))
    if not records:
        return empty_frame()
    rows = [_row(r, verdicts) for r in records]
    return pd.DataFrame({n: pd.array([row[n] for row in rows], dtype=t) for n, t in columns.items()})
