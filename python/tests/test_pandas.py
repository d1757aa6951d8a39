"""fileinfo.to_pandas: one row per record, typed columns."""

import subprocess
import sys

import pytest

import fileinfo
from conftest import EXAMPLES, FIXTURES

pd = pytest.importorskip("pandas", reason="pandas is not installed (Debian: python3-pandas)")


def test_columns_and_dtypes(tmp_path):
    notes = tmp_path / "notes.txt"
    notes.write_text("x")
    records = list(fileinfo.scan([FIXTURES, EXAMPLES, notes]))
    df = fileinfo.to_pandas(records)
    assert list(df.columns) == list(fileinfo.FIELDS)
    assert len(df) == len(records)
    dtypes = df.dtypes.astype(str).to_dict()
    assert dtypes["path"] == "string" and dtypes["status_text"] == "string"
    assert dtypes["status"] == "int16"
    for flag in ("is_audio", "is_video", "has_tags", "identified"):
        assert dtypes[flag] == "bool"
    for n in fileinfo.NUMBER_FIELDS:
        assert dtypes[n] in ("UInt16", "UInt32"), n
    assert dtypes["width"] == "UInt16" and dtypes["fileSize"] == "UInt32"
    for n in fileinfo.TEXT_FIELDS:
        assert dtypes[n] == "string", n
    # The values are the records'; a file without a record has missing numbers.
    for row, record in zip(df.itertuples(index=False), records):
        d = record.as_dict()
        for name, value in zip(df.columns, row):
            if d[name] is None:
                assert value is pd.NA
            else:
                assert value == d[name], (record.path, name)
    last = df.iloc[-1]
    assert last["status"] == 10 and last["fileSize"] is pd.NA and last["title"] is pd.NA


def test_no_records_give_an_empty_typed_frame():
    df = fileinfo.to_pandas([])
    assert len(df) == 0 and list(df.columns) == list(fileinfo.FIELDS)
    assert df.dtypes["durationMs"] == "UInt32" and df.dtypes["title"] == "string"
    assert df.dtypes.astype(str).to_dict() == fileinfo.to_pandas(fileinfo.scan(EXAMPLES)).dtypes.astype(str).to_dict()


def test_without_pandas_a_clear_import_error():
    code = (
        "import sys\nsys.modules['pandas'] = None\nimport fileinfo\n"
        "try:\n    fileinfo.to_pandas([])\nexcept ImportError as e:\n    print(e)\n"
    )
    done = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, timeout=60)
    assert "needs pandas" in done.stdout and "python3-pandas" in done.stdout, done.stderr
