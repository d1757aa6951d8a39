"""The type hints: texts are str and numbers int, pandas only for type checkers."""

import ast
from pathlib import Path

import fileinfo

STUBS = Path(fileinfo.__file__).with_name("__init__.pyi")


def record_returns():
    tree = ast.parse(STUBS.read_text())
    record = next(n for n in tree.body if isinstance(n, ast.ClassDef) and n.name == "Record")
    return {f.name: ast.unparse(f.returns) for f in record.body if isinstance(f, ast.FunctionDef)}


def test_record_fields_are_typed_int_and_str():
    returns = record_returns()
    assert {n: returns[n] for n in fileinfo.NUMBER_FIELDS} == {n: "int" for n in fileinfo.NUMBER_FIELDS}
    assert {n: returns[n] for n in fileinfo.TEXT_FIELDS} == {n: "str" for n in fileinfo.TEXT_FIELDS}
    assert returns["path"] == "str" and returns["status"] == "int"


def test_pandas_is_imported_only_for_type_checkers():
    tree = ast.parse(STUBS.read_text())
    top_level = [ast.unparse(n) for n in tree.body if isinstance(n, (ast.Import, ast.ImportFrom))]
    assert not any("pandas" in line for line in top_level)
    guarded = [n for n in tree.body if isinstance(n, ast.If) and ast.unparse(n.test) == "TYPE_CHECKING"]
    assert [ast.unparse(n) for g in guarded for n in g.body] == ["import pandas"]


def test_ext_takes_a_comma_separated_list_as_the_tool_does():
    from conftest import EXAMPLES

    assert [Path(r.path).name for r in fileinfo.scan(EXAMPLES, ext="mp3,m4a")] == ["chord-vbr.mp3", "tone-tagged.m4a"]
