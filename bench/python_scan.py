#!/usr/bin/python3
"""Files per second from Python: fileinfo.scan against mutagen over one file
list, and fileinfo.dask.scan on a LocalCluster of 1 and 2 worker processes.

    PYTHONPATH=build/python bench/python_scan.py [--corpus DIR] [--count N] [--rounds R]

Without --corpus, bench/make_corpus.sh builds one of --count files in a
temporary folder. Every measurement is warm: the files are read once before
any timing, and each figure is the best of --rounds runs. mutagen.File reads
each file's stream properties and tags, as a load does.
"""

import argparse
import os
import subprocess
import sys
import tempfile
import time

import fileinfo
import fileinfo.dask


def best(rounds, run):
    """(best seconds, result of the last run)."""
    times, result = [], None
    for _ in range(rounds):
        started = time.perf_counter()
        result = run()
        times.append(time.perf_counter() - started)
    return min(times), result


def rate(n, seconds):
    return f"{n / seconds:>10,.0f} files/s  ({seconds * 1000:8.1f} ms)"


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--corpus", help="a folder of media files (default: a fresh copy of the fixtures)")
    parser.add_argument("--count", type=int, default=10000, help="files in the fresh corpus (default 10000)")
    parser.add_argument("--rounds", type=int, default=5, help="runs of each measurement; the best counts")
    parser.add_argument("--no-dask", action="store_true", help="leave out the Dask scans")
    args = parser.parse_args()

    with tempfile.TemporaryDirectory() as work:
        corpus = args.corpus
        if corpus is None:
            corpus = os.path.join(work, "corpus")
            subprocess.run([os.path.join(os.path.dirname(os.path.abspath(__file__)), "make_corpus.sh"), corpus,
                            str(args.count)], check=True, stdout=subprocess.DEVNULL)
        files = fileinfo.dask.list_files(corpus)
        n = len(files)
        for path in files:  # warm the page cache
            with open(path, "rb") as f:
                f.read()
        print(f"{n} files from {corpus}; best of {args.rounds} runs; {os.cpu_count()} cores")

        t_scan, records = best(args.rounds, lambda: list(fileinfo.scan(files)))
        assert len(records) == n
        t_scan1, _ = best(args.rounds, lambda: list(fileinfo.scan(files, jobs=1)))
        t_load, _ = best(args.rounds, lambda: [fileinfo.load(p) for p in files])
        t_pandas, _ = best(args.rounds, lambda: fileinfo.to_pandas(fileinfo.scan(files)))
        print(f"fileinfo.scan (one thread a core)      {rate(n, t_scan)}")
        print(f"fileinfo.scan (jobs=1)                 {rate(n, t_scan1)}")
        print(f"fileinfo.load in a loop                {rate(n, t_load)}")
        print(f"fileinfo.to_pandas(fileinfo.scan(...)) {rate(n, t_pandas)}")

        try:
            import mutagen
        except ImportError:
            print("mutagen is not installed (Debian: python3-mutagen): no comparison")
            mutagen = None
        if mutagen is not None:
            def mutagen_all():
                failed = 0
                for path in files:
                    try:
                        mutagen.File(path)
                    except Exception:  # mutagen raises for files it cannot parse
                        failed += 1
                return failed

            t_mutagen, failed = best(args.rounds, mutagen_all)
            print(f"mutagen.File in a loop                 {rate(n, t_mutagen)}  ({failed} raised)")
            print(f"fileinfo.scan / mutagen: {t_mutagen / t_scan:.1f}x; with jobs=1: {t_mutagen / t_scan1:.1f}x")

        if not args.no_dask:
            try:
                from distributed import Client, LocalCluster
            except ImportError:
                print("dask.distributed is not installed: no Dask scans")
                return 0
            for workers in (1, 2):
                with LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                                  dashboard_address=None) as cluster, Client(cluster) as client:
                    # The first run starts the workers' imports: not counted.
                    fileinfo.dask.scan(corpus, client=client).compute()
                    t_dask, df = best(args.rounds, lambda: fileinfo.dask.scan(corpus, client=client).compute())
                    assert len(df) == n
                    print(f"fileinfo.dask.scan, {workers} worker process{'es' if workers > 1 else ''}   "
                          f"{rate(n, t_dask)}  (listing included, partitions of 2000)")
    return 0


if __name__ == "__main__":
    sys.exit(main())
