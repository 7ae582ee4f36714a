"""Documents to plain text and metadata, in-process, as ``ulvekbot import`` reads them.

Every function answers what the command line prints, as Python values: each result is a dict
of the JSON line's keys ("Title", "Text", "Author", "ContentCreationDate", …, then
"ContentType" and "MIMEType") without its "path"; lists are ``list[str]``, dates
``datetime.datetime`` in UTC, data ``bytes``. Files are read with the GIL released, so threads
import in parallel; importer plug-ins run in a sandboxed worker process, so a plug-in that
crashes costs one file, never the interpreter.
"""

import collections
import concurrent.futures
import os
import threading

from . import _location
from . import _ulvekbot

__all__ = [
    "Error",
    "attributes",
    "classify",
    "formats",
    "import_data",
    "import_directory",
    "import_file",
    "import_tree",
    "is_plain_file",
    "supports_file",
    "walk",
]


class Error(Exception):
    """A file that could not be read, as ``ulvekbot import`` reports it.

    Attributes:
        kind: why, as the command line's ``Error.kind`` says it: "not-found", "permission",
            "damaged", "encrypted", "importer-crashed", "importer-timeout", "too-large",
            "timed-out" or "unsupported".
        message: the failure's message.
        path: the file, as given.
        result: what was read nonetheless (a "timed-out" file's text so far), else None.
    """

    def __init__(self, kind, message, path=None, result=None):
        super().__init__(f"{path}: {kind}: {message}" if path is not None else f"{kind}: {message}")
        self.kind = kind
        self.message = message
        self.path = path
        self.result = result

    # Raised in a Dask or multiprocessing worker, it is pickled back whole.
    def __reduce__(self):
        return (Error, (self.kind, self.message, self.path, self.result))


def _answer(path, answer):
    result, error = answer
    if error is not None:
        raise Error(error["kind"], error["message"], os.fsdecode(path), result)
    return result


def _seconds(timeout):
    if timeout is None:
        return 0.0
    if timeout <= 0:
        raise ValueError("timeout takes a number of seconds above 0, or None for no limit")
    return float(timeout)


def _ocr(ocr):
    if ocr is not None and not isinstance(ocr, bool):
        raise TypeError("ocr takes True, False or None (the user defaults decide)")
    return ocr


def import_file(path, *, ocr=None, timeout=None):
    """Imports one file (or package) and answers its result, as ``ulvekbot import PATH``.

    Args:
        path: a str, bytes or os.PathLike naming the file.
        ocr: True or False to read scanned pages and pictures of text with Tesseract or not
            (``--ocr``/``--no-ocr``); None lets the user defaults decide (DisableOCR).
        timeout: seconds the in-process readers may read the file (``--time-limit``); None
            for no limit. Past it the file raises Error("timed-out") whose ``result`` holds
            the text read so far.

    Returns:
        dict: the result, e.g. {"Title": "Report", "Text": "…", "Author": ["Ann"],
        "FileSize": 1234, "ContentType": "org.openxmlformats.wordprocessingml.document",
        "MIMEType": "application/vnd.openxmlformats-officedocument.wordprocessingml.document"}.

    Raises:
        Error: the file could not be read (``kind`` says why; ``result`` holds the partial
            result with its "Error" entry).
    """
    return _answer(path, _ulvekbot.import_item(path, _seconds(timeout), _ocr(ocr)))


def import_data(data, url=None, mime_type=None):
    """Imports a block of downloaded data, as the service's importData does.

    Args:
        data: the bytes.
        url: the address they came from, if known (its extension helps to type them).
        mime_type: their MIME type, if known ("text/html", …).

    Returns:
        dict: the result.
    """
    return _answer("<data>", _ulvekbot.import_data(bytes(data), url, mime_type))


def import_directory(path):
    """Answers a folder's title, comment, where-from address and tags (``ulvekbot directory``)."""
    return _answer(path, _ulvekbot.import_directory(path))


def attributes(path):
    """Answers an item's stored comment, where-from address and tags (``ulvekbot attributes``)."""
    return _answer(path, _ulvekbot.attributes(path))


def classify(path):
    """Says why a file is read the way it is, and by which reader (``ulvekbot classify --json``).

    Returns:
        dict: "path", "extension", "typeCode", "contentType", "size", "step", "test",
        "class", "packageSkipped", "typeDecided", "reader", "decision" (and
        "contentTypeRoute" where no file test answered).
    """
    return _answer(path, _ulvekbot.classify(path))


