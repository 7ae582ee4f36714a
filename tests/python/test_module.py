"""The Python module answers what the command line prints, on one thread or many, and a
crashing importer plug-in costs one file."""

import base64
import concurrent.futures
import datetime
import json
import math
import os
import pickle
import plistlib
import shutil
import subprocess
import sys
import tempfile
import textwrap

import pytest

import ulvekbot

BINARY_DIR = os.environ["ULVEK_BINARY_DIR"]
SOURCE_DIR = os.environ["ULVEK_SOURCE_DIR"]
DATA = os.path.join(SOURCE_DIR, "tests", "data")
CLI = os.path.join(BINARY_DIR, "src", "ulvekbot")
SAMPLE = os.path.join(SOURCE_DIR, "samples", "welcome.html")
MISSING = os.path.join(DATA, "no-such-file.txt")


def comparable(value):
    """A module's value as the command line's JSON shows it, after json.loads."""
    if isinstance(value, datetime.datetime):
        assert value.tzinfo is not None and value.utcoffset() == datetime.timedelta(0)
        return value.strftime("%Y-%m-%dT%H:%M:%S.%fZ")
    if isinstance(value, bytes):
        return base64.b64encode(value).decode("ascii")
    if isinstance(value, float) and not math.isfinite(value):
        return None
    if isinstance(value, list):
        return [comparable(item) for item in value]
    if isinstance(value, dict):
        return {key: comparable(item) for key, item in value.items()}
    return value


# Ghostscript stamps the PDF it makes of PostScript with the time of the conversion.
CONVERSION_DATES = ("Creation", "Modification")


def without_conversion_dates(result):
    if "postscript" in str(result.get("ContentType", "")):
        return {key: value for key, value in result.items() if key not in CONVERSION_DATES}
    return result


def cli_lines(*arguments):
    """The command's JSON lines; exit status 1 (some item failed) is an answer too."""
    done = subprocess.run([CLI, *arguments], capture_output=True, check=False)
    assert done.returncode in (0, 1), done.stderr.decode()
    return [json.loads(line) for line in done.stdout.decode("utf-8", "replace").splitlines()]


def cli_results(*arguments):
    """{path: the line without its path}."""
    return {line.pop("path"): without_conversion_dates(line) for line in cli_lines(*arguments)}


@pytest.fixture(scope="module")
def cli_imports():
    return cli_results("import", "-q", "-j", "1", DATA)


def module_result(path):
    try:
        return without_conversion_dates(ulvekbot.import_file(path))
    except ulvekbot.Error as error:
        assert error.result is not None and error.result["Error"]["kind"] == error.kind
        return without_conversion_dates(error.result)


def test_import_file_answers_the_cli_line_of_every_fixture(cli_imports):
    assert len(cli_imports) > 300
    assert ulvekbot.walk(DATA) == list(cli_imports)
    differing = [path for path, line in cli_imports.items()
                 if comparable(module_result(path)) != line]
    assert differing == []


def test_values_are_python_types(cli_imports):
    seen = set()
    for path in cli_imports:
        for key, value in module_result(path).items():
            seen.add(type(value))
            if key in ("Author", "Tags", "EmailAddresses", "PhoneNumbers"):
                assert isinstance(value, list) and all(isinstance(item, str) for item in value)
            if key.endswith("Date"):
                assert isinstance(value, datetime.datetime) and value.tzinfo is not None
    assert {str, int, list, datetime.datetime} <= seen


def test_import_tree_keeps_the_order_of_one_job(cli_imports):
    # However many cores a document's pages may use, the answers are the same.
    for jobs, cores in ((1, None), (3, None), (1, 0), (2, 1)):
        answers = list(ulvekbot.import_tree(DATA, jobs=jobs, cores=cores))
        assert [path for path, _ in answers] == list(cli_imports)
        assert {path: comparable(without_conversion_dates(result))
                for path, result in answers} == cli_imports


def test_import_tree_lists_what_it_could_not_read_in_its_place():
    named = [MISSING, SAMPLE, os.path.join(DATA, "vcf")]
    answers = {path: comparable(result) for path, result in ulvekbot.import_tree(named, jobs=2)}
    assert answers == cli_results("import", "-q", "-j", "1", *named)
    assert answers[MISSING] == {"Error": {"kind": "not-found", "message": "No such file or directory"}}


