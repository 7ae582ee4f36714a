#!/usr/bin/env python3
"""Scanned PDF files read by `ulvekbot import` beside `ocrmypdf --sidecar` and the `tesseract`
command run on each page (rendered by pdftoppm), side by side in one run: pages per second and
word-bag F1 against the text the pages were made from.

    bench/ocr_bench.py [--build build] [--pages 10] [--files 4] [--dpi 300]

Two rounds: one scan of --pages pages, and --files scans of three pages each, each tool once with
one process per file at a time and once with all cores (ulvekbot: -j CORES, ocrmypdf: -j CORES or
one process per file in parallel, tesseract: one process per page in parallel). Scans are made
with tests/data/ocr/make_fixtures.py's pages. Needs ocrmypdf, tesseract-ocr and poppler-utils.
"""

import argparse
import collections
import concurrent.futures
import importlib
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent


def fixtures():
    """The fixture script of the OCR tests, as a module: its pages and their words."""
    sys.path.insert(0, str(ROOT / "tests/data/ocr"))
    try:
        return importlib.import_module("make_fixtures")
    finally:
        sys.path.pop(0)


def word_bag(text):
    return collections.Counter(re.findall(r"[^\W_]+", text.lower()))


def f1(read, expected):
    got, want = word_bag(read), word_bag(expected)
    common = sum((got & want).values())
    if not common:
        return 0.0
    precision, recall = common / sum(got.values()), common / sum(want.values())
    return 2 * precision * recall / (precision + recall)


def single_threaded():
    return dict(os.environ, OMP_THREAD_LIMIT="1")


def ulvekbot(build, files, jobs, folder):
    result = subprocess.run([str(build / "src/ulvekbot"), "import", "-q", "-j", str(jobs),
                             *map(str, files)], capture_output=True, text=True, check=True)
    texts = [json.loads(line).get("Text", "") for line in result.stdout.splitlines()]
    return texts


def ocrmypdf(files, jobs, folder, parallel_files):
    def one(path, threads):
        sidecar = folder / (path.stem + ".ocrmypdf.txt")
        subprocess.run(["ocrmypdf", "-q", "-j", str(threads), "--output-type", "none",
                        "--sidecar", str(sidecar), str(path), "-"],
                       check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return sidecar.read_text()

    if parallel_files:
        with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
            return list(pool.map(lambda path: one(path, 1), files))
    return [one(path, jobs) for path in files]


def tesseract(files, jobs, folder, dpi):
    def page(image):
        result = subprocess.run(["tesseract", str(image), "-", "--psm", "1", "-l", "eng"],
                                capture_output=True, text=True, env=single_threaded())
        return result.stdout

    def render(path):
        prefix = folder / path.stem
        subprocess.run(["pdftoppm", "-gray", "-r", str(dpi), str(path), str(prefix)], check=True)
        return sorted(folder.glob(path.stem + "-*.pgm"))

    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        rendered = list(pool.map(render, files))
        pages = [pool.submit(page, image) for images in rendered for image in images]
        texts, index = [], 0
        for images in rendered:
            texts.append("\n".join(pages[index + i].result() for i in range(len(images))))
            index += len(images)
    for images in rendered:
        for image in images:
            image.unlink()
    return texts


def make_scans(module, folder, count, pages, dpi):
    files, expected = [], []
    for number in range(count):
        lines = [module.PAGES[(number + i) % len(module.PAGES)] for i in range(pages)]
        path = folder / f"scan-{number + 1}.pdf"
        module.ghostscript(module.postscript(lines), "pdfimage8", dpi, path)
        files.append(path)
        expected.append("\n".join("\n".join(page) for page in lines))
    return files, expected


def measure(name, run, files, expected, pages):
    started = time.monotonic()
    texts = run()
    seconds = time.monotonic() - started
    score = sum(f1(text, want) for text, want in zip(texts, expected)) / len(files)
    print(f"  {name:<44} {seconds:7.2f} s {pages / seconds:6.2f} pages/s  F1 {score:.3f}",
          flush=True)
    return pages / seconds


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--build", default=str(ROOT / "build"))
    parser.add_argument("--pages", type=int, default=10)
    parser.add_argument("--files", type=int, default=4)
    parser.add_argument("--dpi", type=int, default=300)
    arguments = parser.parse_args()
    build = pathlib.Path(arguments.build).resolve()
    cores = len(os.sched_getaffinity(0))
    module = fixtures()
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        rounds = [("one scan", 1, arguments.pages), ("several scans", arguments.files, 3)]
        for title, count, pages in rounds:
            files, expected = make_scans(module, folder, count, pages, arguments.dpi)
            total = count * pages
            print(f"{title}: {count} file(s), {total} pages at {arguments.dpi} dpi, {cores} cores")
            ours = {}
            for jobs, how in [(1, "one process per file"), (cores, "all cores")]:
                ours[jobs] = measure(f"ulvekbot import -j {jobs}",
                                     lambda: ulvekbot(build, files, jobs, folder), files,
                                     expected, total)
                parallel = jobs > 1 and count > 1
                measure(f"ocrmypdf --sidecar, {how}",
                        lambda: ocrmypdf(files, jobs, folder, parallel), files, expected, total)
                measure(f"tesseract per page, {how}",
                        lambda: tesseract(files, jobs, folder, arguments.dpi), files, expected,
                        total)
    return 0


if __name__ == "__main__":
    sys.exit(main())
