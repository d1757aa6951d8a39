"""fileinfo.to_pandas: one row per record, typed columns."""

import subprocess
import sys

import pytest

import fileinfo
from conftest import CAPS, EXAMPLES, FIXTURES

pd = pytest.importorskip("pandas", reason="pandas is not installed (Debian: python3-pandas)")


def test_columns_and_dtypes(tmp_path):
    notes = tmp_path / "notes.txt"
    notes.write_text("x")
    records = list(fileinfo.scan([FIXTURES, EXAMPLES, notes]))
    df = fileinfo.to_pandas(records)
    record_columns = ["record." + n for n in fileinfo.NUMBER_FIELDS + fileinfo.TEXT_FIELDS]
    assert list(df.columns) == (
        ["path", "status", "status_text", "is_audio", "is_video", "has_tags", "identified"]
        + list(fileinfo.READING_FIELDS + fileinfo.TAG_FIELDS)
        + ["record_differs"]
        + record_columns
    )
    assert len(df) == len(records)
    dtypes = df.dtypes.astype(str).to_dict()
    assert dtypes["path"] == "string" and dtypes["status_text"] == "string"
    assert dtypes["status"] == "int16"
    for flag in ("is_audio", "is_video", "has_tags", "identified"):
        assert dtypes[flag] == "bool"
    for n in fileinfo.NUMBER_FIELDS:
        assert dtypes["record." + n] in ("UInt16", "UInt32"), n
    assert dtypes["record.width"] == "UInt16" and dtypes["record.fileSize"] == "UInt32"
    for n in fileinfo.TEXT_FIELDS:
        assert dtypes["record." + n] == "string", n
    assert dtypes["type"] == "string" and dtypes["title"] == "string" and dtypes["record_differs"] == "string"
    assert dtypes["duration_ms"] == "UInt64" and dtypes["size"] == "UInt64" and dtypes["sample_rate"] == "UInt32"
    assert dtypes["frame_rate"] == "Float64" and dtypes["vbr"] == "boolean"
    # The values are the records' and the readings'; a file without a record
    # has missing record numbers.
    for row, record in zip(df.to_dict("records"), records):
        d = record.as_dict()
        for n in fileinfo.NUMBER_FIELDS + fileinfo.TEXT_FIELDS:
            value = row["record." + n]
            assert (value is pd.NA) if d[n] is None else value == d[n], (record.path, n)
        media = record.media.as_dict()
        tags = media.pop("tags")
        for n, want in list(media.items()) + list(tags.items()):
            assert (row[n] is pd.NA) if want is None else row[n] == want, (record.path, n)
    last = df.iloc[-1]
    assert last["status"] == 10 and last["record.fileSize"] is pd.NA and last["record.title"] is pd.NA
    assert last["size"] == 1 and last["type"] is pd.NA


def test_reading_columns_hold_the_reading_of_a_wav():
    df = fileinfo.to_pandas([fileinfo.load(EXAMPLES / "tone-mono.wav")])
    row = df.iloc[0]
    assert (row["type"], row["audio_codec"], row["duration_ms"], row["channels"]) == ("WAV", "PCM", 1000, 1)
    assert (row["record.fileType"], row["record.durationMs"], row["record.channelMode"]) == ("WAV", 0, "Mono")
    assert row["record_differs"] == "title,durationMs,bitsPerSample"
    assert row["title"] is pd.NA and row["record.title"] == "tone-mono"


def test_records_judged_against_a_device_add_both_verdicts():
    df = fileinfo.to_pandas(fileinfo.scan(EXAMPLES, device=CAPS))
    assert list(df.columns[-5:]) == ["playable", "refused_by", "explanation", "library_playable", "library_refused_by"]
    assert df.dtypes["playable"] == "boolean" and df.dtypes["refused_by"] == "string"
    row = df[df["path"] == str(EXAMPLES / "tone-mono.wav")].iloc[0]
    assert row["library_playable"] and row["library_refused_by"] is pd.NA


def test_no_records_give_an_empty_typed_frame():
    df = fileinfo.to_pandas([])
    assert len(df) == 0 and list(df.columns) == list(fileinfo._pandas.COLUMNS)
    assert df.dtypes["record.durationMs"] == "UInt32" and df.dtypes["title"] == "string"
    assert df.dtypes.astype(str).to_dict() == fileinfo.to_pandas(fileinfo.scan(EXAMPLES)).dtypes.astype(str).to_dict()


def test_without_pandas_a_clear_import_error():
    code = (
        "import sys\nsys.modules['pandas'] = None\nimport fileinfo\n"
        "try:\n    fileinfo.to_pandas([])\nexcept ImportError as e:\n    print(e)\n"
    )
    done = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, timeout=60)
    assert "needs pandas" in done.stdout and "python3-pandas" in done.stdout, done.stderr