def test_threads_importing_at_once_give_the_same_answers(cli_imports):
    paths = list(cli_imports) * 2
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        answers = list(pool.map(module_result, paths))
    assert [comparable(answer) for answer in answers] == [cli_imports[path] for path in paths]


# (name, module call, command line arguments): the other functions against their commands.
BOOK = os.path.join(DATA, "epub")
ROWS = [
    ("attributes", lambda: ulvekbot.attributes(SAMPLE), ["attributes", SAMPLE]),
    ("directory", lambda: ulvekbot.import_directory(BOOK), ["directory", BOOK]),
    ("classify", lambda: ulvekbot.classify(SAMPLE), ["classify", "--json", SAMPLE]),
    ("classify a PDF", lambda: ulvekbot.classify(os.path.join(DATA, "pdf", "survey.pdf")),
     ["classify", "--json", os.path.join(DATA, "pdf", "survey.pdf")]),
]


@pytest.mark.parametrize("name,call,arguments", ROWS, ids=[row[0] for row in ROWS])
def test_functions_answer_their_commands(name, call, arguments):
    (line,) = cli_lines(*arguments)
    answer = comparable(call())
    if arguments[0] != "classify":
        line.pop("path")
    assert answer == line


def test_formats_answer_the_formats_command():
    assert comparable(ulvekbot.formats()) == cli_lines("formats", "--json")


# (name, call, expected kind): what fails raises Error with the kind the command line names.
FAILURES = [
    ("missing file", lambda: ulvekbot.import_file(MISSING), "not-found"),
    ("missing item's attributes", lambda: ulvekbot.attributes(MISSING), "not-found"),
    ("missing file's class", lambda: ulvekbot.classify(MISSING), "not-found"),
    ("damaged card", lambda: ulvekbot.import_file(os.path.join(DATA, "vcf", "damaged-no-card.vcf")),
     "damaged"),
]


@pytest.mark.parametrize("name,call,kind", FAILURES, ids=[row[0] for row in FAILURES])
def test_failures_raise_their_kind(name, call, kind):
    with pytest.raises(ulvekbot.Error) as raised:
        call()
    assert raised.value.kind == kind
    assert raised.value.message
    copy = pickle.loads(pickle.dumps(raised.value))
    assert (copy.kind, copy.message, copy.path, str(copy)) == (
        kind, raised.value.message, raised.value.path, str(raised.value))


def test_timeout_bounds_the_readers_as_the_time_limit_does():
    with tempfile.TemporaryDirectory() as folder:
        page = os.path.join(folder, "long.html")
        with open(page, "w") as out:
            out.write("<html><body>" + "<p>words and more words</p>" * 200000 + "</body></html>")
        with pytest.raises(ulvekbot.Error) as raised:
            ulvekbot.import_file(page, timeout=1e-6)
        (line,) = cli_lines("import", "--time-limit", "0.000001", page)
    assert raised.value.kind == line["Error"]["kind"] == "timed-out"
    assert len(raised.value.result["Text"]) < 200000 * len("words and more words")
    assert ulvekbot.import_file(SAMPLE, timeout=30)["Title"] == "Welcome to ulvekbot"


# The tests' user defaults turn OCR off; ocr= overrides them for one call, as the flags do.
@pytest.mark.parametrize("ocr, flags", [(None, []), (False, ["--no-ocr"]), (True, ["--ocr"])])
def test_ocr_is_chosen_per_call(ocr, flags):
    page = os.path.join(DATA, "ocr", "page.png")
    (line,) = cli_lines("import", *flags, page)
    line.pop("path")
    assert comparable(ulvekbot.import_file(page, ocr=ocr)) == line
    assert ("Text" in line) == (ocr is True)
    assert line.get("TextSource") == ("ocr" if ocr else None)


def test_arguments_are_checked():
    with pytest.raises(TypeError, match="ocr"):
        ulvekbot.import_file(SAMPLE, ocr="eng")
    with pytest.raises(ValueError, match="seconds"):
        ulvekbot.import_file(SAMPLE, timeout=0)
    with pytest.raises(ValueError, match="jobs"):
        list(ulvekbot.import_tree(SAMPLE, jobs=0))
    with pytest.raises(ValueError, match="cores"):
        list(ulvekbot.import_tree(SAMPLE, cores=-1))


