"""Scans of large collections on a Dask cluster.

    >>> from dask.distributed import Client, LocalCluster
    >>> import fileinfo.dask
    >>> client = Client(LocalCluster(n_workers=4, processes=True))
    >>> df = fileinfo.dask.scan("/srv/music", client=client)
    >>> df.groupby("type").size().compute()

The files are listed here, in the order fileinfo.scan gives, split into
partitions of `partition_size` paths, and every partition is loaded on a
worker with fileinfo.scan. Every worker must reach the files under the same
paths as this process (one machine, or a shared file system mounted at the
same place everywhere), and must be able to import fileinfo.
"""

from __future__ import annotations

import errno
import os
import stat
from typing import Any, Iterable, List, Optional, Union

import dask
import dask.bag

import fileinfo
from fileinfo import Device, PathLike, _fileinfo

try:
    import pandas as pd
    import dask.dataframe as dd

    from fileinfo import _pandas
except ImportError:  # pragma: no cover - depends on the installation
    pd = None

__all__ = ["disconnect", "list_files", "scan"]

# Clients this module opened for scheduler addresses, one per address: the
# frames it returns hold futures of them, so they stay open until disconnect().
_connected: dict = {}


def _connect(address: str):
    client = _connected.get(address)
    if client is None or client.status in ("closing", "closed"):
        from distributed import Client

        # The default client from now on, as with Client(address): dask
        # computes a frame of its futures only through it.
        client = _connected[address] = Client(address)
    return client


def disconnect() -> None:
    """Closes the connections scan() opened for scheduler addresses (the
    results of those scans can no longer be computed afterwards)."""
    while _connected:
        _, client = _connected.popitem()
        client.close()



def _raise(error: OSError) -> None:
    raise error


def _with_text_paths(error: OSError) -> OSError:
    """The same error with its paths as text: the walk works on bytes, and
    a message shows b'/music/x.mp3' otherwise."""
    if not isinstance(error.filename, bytes) and not isinstance(error.filename2, bytes):
        return error
    names = [os.fsdecode(n) if isinstance(n, bytes) else n for n in (error.filename, error.filename2)]
    args = (error.errno, error.strerror, names[0]) + ((None, names[1]) if names[1] is not None else ())
    return type(error)(*args)


def _special_file(path: bytes, st_mode: int) -> OSError:
    """What fileinfo.scan reports for a FIFO, device or socket found in a
    walk."""
    kind = ("FIFO" if stat.S_ISFIFO(st_mode) else "character device" if stat.S_ISCHR(st_mode)
            else "block device" if stat.S_ISBLK(st_mode) else "socket" if stat.S_ISSOCK(st_mode)
            else "special file")
    return OSError(errno.EINVAL, f"not a regular file ({kind})", os.fsdecode(path))


def list_files(
    paths_or_dirs: Union[PathLike, Iterable[PathLike]],
    ext: Union[None, str, Iterable[str]] = None,
    *,
    hidden: bool = False,
    on_error=None,
) -> List[str]:
    """The paths fileinfo.scan would load, in its order, without loading them.

    Named files are taken as they are; folders are walked as the scan walks
    them: entries sorted by name (bytewise), names with a leading dot passed
    over unless `hidden`, files of no media format's extension (or not in
    `ext`) left out, links to files followed and to folders not. Errors as
    in fileinfo.scan.
    """
    wanted = set(fileinfo._extensions(ext))
    handler = on_error or _raise

    def report(error: OSError) -> None:
        handler(_with_text_paths(error))
    out: List[str] = []

    def walk(folder: bytes) -> None:
        try:
            with os.scandir(folder) as it:
                entries = sorted(it, key=lambda e: e.name)
        except OSError as e:
            report(e)
            return
        for e in entries:
            if not hidden and e.name.startswith(b"."):
                continue
            try:
                if e.is_symlink():
                    os.stat(e.path)  # a dangling link is an error, as in the scan
                if e.is_dir(follow_symlinks=False):
                    walk(e.path)
                    continue
                if not e.is_file(follow_symlinks=True):
                    mode = e.stat(follow_symlinks=True).st_mode
                    if not stat.S_ISDIR(mode):  # a link to a folder is passed over
                        report(_special_file(e.path, mode))
                    continue
            except OSError as error:
                report(error)
                continue
            if not _fileinfo.walk_takes(e.path):
                continue
            if wanted and os.path.splitext(e.name)[1][1:].lower().decode("latin-1") not in wanted:
                continue
            out.append(os.fsdecode(e.path))

    for root in fileinfo._roots(paths_or_dirs):
        try:
            isdir = os.path.isdir(root)
            os.stat(root)
        except OSError as e:
            report(e)
            continue
        if isdir:
            walk(root)
        else:
            out.append(os.fsdecode(root))
    return out


