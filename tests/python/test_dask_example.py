"""examples/dask/import_archive.py on a local cluster of two worker processes answers what
`ulvekbot import -j 1` prints, file for file, and a rerun skips every file."""

import glob
import json
import os
import subprocess
import sys
import tempfile

BINARY_DIR = os.environ["ULVEK_BINARY_DIR"]
SOURCE_DIR = os.environ["ULVEK_SOURCE_DIR"]
DATA = os.path.join(SOURCE_DIR, "tests", "data")
CLI = os.path.join(BINARY_DIR, "src", "ulvekbot")
EXAMPLE = os.path.join(SOURCE_DIR, "examples", "dask", "import_archive.py")


def comparable(line):
    """A line as a set member; PostScript goes through Ghostscript, which stamps the PDF it
    makes with the time of the conversion."""
    record = json.loads(line)
    if "postscript" in record.get("ContentType", ""):
        record.pop("Creation", None)
        record.pop("Modification", None)
    return json.dumps(record, sort_keys=True)


def example(*arguments):
    done = subprocess.run([sys.executable, EXAMPLE, *arguments], capture_output=True, text=True,
                          timeout=120, check=False)
    assert done.returncode == 0, done.stderr
    return done.stdout


def test_a_local_cluster_answers_the_command_line_and_resumes():
    done = subprocess.run([CLI, "import", "-q", "-j", "1", DATA], capture_output=True, check=False)
    expected = {comparable(line) for line in done.stdout.decode().splitlines()}
    with tempfile.TemporaryDirectory() as out:
        summary = example(DATA, "--out", out, "--local-workers", "2")
        lines = []
        for part in glob.glob(os.path.join(out, "part-*.jsonl")):
            with open(part, encoding="utf-8") as written:
                lines += written.read().splitlines()
        assert len(lines) == len(expected)
        assert {comparable(line) for line in lines} == expected
        assert f"{len(expected)} files" in summary and "0 skipped" in summary
        (first,) = glob.glob(os.path.join(out, "summary-*.json"))
        with open(first, encoding="utf-8") as written:
            counts = json.load(written)
        failed = sum(1 for line in lines if '"Error":' in line)
        assert counts["files"] == len(expected) and sum(counts["failures"].values()) == failed

        # A run that stopped part-way: the lines written stay, the others are read again.
        (part, *_) = sorted(glob.glob(os.path.join(out, "part-*.jsonl")))
        with open(part, encoding="utf-8") as written:
            lost = len(written.read().splitlines())
        os.remove(part)
        again = example(DATA, "--out", out, "--local-workers", "2")
        assert again.startswith(f"{lost} files") and f"{len(expected) - lost} skipped" in again
        rerun = example(DATA, "--out", out, "--local-workers", "2")
        assert rerun.startswith("0 files") and f"{len(expected)} skipped" in rerun


def test_partitions_start_with_the_files_that_may_hold_scans():
    sys.path.insert(0, os.path.dirname(EXAMPLE))
    import import_archive

    paths = [f"/a/{i}.txt" for i in range(100)] + ["/a/scan.pdf", "/a/photo.jpg", "/a/b.tiff"]
    for threads, size in ((1, 0), (4, 0), (2, 7)):
        hands = import_archive.hands_for(paths, threads, size)
        assert sorted(path for hand in hands for path in hand) == sorted(paths)
        if size:
            assert all(len(hand) <= size for hand in hands)
            continue
        # Documents of many pages first, then pictures, each in a partition of its own here.
        assert hands[:3] == [["/a/scan.pdf"], ["/a/b.tiff"], ["/a/photo.jpg"]]
        assert len(hands) == 3 + min(100, 16 * threads)
