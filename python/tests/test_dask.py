"""fileinfo.dask.scan on a LocalCluster of two worker processes."""

import os
import subprocess
import sys

import pytest

import fileinfo
from conftest import CAPS, EXAMPLES, FIXTURES

pytest.importorskip("dask.dataframe", reason="dask is not installed (Debian: python3-dask)")
distributed = pytest.importorskip("distributed", reason="dask.distributed is not installed (Debian: python3-distributed)")
pd = pytest.importorskip("pandas", reason="pandas is not installed (Debian: python3-pandas)")

import fileinfo.dask  # noqa: E402


# First, before the module's cluster exists: computed by dask's own threads.
def test_lazy_without_a_client_and_empty_input(tmp_path):
    df = fileinfo.dask.scan(EXAMPLES, partition_size=2)
    pd.testing.assert_frame_equal(df.compute(scheduler="threads").reset_index(drop=True), single_process(EXAMPLES))
    empty = fileinfo.dask.scan(tmp_path).compute()
    assert len(empty) == 0 and list(empty.columns) == list(fileinfo._pandas.COLUMNS)


def test_without_pandas_a_bag_of_records():
    code = (
        "import sys\nsys.modules['pandas'] = None\nimport fileinfo, fileinfo.dask\n"
        "bag = fileinfo.dask.scan(sys.argv[1], partition_size=2)\n"
        "records = bag.compute(scheduler='threads')\n"
        "assert type(bag).__name__ == 'Bag' and bag.npartitions == 3, bag\n"
        "assert records == list(fileinfo.scan(sys.argv[1])), records\n"
        "print('ok', len(records))\n"
    )
    done = subprocess.run([sys.executable, "-c", code, str(EXAMPLES)], capture_output=True, text=True, timeout=120)
    assert done.stdout == "ok 6\n", done.stderr


@pytest.fixture(scope="module")
def client():
    cluster = distributed.LocalCluster(
        n_workers=2, processes=True, threads_per_worker=1, dashboard_address=None, host="127.0.0.1"
    )
    with cluster, distributed.Client(cluster) as c:
        yield c


def single_process(paths, device=None):
    return fileinfo.to_pandas(fileinfo.scan(paths, device=device))


def test_rows_equal_the_single_process_scan(client, media_tree):
    paths = [media_tree, EXAMPLES / "chord-vbr.mp3"]
    df = fileinfo.dask.scan(paths, client=client, partition_size=5)
    assert df.npartitions > 2
    got = df.compute().reset_index(drop=True)
    pd.testing.assert_frame_equal(got, single_process(paths))
    # The partitions really ran in both worker processes.
    workers = client.run(lambda: __import__("os").getpid())
    assert len(set(workers.values())) == 2


def test_a_device_adds_the_verdict(client):
    device = fileinfo.Device(CAPS)
    df = fileinfo.dask.scan([FIXTURES, EXAMPLES], client=client, partition_size=7, device=device)
    got = df.compute().reset_index(drop=True)
    pd.testing.assert_frame_equal(got, single_process([FIXTURES, EXAMPLES], device))


def test_the_listing_is_the_scans_order(media_tree):
    (media_tree / ".hidden.mp3").write_bytes(b"x")
    (media_tree / "notes.txt").write_text("x")
    (media_tree / "linked").symlink_to(media_tree / "examples")
    assert fileinfo.dask.list_files(media_tree) == [r.path for r in fileinfo.scan(media_tree)]
    assert fileinfo.dask.list_files(media_tree, ext="mp3") == [r.path for r in fileinfo.scan(media_tree, ext="mp3")]


def test_a_cluster_given_by_its_schedulers_address(client):
    address = client.scheduler.address
    assert address.startswith("tcp://")
    try:
        df = fileinfo.dask.scan(EXAMPLES, client=address, partition_size=4)
        again = fileinfo.dask.scan(EXAMPLES, client=address, partition_size=4)
        assert list(fileinfo.dask._connected) == [address]
        pd.testing.assert_frame_equal(df.compute().reset_index(drop=True), single_process(EXAMPLES))
        assert len(again.compute()) == len(df)
    finally:
        fileinfo.dask.disconnect()
    assert not fileinfo.dask._connected


def test_listing_errors_name_paths_as_text_and_report_what_the_scan_reports(tmp_path):
    tree = tmp_path / "tree"
    (tree / "locked").mkdir(parents=True)
    os.mkfifo(tree / "pipe.mp3")
    (tree / "link").symlink_to(tmp_path)
    (tree / "gone.mp3").symlink_to(tmp_path / "nowhere.mp3")
    os.chmod(tree / "locked", 0)
    try:
        listed, scanned = [], []
        fileinfo.dask.list_files(tree, on_error=listed.append)
        list(fileinfo.scan(tree, on_error=scanned.append))
    finally:
        os.chmod(tree / "locked", 0o755)
    described = [(type(e), e.filename, e.strerror) for e in listed]
    assert all(isinstance(e.filename, str) for e in listed)
    if os.geteuid() != 0:  # root lists any folder
        assert (PermissionError, str(tree / "locked"), "Permission denied") in described
    assert (FileNotFoundError, str(tree / "gone.mp3"), "No such file or directory") in described
    assert (OSError, str(tree / "pipe.mp3"), "not a regular file (FIFO)") in described
    assert sorted(described, key=str) == sorted([(type(e), e.filename, e.strerror) for e in scanned], key=str)
    with pytest.raises(FileNotFoundError) as caught:
        fileinfo.dask.list_files(tmp_path / "missing")
    assert str(caught.value) == f"[Errno 2] No such file or directory: '{tmp_path / 'missing'}'"
