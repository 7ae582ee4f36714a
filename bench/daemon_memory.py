#!/usr/bin/env python3
"""Resident memory of one ulvekbotd64 over many requests, and of `ulvekbot import` over many files.

    dbus-run-session -- python3 bench/daemon_memory.py BUILD [REQUESTS] [FILES]

The daemon is started by the client library (as applications start it) and asked to import the
project's own documents (tests/data, every kind) in turn, REQUESTS times (10,000); its resident
memory is read after the first pass, when every reader and importer has been used once, and at
the end. Then the command line imports a folder of FILES small files (100,000) and a tenth of it;
its peak memory should not depend on the count.
"""
import ctypes, os, pathlib, subprocess, sys, tempfile, time

ROOT = pathlib.Path(__file__).resolve().parent.parent
build = pathlib.Path(sys.argv[1]).resolve()
requests = int(sys.argv[2]) if len(sys.argv) > 2 else 10_000
files = int(sys.argv[3]) if len(sys.argv) > 3 else 100_000


def resident_kb(pid):
    for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines():
        if line.startswith("VmRSS:"):
            return int(line.split()[1])
    return 0


def daemon_pid():
    for entry in pathlib.Path("/proc").iterdir():
        if entry.name.isdigit():
            try:
                if (entry / "comm").read_text().strip() == "ulvekbotd64":
                    return int(entry.name)
            except OSError:
                pass
    return None


# Scans are read by OCR only where asked: this measures memory, and OCR would take the hours.
config = tempfile.mkdtemp()
os.makedirs(os.path.join(config, "ulvekbot"))
with open(os.path.join(config, "ulvekbot", "defaults.plist"), "w") as defaults:
    defaults.write('<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0"><dict>'
                   '<key>DisableOCR</key><true/></dict></plist>\n')
os.environ["XDG_CONFIG_HOME"] = config

lib = ctypes.CDLL(str(build / "src" / "libulvekbot-client.so"))
lib.ulvekbot_client_new.restype = ctypes.c_void_p
lib.ulvekbot_client_new.argtypes = [ctypes.c_char_p]
lib.ulvekbot_client_free.argtypes = [ctypes.c_void_p]
lib.ulvekbot_client_import_file.argtypes = [ctypes.c_void_p, ctypes.c_char_p,
                                            ctypes.POINTER(ctypes.c_void_p)]
lib.ulvekbot_result_free.argtypes = [ctypes.c_void_p]

documents = sorted(str(p) for p in (ROOT / "tests" / "data").rglob("*")
                   if p.is_file() and not p.name.endswith((".json", ".py", ".txt.expect"))
                   and "hostile" not in p.parts and p.stat().st_size < 4 << 20)
client = lib.ulvekbot_client_new(str(build / "src" / "ulvekbotd64").encode())
result = ctypes.c_void_p()


def ask(count):
    for i in range(count):
        lib.ulvekbot_client_import_file(client, documents[i % len(documents)].encode(),
                                        ctypes.byref(result))
        if result:
            lib.ulvekbot_result_free(result)
            result.value = None


ask(len(documents))
pid = daemon_pid()
if not pid:
    sys.exit("no ulvekbotd64 running")
warm = resident_kb(pid)
started = time.monotonic()
ask(requests)
seconds = time.monotonic() - started
end = resident_kb(pid)
print(f"daemon: {requests} requests over {len(documents)} documents in {seconds:.1f} s; "
      f"resident {warm / 1024:.1f} MB after one pass, {end / 1024:.1f} MB after all: "
      f"grew {(end - warm) / 1024:.1f} MB", flush=True)
lib.ulvekbot_client_free(client)

with tempfile.TemporaryDirectory() as folder:
    root = pathlib.Path(folder)
    for i in range(files):
        sub = root / f"d{i // 1000:03}"
        if i % 1000 == 0:
            sub.mkdir()
        (sub / f"f{i % 1000:04}.txt").write_text(f"note {i} of the folder\n")
    for part, name in ((root / "d000", f"{min(files, 1000)} files"), (root, f"{files} files")):
        run = subprocess.run(["/usr/bin/time", "-f", "%M", str(build / "src" / "ulvekbot"),
                              "import", "-q", str(part)],
                             stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        peak = int(run.stderr.strip().splitlines()[-1])
        print(f"ulvekbot import, {name}: peak resident {peak / 1024:.1f} MB", flush=True)
