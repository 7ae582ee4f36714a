#!/usr/bin/env python3
"""Imports a whole archive on a Dask cluster with ulvekbot.

    python3 examples/dask/import_archive.py INPUT --out DIR [--scheduler ADDRESS | --local-workers N]

INPUT is a folder (walked as `ulvekbot import` walks it) or a file listing paths, one a line
(folders in it are walked too); the paths must be reachable from every worker (shared storage).
The paths are split into the partitions of a Dask bag; each worker imports a partition with
ulvekbot.import_tree and writes its JSON lines, the lines of `ulvekbot import`, to
DIR/part-RUN-ID.jsonl as they come. A summary (files, bytes, failures by kind, files per
second) is printed and written to DIR/summary-RUN.json. A rerun skips every path that already
has a line in DIR, so an interrupted run resumes where it stopped.

import_partition() is a plain function of a list of paths; any engine that can run a Python
function per partition (Spark's mapPartitions, Ray tasks, a batch scheduler) can run it alike.
"""

import argparse
import base64
import collections
import datetime
import hashlib
import json
import os
import sys
import time


def json_value(value):
    """The JSON form of the values ulvekbot answers that json does not know, as the command
    line writes them: dates ISO 8601 UTC with six fractional digits, data base64."""
    if isinstance(value, datetime.datetime):
        return value.astimezone(datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%S.%fZ")
    if isinstance(value, (bytes, bytearray)):
        return base64.b64encode(value).decode("ascii")
    raise TypeError(f"not JSON: {type(value).__name__}")


def json_line(path, result):
    """One line of `ulvekbot import`: "path" first, then the result's keys."""
    record = {"path": path, **result}
    return json.dumps(record, ensure_ascii=False, separators=(",", ":"), default=json_value) + "\n"


def worker_threads():
    """The threads of the Dask worker this runs on; 0 (every usable core) outside a worker."""
    try:
        from distributed import get_worker
        return get_worker().nthreads
    except (ImportError, ValueError):
        return 0


def import_partition(paths, out_dir, run):
    """Imports the paths on this worker, writes their lines to a file of their own in out_dir
    and answers one summary of them."""
    import ulvekbot  # on the worker

    paths = list(paths)
    summary = {"files": 0, "bytes": 0, "failures": {}}
    if not paths:
        return [summary]
    # Partitions are disjoint, so their first paths name them apart.
    name = hashlib.sha1(paths[0].encode("utf-8", "surrogateescape")).hexdigest()[:16]
    failures = collections.Counter()
    with open(os.path.join(out_dir, f"part-{run}-{name}.jsonl"), "w", encoding="utf-8",
              errors="surrogateescape") as out:
        # One file at a time: Dask runs as many partitions at once as the workers have threads.
        # A worker keeps to as many cores as it has threads, so that the workers of one machine
        # share its cores rather than each spreading a scan's pages over all of them.
        for path, result in ulvekbot.import_tree(paths, jobs=1, cores=worker_threads()):
            out.write(json_line(path, result))
            # A line written is a file done, should the run stop here.
            out.flush()
            summary["files"] += 1
            size = result.get("FileSize")
            if isinstance(size, int):
                summary["bytes"] += size
            if "Error" in result:
                failures[result["Error"]["kind"]] += 1
    summary["failures"] = dict(failures)
    return [summary]


def done_paths(out_dir):
    """The paths that already have a complete line in out_dir."""
    done = set()
    for name in os.listdir(out_dir):
        if not (name.startswith("part-") and name.endswith(".jsonl")):
            continue
        with open(os.path.join(out_dir, name), encoding="utf-8", errors="surrogateescape") as lines:
            for line in lines:
                if not line.endswith("\n"):
                    continue  # cut short when a run stopped
                try:
                    done.add(json.loads(line)["path"])
                except (ValueError, KeyError):
                    continue
    return done


def listed_paths(input_path):
    """The files to import: a folder's as ulvekbot walks it, or those a list names."""
    import ulvekbot

    if os.path.isdir(input_path):
        return ulvekbot.walk(input_path)
    with open(input_path, encoding="utf-8", errors="surrogateescape") as listing:
        named = [line.rstrip("\n") for line in listing if line.strip()]
    return ulvekbot.walk(named)


def merge(summaries):
    total = {"files": 0, "bytes": 0, "failures": collections.Counter()}
    for summary in summaries:
        total["files"] += summary["files"]
        total["bytes"] += summary["bytes"]
        total["failures"].update(summary["failures"])
    total["failures"] = dict(sorted(total["failures"].items()))
    return total


# Kinds whose files may hold scans, read by OCR at seconds a page where most files take
# milliseconds, slowest first: documents of many pages, then single pictures.
SLOW_KINDS = ({"com.adobe.pdf", "com.adobe.postscript", "public.tiff"}, {"public.image"})


def slowness_by_extension():
    """The rank in SLOW_KINDS of every extension of a kind that is, or conforms to, one of
    them; the first rank it reaches."""
    import ulvekbot

    known = {kind["identifier"]: kind for kind in ulvekbot.formats()}

    def reaches(identifier, kinds, seen=()):
        if identifier in kinds:
            return True
        kind = known.get(identifier)
        return kind is not None and identifier not in seen and any(
            reaches(parent, kinds, (*seen, identifier)) for parent in kind["conformsTo"])

    ranks = {}
    for rank, kinds in enumerate(SLOW_KINDS):
        for identifier, kind in known.items():
            if reaches(identifier, kinds):
                for extension in kind["extensions"]:
                    ranks.setdefault("." + extension.lower(), rank)
    return ranks


def dealt(paths, count):
    """The paths dealt out to `count` partitions like cards."""
    count = max(1, min(count, len(paths)))
    return [paths[first::count] for first in range(count)]


def hands_for(paths, threads, size):
    """The partitions to import, those that may be slow first. Files that may hold scans go in
    small partitions (a few files a partition, of at most 64 a worker thread), so that a long
    scan starts early and alone while the other workers go on; the others in 16 a thread. With
    `size`, every partition holds that many files, those that may be slow still first."""
    ranks = slowness_by_extension()
    rank = {path: ranks.get(os.path.splitext(path)[1].lower(), len(SLOW_KINDS)) for path in paths}
    slow = sorted((path for path in paths if rank[path] < len(SLOW_KINDS)), key=rank.get)
    others = [path for path in paths if rank[path] == len(SLOW_KINDS)]
    if size:
        ordered = slow + others
        return [ordered[first:first + size] for first in range(0, len(ordered), size)]
    return [hand for hand in dealt(slow, 64 * threads) + dealt(others, 16 * threads) if hand]


def import_hand(hands, out_dir, run):
    """import_partition over the one hand of paths each of these partitions holds."""
    return import_partition([path for hand in hands for path in hand], out_dir, run)


def run(args):
    import dask.bag
    from distributed import Client, LocalCluster

    os.makedirs(args.out, exist_ok=True)
    started = time.monotonic()
    paths = listed_paths(args.input)
    done = done_paths(args.out)
    todo = [path for path in paths if path not in done]
    runid = datetime.datetime.now(datetime.timezone.utc).strftime("%Y%m%dT%H%M%S%f")

    cluster = None
    if args.scheduler:
        client = Client(args.scheduler)
    else:
        cluster = LocalCluster(n_workers=args.local_workers,
                               threads_per_worker=args.threads_per_worker,
                               processes=True, dashboard_address=None)
        client = Client(cluster)
    try:
        threads = sum(client.nthreads().values()) or 1
        summaries = []
        importing = time.monotonic()
        if todo:
            hands = hands_for(todo, threads, args.partition_size)
            bag = dask.bag.from_sequence(hands, npartitions=len(hands))
            summaries = bag.map_partitions(import_hand, os.path.abspath(args.out),
                                           runid).compute()
        importing = time.monotonic() - importing
    finally:
        client.close()
        if cluster is not None:
            cluster.close()

    seconds = time.monotonic() - started
    summary = merge(summaries)
    summary.update({
        "skipped": len(paths) - len(todo),
        "seconds": round(seconds, 3),
        # Without starting the cluster and listing the files.
        "import_seconds": round(importing, 3),
        "files_per_second": round(summary["files"] / importing, 1) if importing > 0 else None,
        "workers_threads": threads,
    })
    with open(os.path.join(args.out, f"summary-{runid}.json"), "w", encoding="utf-8") as out:
        json.dump(summary, out, indent=1)
        out.write("\n")
    failed = sum(summary["failures"].values())
    kinds = ", ".join(f"{kind} {count}" for kind, count in summary["failures"].items())
    print(f"{summary['files']} files, {summary['bytes']} bytes, {seconds:.3f} s "
          f"({importing:.3f} s importing, {summary['files_per_second']} files/s on {threads} "
          f"worker threads); "
          f"{failed} failed{' (' + kinds + ')' if kinds else ''}; "
          f"{summary['skipped']} skipped as done")
    return summary


def main(argv=None):
    parser = argparse.ArgumentParser(
        description="Imports a folder or a list of files on a Dask cluster with ulvekbot.")
    parser.add_argument("input", metavar="INPUT",
                        help="a folder, or a file listing paths one a line (on shared storage)")
    parser.add_argument("--out", required=True, metavar="DIR",
                        help="where the JSON lines and the summary go; paths with a line there "
                        "already are skipped")
    where = parser.add_mutually_exclusive_group()
    where.add_argument("--scheduler", metavar="ADDRESS",
                       help="a running scheduler, e.g. tcp://10.0.0.5:8786")
    where.add_argument("--local-workers", type=int, default=os.cpu_count() or 1, metavar="N",
                       help="start a local cluster of N worker processes (default: one a core)")
    parser.add_argument("--threads-per-worker", type=int, default=1, metavar="N",
                        help="threads, and so cores, of each local worker (default: 1)")
    parser.add_argument("--partition-size", type=int, default=0, metavar="FILES",
                        help="files a partition (default: files that may hold scans a few a "
                        "partition, the others sixteen partitions a worker thread)")
    args = parser.parse_args(argv)
    if args.local_workers < 1 or args.threads_per_worker < 1:
        parser.error("--local-workers and --threads-per-worker take a number above 0")
    run(args)
    return 0


if __name__ == "__main__":
    sys.exit(main())
