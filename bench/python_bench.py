#!/usr/bin/env python3
"""What the Python module costs beside the command line, and how it spreads over cores.

    PYTHONPATH=build/python python3 bench/python_bench.py [--build build] [--corpus DIR]

1. Per file: ulvekbot.import_file on a small page against the same import inside the command
   line's own process (its summary's time over the same file listed N times, so the process's
   start is left out).
2. The mixed folder of real documents ($ULVEK_CORPUS_DIR/docs, or --corpus) through
   import_tree with 1 and 2 jobs, and through examples/dask/import_archive.py on a local
   cluster of 1 and 2 worker processes of one thread, and of one worker of 2 threads (its import
   time, without the cluster's start); beside them `ulvekbot import -j 1` and `-j 2` over the
   same folder.
"""

import argparse
import os
import re
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE_DIR = os.path.dirname(HERE)


def cli_per_file(cli, path, count):
    """Seconds a file inside the command line's process, from its summary."""
    with tempfile.NamedTemporaryFile("w", suffix=".list") as listing:
        listing.write((path + "\n") * count)
        listing.flush()
        done = subprocess.run([cli, "import", "-j", "1", "--files-from", listing.name],
                              capture_output=True, text=True, check=True)
    seconds = float(re.search(r"bytes, ([0-9.]+) s:", done.stderr).group(1))
    return seconds / count


def module_per_file(path, count):
    import ulvekbot

    ulvekbot.import_file(path)  # first-use set-up (charset tables, registry) left out
    started = time.perf_counter()
    for _ in range(count):
        ulvekbot.import_file(path)
    return (time.perf_counter() - started) / count


def tree_seconds(folder, jobs):
    import ulvekbot

    # The readers' log lines about damaged documents go to standard error; not here.
    saved = os.dup(2)
    with open(os.devnull, "w") as devnull:
        os.dup2(devnull.fileno(), 2)
    try:
        started = time.perf_counter()
        count = sum(1 for _ in ulvekbot.import_tree(folder, jobs=jobs))
        return time.perf_counter() - started, count
    finally:
        os.dup2(saved, 2)
        os.close(saved)


def cli_seconds(cli, folder, jobs):
    """The command line's own time over the folder, from its summary."""
    done = subprocess.run([cli, "import", "-j", str(jobs), "-o", os.devnull, folder],
                          capture_output=True, text=True, check=False)
    return float(re.search(r"bytes, ([0-9.]+) s:", done.stderr.splitlines()[-1]).group(1))


def dask_seconds(folder, workers, threads=1):
    with tempfile.TemporaryDirectory() as out:
        done = subprocess.run(
            [sys.executable, os.path.join(SOURCE_DIR, "examples", "dask", "import_archive.py"),
             folder, "--out", out, "--local-workers", str(workers),
             "--threads-per-worker", str(threads)],
            capture_output=True, text=True, check=True)
    match = re.search(r"\(([0-9.]+) s importing", done.stdout)
    return float(match.group(1)), done.stdout.strip()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default=os.path.join(SOURCE_DIR, "build"))
    parser.add_argument("--corpus", default=os.path.join(
        os.environ.get("ULVEK_CORPUS_DIR", os.path.join(SOURCE_DIR, "..", "shared", "corpus")),
        "docs"))
    parser.add_argument("--count", type=int, default=2000, help="imports of the small page")
    parser.add_argument("--rounds", type=int, default=3, help="best of this many runs")
    args = parser.parse_args()
    cli = os.path.join(args.build, "src", "ulvekbot")
    page = os.path.join(SOURCE_DIR, "samples", "welcome.html")

    in_cli = min(cli_per_file(cli, page, args.count) for _ in range(args.rounds))
    in_module = min(module_per_file(page, args.count) for _ in range(args.rounds))
    print(f"per file (samples/welcome.html): command line {in_cli * 1e6:.1f} µs, "
          f"import_file {in_module * 1e6:.1f} µs, difference {(in_module - in_cli) * 1e6:+.1f} µs "
          f"(goal: under +50 µs)")

    if not os.path.isdir(args.corpus):
        print(f"no corpus at {args.corpus}: the folder runs are skipped")
        return 0
    cli_one = min(cli_seconds(cli, args.corpus, 1) for _ in range(args.rounds))
    cli_two = min(cli_seconds(cli, args.corpus, 2) for _ in range(args.rounds))
    print(f"ulvekbot import over the folder: -j 1 {cli_one:.3f} s, -j 2 {cli_two:.3f} s, "
          f"{cli_one / cli_two:.2f}x (the library's own spread, for comparison)")
    one, count = min(tree_seconds(args.corpus, 1) for _ in range(args.rounds))
    two, _ = min(tree_seconds(args.corpus, 2) for _ in range(args.rounds))
    print(f"import_tree over {count} files: 1 job {one:.3f} s, 2 jobs {two:.3f} s, "
          f"{one / two:.2f}x (goal: 1.7x)")
    # A worker keeps to as many cores as it has threads: one worker of one thread is one core.
    dask_one, _ = min(dask_seconds(args.corpus, 1) for _ in range(args.rounds))
    dask_two, line = min(dask_seconds(args.corpus, 2) for _ in range(args.rounds))
    dask_wide, _ = min(dask_seconds(args.corpus, 1, 2) for _ in range(args.rounds))
    print(f"Dask example: 1 worker {dask_one:.3f} s, 2 workers {dask_two:.3f} s importing, "
          f"{dask_one / dask_two:.2f}x (goal: 1.7x); 1 worker of 2 threads {dask_wide:.3f} s; "
          f"last run: {line}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
