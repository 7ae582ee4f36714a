// The bundled importers' kinds through `ulvekbot import` (the importers in their worker) against
// what a user would otherwise run on the same files: exiftool for images and audio, Python's
// email module for mail, the librevenge tools for iWork and old Mac documents. Whole processes,
// best of three, side by side: one process per file on both sides, then one process for all
// files against the peer's batch mode where it has one.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bench_support.h"
#include "importers/metadata_importer.h"

namespace {

using namespace ulvek::bench;

const char* kPythonMail =
    "import email, email.policy, sys\n"
    "for p in sys.argv[1:]:\n"
    "    data = open(p, 'rb').read()\n"
    "    if p.endswith('.emlx'): data = data.split(b'\\n', 1)[1]\n"
    "    m = email.message_from_bytes(data, policy=email.policy.default)\n"
    "    b = m.get_body(('plain', 'html'))\n"
    "    _ = (m['subject'], m['from'], m['to'], m['date'], b.get_content() if b else '')\n";

struct Kind {
  const char* name;
  std::vector<std::string> folders;
  Peer peer;
};

// What the worker adds to one importer call: a small file that is no audio, which the Media
// importer gives up on at once, asked for many times of the running worker.
void workerCallCost() {
  const std::string notAudio = (fs::temp_directory_path() / "ulvek-worker-bench.mp3").string();
  std::ofstream(notAudio) << "no audio in here";
  // The build's bundles and worker; this program does not live beside them.
  setenv("ULVEKBOT_IMPORTER_PATH", (std::string(ULVEK_BINARY_DIR) + "/src/Importers").c_str(), 1);
  setenv("ULVEKBOT_IMPORTER_WORKER",
         (std::string(ULVEK_BINARY_DIR) + "/src/ulvekbot-importer-worker").c_str(), 1);
  ulvek::MetaDataImporter& importer = ulvek::MetaDataImporter::sharedImporter();
  if (!importer.importerForFile(notAudio)) {
    std::printf("no importer for %s: the worker's cost is not measured\n", notAudio.c_str());
    fs::remove(notAudio);
    return;
  }
  importer.metaDataOfFileAtPath(notAudio);  // starts the worker and loads the bundles
  constexpr int kCalls = 500;
  auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kCalls; ++i) importer.metaDataOfFileAtPath(notAudio);
  double perCall =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count() /
      kCalls;
  std::printf("importer call through the worker, importer doing nothing: %.3f ms (aim < 0.3)\n",
              perCall);
  fs::remove(notAudio);
}

}  // namespace

int main(int argc, char** argv) {
  // `importers_bench worker` measures only the worker's cost.
  workerCallCost();
  if (argc > 1 && std::string(argv[1]) == "worker") return 0;
  std::printf("\n");
  const Kind kinds[] = {
      {"images",
       {"jpeg", "png", "tiff", "heic"},
       {"exiftool",
        [](const std::vector<std::string>& paths) { return eachFile(paths, "exiftool -j -fast"); },
        [](const std::vector<std::string>& paths) { return "exiftool -j -fast" + joined(paths); }}},
      {"audio",
       {"mp3", "flac", "ogg", "m4a"},
       {"exiftool",
        [](const std::vector<std::string>& paths) { return eachFile(paths, "exiftool -j -fast"); },
        [](const std::vector<std::string>& paths) { return "exiftool -j -fast" + joined(paths); }}},
      {"mail",
       {"eml", "emlx"},
       {"python3 email",
        [](const std::vector<std::string>& paths) {
          return eachFile(paths, "/usr/bin/python3 -c " + shellQuoted(kPythonMail));
        },
        [](const std::vector<std::string>& paths) {
          return "/usr/bin/python3 -c " + shellQuoted(kPythonMail) + joined(paths);
        }}},
      {"pages",
       {"pages"},
       {"pages2text",
        [](const std::vector<std::string>& paths) { return eachFile(paths, "pages2text"); }}},
      {"keynote",
       {"key"},
       {"key2text",
        [](const std::vector<std::string>& paths) { return eachFile(paths, "key2text"); }}},
      {"numbers",
       {"numbers"},
       {"numbers2text",
        [](const std::vector<std::string>& paths) { return eachFile(paths, "numbers2text"); }}},
      {"classic Mac",
       {"mac-legacy"},
       {"mwaw2text",
        [](const std::vector<std::string>& paths) { return eachFile(paths, "mwaw2text"); }}},
  };
  printComparisonHeader();
  for (const Kind& kind : kinds) {
    std::vector<std::string> paths = files(kind.folders);
    if (!paths.empty()) printComparison(kind.name, paths, {kind.peer});
  }

  return 0;
}
