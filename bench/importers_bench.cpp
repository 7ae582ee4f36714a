// The bundled importers' kinds through `ulvekbot import` (one process for all files of a kind,
// the importers in their worker) against what a user would otherwise run on the same files:
// exiftool for images and audio, Python's email module for mail, the librevenge tools for iWork
// and old Mac documents. Whole processes, side by side, best of three; ratios at the end.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "bench_support.h"

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
  std::string peerName;
  std::string (*peer)(const std::vector<std::string>&);
};

}  // namespace

int main() {
  const Kind kinds[] = {
      {"images",
       {"jpeg", "png", "tiff", "heic"},
       "exiftool",
       [](const std::vector<std::string>& paths) { return "exiftool -j -fast" + joined(paths); }},
      {"audio",
       {"mp3", "flac", "ogg", "m4a"},
       "exiftool",
       [](const std::vector<std::string>& paths) { return "exiftool -j -fast" + joined(paths); }},
      {"mail",
       {"eml", "emlx"},
       "python3 email",
       [](const std::vector<std::string>& paths) {
         return "/usr/bin/python3 -c " + shellQuoted(kPythonMail) + joined(paths);
       }},
      {"pages",
       {"pages"},
       "pages2text",
       [](const std::vector<std::string>& paths) { return eachFile(paths, "pages2text"); }},
      {"keynote",
       {"key"},
       "key2text",
       [](const std::vector<std::string>& paths) { return eachFile(paths, "key2text"); }},
      {"numbers",
       {"numbers"},
       "numbers2text",
       [](const std::vector<std::string>& paths) { return eachFile(paths, "numbers2text"); }},
      {"classic Mac",
       {"mac-legacy"},
       "mwaw2text",
       [](const std::vector<std::string>& paths) { return eachFile(paths, "mwaw2text"); }},
  };
  std::printf("%-12s %6s %12s %-14s %12s %8s\n", "kind", "files", "ulvekbot ms", "peer", "peer ms",
              "ratio");
  for (const Kind& kind : kinds) {
    std::vector<std::string> paths = files(kind.folders);
    if (paths.empty()) continue;
    double ours = milliseconds(kUlvekbot + " import" + joined(paths));
    double theirs = milliseconds(kind.peer(paths));
    std::printf("%-12s %6zu %12.1f %-14s %12.1f %7.1fx\n", kind.name, paths.size(), ours,
                kind.peerName.c_str(), theirs, ours > 0 && theirs > 0 ? theirs / ours : 0.0);
  }
  return 0;
}