def _worker_jobs(jobs: Optional[int]) -> Optional[int]:
    """Load threads on a worker: as asked, else as many as the worker runs
    tasks with (a worker process per core then loads one file at a time)."""
    if jobs is not None:
        return jobs
    try:
        from distributed import get_worker

        worker = get_worker()
    except (ImportError, ValueError):
        return None  # not on a distributed worker: one load thread a core
    threads = getattr(worker, "nthreads", None) or getattr(getattr(worker, "state", None), "nthreads", None)
    return max(1, threads) if threads else None


def _load_records(
    paths: List[str], jobs: Optional[int], on_error: str, caps: Optional[bytes] = None
) -> List[fileinfo.Record]:
    handler = None if on_error == "raise" else (lambda e: None)
    device = Device(caps) if caps is not None else None
    return list(fileinfo.scan(paths, jobs=_worker_jobs(jobs), on_error=handler, device=device))


def _load_frame(paths: List[str], jobs: Optional[int], on_error: str, caps: Optional[bytes]):
    frame = _pandas.to_pandas(_load_records(paths, jobs, on_error, caps))
    if caps is not None and len(frame) == 0:
        frame = _pandas.empty_frame(_pandas.VERDICT_COLUMNS)
    return frame


def scan(
    paths_or_dirs: Union[PathLike, Iterable[PathLike]],
    client: Any = None,
    partition_size: int = 2000,
    *,
    jobs: Optional[int] = None,
    ext: Union[None, str, Iterable[str]] = None,
    hidden: bool = False,
    device: Union[None, PathLike, Device] = None,
    on_error: str = "raise",
):
    """The records of a collection as a dask DataFrame, loaded on workers.

    One row per file, with the columns and dtypes of fileinfo.to_pandas, in
    the order of fileinfo.scan; partitions of `partition_size` files. With
    `device` (a Device, or a capability list's text or path) the columns
    playable, refused_by and explanation hold the verdict on the reading,
    library_playable and library_refused_by the library's, as to_pandas
    gives them for records judged against a device.

    `client`: a dask.distributed Client, or a scheduler's address
    ("tcp://host:8786") to connect to (that client becomes the default one,
    as Client(address) does, and is kept for later scans to the same
    address until disconnect()); the partitions are then submitted to that
    cluster at once. None: a lazy collection for whatever scheduler
    computes it (the default client, if one exists).

    `on_error`: "raise" (a file that cannot be opened on a worker fails the
    computation) or "skip" (it is left out). Paths that cannot be listed
    here raise at once.

    Without pandas, a dask bag of Records is returned instead.
    """
    if partition_size < 1:
        raise ValueError("partition_size must be at least 1")
    if on_error not in ("raise", "skip"):
        raise ValueError('on_error must be "raise" or "skip"')
    if isinstance(client, str):
        client = _connect(client)
    caps = None
    if device is not None:
        caps = (device if isinstance(device, Device) else Device(device)).text
    paths = list_files(paths_or_dirs, ext, hidden=hidden, on_error=None if on_error == "raise" else (lambda e: None))
    parts = [paths[i : i + partition_size] for i in range(0, len(paths), partition_size)]

    if pd is None:
        if caps is not None:
            raise ImportError("fileinfo.dask.scan with a device needs pandas (Debian: python3-pandas)")
        if client is not None:
            tasks = [client.submit(_load_records, p, jobs, on_error, pure=False) for p in parts]
        else:
            tasks = [dask.delayed(_load_records, pure=False)(p, jobs, on_error) for p in parts]
        return dask.bag.from_delayed(tasks) if tasks else dask.bag.from_sequence([], npartitions=1)

    meta = _pandas.empty_frame(_pandas.VERDICT_COLUMNS if caps is not None else None)
    if not parts:
        return dd.from_pandas(meta, npartitions=1)
    if client is not None:
        tasks = [client.submit(_load_frame, p, jobs, on_error, caps, pure=False) for p in parts]
    else:
        tasks = [dask.delayed(_load_frame, pure=False)(p, jobs, on_error, caps) for p in parts]
    return dd.from_delayed(tasks, meta=meta, verify_meta=False)