def supports_file(path):
    """True when a reader or an importer plug-in reads the file."""
    return _ulvekbot.supports_file(path)


def is_plain_file(path):
    """True when the file is read as plain text."""
    return _ulvekbot.is_plain_file(path)


def formats():
    """Every kind of file known (``ulvekbot formats --json``): a list of dicts with
    "identifier", "name", "extensions", "mimeTypes", "typeCodes", "conformsTo", "signatures",
    "kind" and "reader"."""
    return _ulvekbot.formats()


def _paths(path_or_paths):
    if isinstance(path_or_paths, (str, bytes, os.PathLike)):
        path_or_paths = [path_or_paths]
    return [os.fsencode(path) for path in path_or_paths]


def walk(path_or_paths, *, follow_links=False):
    """The files ``import_tree`` reads for these paths, in its order: folders walked in name
    order, packages and unpacked books as one item, AppleDouble companions left out, links in
    folders followed only with ``follow_links``. Paths that are missing or cannot be listed
    stay in the list, so that importing them reports why.

    Returns:
        list[str]: the paths, each of which ``import_tree`` reads as one item.
    """
    return [path for path, _ in _ulvekbot.Walk(_paths(path_or_paths), follow_links)]


def import_tree(path_or_paths, jobs=None, *, cores=None, ocr=None, timeout=None,
                follow_links=False):
    """Imports files and folders (walked as ``ulvekbot import`` walks them), yielding
    ``(path, result)`` for each file as it finishes, in the order of ``jobs=1``.

    Folders are walked in name order; packages and unpacked books are one item; links inside
    folders are followed only with ``follow_links``. A file that fails is not raised: its
    result carries {"Error": {"kind": …, "message": …}}, as its JSON line does.

    Args:
        path_or_paths: a path, or an iterable of paths (str, bytes or os.PathLike).
        jobs: how many files to read at a time, on threads (None: one a core).
        cores: how many cores the pages of one long PDF or scan may be spread over, in all
            (None: ``jobs``, so that ``jobs=1`` keeps to one core; 0: every usable core).
        ocr: True, False or None, as for ``import_file``.
        timeout: seconds the in-process readers may read one file; None for no limit.
        follow_links: follow links inside folders.

    Yields:
        tuple[str, dict]: the file's path (as named, or as found in a folder) and its result.
    """
    ocr = _ocr(ocr)
    seconds = _seconds(timeout)
    # Walked as the files are read, so a tree of any size never lies in memory as a list.
    items = _ulvekbot.Walk(_paths(path_or_paths), follow_links)
    jobs = _ulvekbot.usable_cores() if jobs is None else int(jobs)
    if jobs < 1:
        raise ValueError("jobs takes a number above 0, or None for one a core")
    cores = jobs if cores is None else int(cores)
    if cores < 0:
        raise ValueError("cores takes 0 (every usable core) or more")

    def one(item):
        path, error = item
        if error is not None:
            return {"Error": error}
        return _ulvekbot.import_item(path, seconds, ocr, cores)[0]

    if jobs == 1:
        for item in items:
            yield item[0], one(item)
        return
    # While a long file (a scan) is read, the other threads go on with the files after it; their
    # answers wait for it up to a number of files and of text bytes, so a long list never lies
    # in memory.
    most_files, most_bytes = 256 * jobs, 64 << 20
    waiting = 0  # text bytes of the answers done and not yet yielded
    lock = threading.Lock()

    def weight(future):
        if future.cancelled() or future.exception() is not None:
            return 0
        return len(future.result().get("Text") or "")

    def done(future):
        nonlocal waiting
        with lock:
            waiting += weight(future)

    def oldest():
        nonlocal waiting
        path, future = pending.popleft()
        result = future.result()
        with lock:
            waiting -= weight(future)
        return path, result

    with concurrent.futures.ThreadPoolExecutor(jobs, thread_name_prefix="ulvekbot") as pool:
        pending = collections.deque()
        for item in items:
            while pending and (len(pending) >= most_files or waiting >= most_bytes):
                yield oldest()
            future = pool.submit(one, item)
            future.add_done_callback(done)
            pending.append((item[0], future))
        while pending:
            yield oldest()
