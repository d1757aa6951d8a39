#!/usr/bin/python3
"""Scans a media collection on a Dask cluster and writes one CSV row a file.

    scan_collection.py TREE [--scheduler ADDR] [--device CAPS] [--out file.csv]

Without --scheduler, a LocalCluster of worker processes on this machine does
the work; with it, the cluster at ADDR ("tcp://host:8786"), whose workers
must reach TREE under the same path and import fileinfo. Prints counts by
file type and, with --device, playable and unplayable files.
"""

import argparse
import os
import sys
import time

import fileinfo
import fileinfo.dask


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("tree", nargs="+", help="folders or files to scan")
    parser.add_argument("--scheduler", metavar="ADDR", help="address of a running Dask scheduler")
    parser.add_argument("--workers", type=int, default=min(4, os.cpu_count() or 1),
                        help="worker processes of the local cluster (default: up to 4)")
    parser.add_argument("--device", metavar="CAPS", help="capability list of a device: add its verdict")
    parser.add_argument("--out", metavar="FILE", help="write the table as CSV")
    parser.add_argument("--partition-size", type=int, default=2000, help="files per task (default 2000)")
    args = parser.parse_args()

    from distributed import Client, LocalCluster

    started = time.perf_counter()
    if args.scheduler:
        client = Client(args.scheduler)
        cluster = None
    else:
        cluster = LocalCluster(n_workers=args.workers, threads_per_worker=1, processes=True,
                               dashboard_address=None)
        client = Client(cluster)
    try:
        device = fileinfo.Device(args.device) if args.device else None
        df = fileinfo.dask.scan(args.tree, client=client, partition_size=args.partition_size, device=device)
        table = df.compute()
    finally:
        client.close()
        if cluster is not None:
            cluster.close()
    seconds = time.perf_counter() - started

    if args.out:
        table.to_csv(args.out, index=False)
    print(f"{len(table)} files in {seconds:.2f} s ({len(table) / max(seconds, 1e-9):,.0f} files/s), "
          f"{df.npartitions} partitions")
    # Counted by the reading's type, as the tool's summary counts them.
    kind = table["type"].astype(object).where(table["type"].notna(), "(not identified)")
    print("by type:")
    for name, count in kind.value_counts().sort_index().items():
        print(f"  {name}: {count}")
    if device is not None:
        playable = int(table["playable"].fillna(False).sum())
        print(f"device: {playable} playable, {len(table) - playable} not playable")
        refused = table.loc[~table["playable"].fillna(False), "refused_by"].fillna(
            "(no requirement: not identified or type not listed)")
        for name, count in refused.value_counts().items():
            print(f"  refused by {name}: {count}")
    if args.out:
        print(f"table written to {args.out}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