def test_paths_data_and_questions():
    from pathlib import Path
    assert ulvekbot.import_file(Path(SAMPLE)) == ulvekbot.import_file(os.fsencode(SAMPLE))
    document = os.path.join(DATA, "wordprocessor", "rtf", "ledger.rtf")
    with open(document, "rb") as rtf:
        data = ulvekbot.import_data(rtf.read(), url="https://example.com/ledger.rtf?x=1")
    assert data["Title"] == ulvekbot.import_file(document)["Title"]
    assert data["Text"] == ulvekbot.import_file(document)["Text"]
    assert ulvekbot.import_data(b"x", mime_type="application/x-unknown") == {}
    assert ulvekbot.supports_file(os.path.join(DATA, "pdf", "survey.pdf")) is True
    assert ulvekbot.supports_file(SAMPLE) is False
    assert ulvekbot.is_plain_file(os.path.join(DATA, "rst", "make_fixtures.py")) is True
    assert ulvekbot.is_plain_file(os.path.join(DATA, "pdf", "survey.pdf")) is False


def test_help_reads_well():
    assert "Imports one file" in ulvekbot.import_file.__doc__
    assert "kind" in ulvekbot.Error.__doc__


CRASHING = textwrap.dedent("""
    import json, sys, ulvekbot
    folder = sys.argv[1]
    answers = {}
    for name in ("a.boom", "b.good"):
        try:
            result = ulvekbot.import_file(f"{folder}/{name}")
            answers[name] = {"Title": result["Title"], "Author": result["Author"]}
        except ulvekbot.Error as error:
            answers[name] = error.kind
    answers["tree"] = [result.get("Error", {}).get("kind")
                       for _, result in ulvekbot.import_tree(folder, jobs=2)]
    print(json.dumps(answers))
""")


def test_a_crashing_plugin_costs_one_file():
    with tempfile.TemporaryDirectory() as folder:
        plugin = os.path.join(BINARY_DIR, "tests", "test_importer_plugin.so")
        for n, (name, function, extension) in enumerate(
                [("Crash", "CrashFactory", "boom"), ("Good", "GoodFactory", "good")], start=1):
            bundle = os.path.join(folder, "Importers", f"{name}.mdimporter", "Contents")
            os.makedirs(os.path.join(bundle, "Linux"))
            shutil.copy(plugin, os.path.join(bundle, "Linux", f"{name}.so"))
            factory = f"00000000-0000-4000-8000-{n:012d}"
            info = {
                "CFBundleIdentifier": f"test.{function}",
                "CFBundleExecutable": f"{name}.so",
                "CFBundleDocumentTypes": [{"CFBundleTypeRole": "MDImporter",
                                           "LSItemContentTypes": ["com.example.none"]}],
                "UTExportedTypeDeclarations": [{"UTTypeTagSpecification": {
                    "public.filename-extension": [extension]}}],
                "CFPlugInFactories": {factory: function},
                "CFPlugInTypes": {"8B08C4BF-415B-11D8-B3F9-0003936726FC": [factory]},
            }
            with open(os.path.join(bundle, "Info.plist"), "wb") as out:
                plistlib.dump(info, out)
        documents = os.path.join(folder, "documents")
        os.makedirs(documents)
        # Bytes that no content test takes for text, so the extension's plug-in reads them.
        for name in ("a.boom", "b.good"):
            with open(os.path.join(documents, name), "wb") as out:
                out.write(b"\x00\x01\x02\x03\xff\xfe")
        # Importers are looked for once a process, so the plug-ins get a process of their own.
        env = dict(os.environ, ULVEKBOT_IMPORTER_PATH=os.path.join(folder, "Importers"),
                   XDG_DATA_HOME=os.path.join(folder, "data"))
        done = subprocess.run([sys.executable, "-c", CRASHING, documents], env=env,
                              capture_output=True, text=True, timeout=60, check=False)
        assert done.returncode == 0, done.stderr
        answers = json.loads(done.stdout)
    assert answers == {
        "a.boom": "importer-crashed",
        "b.good": {"Title": "Test title", "Author": ["Ann", "Bo"]},
        "tree": ["importer-crashed", None],
    }
