"""Records to a pandas DataFrame with typed columns."""

from __future__ import annotations

from typing import Dict, Iterable, List

from ._fileinfo import NUMBER_FIELDS, TEXT_FIELDS, Record

try:
    import pandas as pd
except ImportError as e:  # pragma: no cover - depends on the installation
    raise ImportError(
        "fileinfo.to_pandas needs pandas (Debian: apt-get install python3-pandas); "
        "without it, use Record.as_dict()"
    ) from e

# The record's numbers are C unsigned types: 16 bits for these, 32 for the rest.
_SHORT_FIELDS = {"trackNumber", "level", "profile", "profileLevelId", "bitsPerSample", "height", "width"}

# Every column and its dtype, in the order of Record.as_dict().
COLUMNS: Dict[str, str] = {
    "path": "string",
    "status": "int16",
    "status_text": "string",
    "is_audio": "bool",
    "is_video": "bool",
    "has_tags": "bool",
    "identified": "bool",
}
COLUMNS.update({n: ("UInt16" if n in _SHORT_FIELDS else "UInt32") for n in NUMBER_FIELDS})
COLUMNS.update({n: "string" for n in TEXT_FIELDS})


def empty_frame(extra: Dict[str, str] = None) -> "pd.DataFrame":
    """A frame with no rows and every column typed: the meta of a dask frame."""
    columns = dict(COLUMNS, **(extra or {}))
    return pd.DataFrame({n: pd.Series([], dtype=t) for n, t in columns.items()})


def to_pandas(records: Iterable[Record]) -> "pd.DataFrame":
    """One row per record; see fileinfo.to_pandas."""
    rows = [r.as_dict() for r in records]
    if not rows:
        return empty_frame()
    data: Dict[str, List] = {n: [row[n] for row in rows] for n in COLUMNS}
    return pd.DataFrame({n: pd.array(values, dtype=COLUMNS[n]) for n, values in data.items()})
