// The bundled importers' kinds through `ulvekbot import` (one process for all files of a kind,
// the importers in their worker) against what a user would otherwise run on the same files:
// exiftool for images and audio, Python's email module for mail, the librevenge tools for iWork
// and old Mac documents. Whole processes, side by side, best of three; ratios at the end.
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

const fs::path kCorpus = fs::path(ULVEK_CORPUS_DIR) / "docs";
const std::string kUlvekbot = std::string(ULVEK_BINARY_DIR) + "/src/ulvekbot";

std::string shellQuoted(const std::string& text) {
  std::string result = "'";
  for (char c : text) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return result + "'";
}

std::vector<std::string> files(const std::vector<std::string>& folders) {
  std::vector<std::string> found;
  for (const std::string& folder : folders) {
    if (!fs::exists(kCorpus / folder)) continue;
    for (const auto& entry : fs::directory_iterator(kCorpus / folder)) {
      std::string name = entry.path().filename().string();
      if (name.ends_with(".json") || name.starts_with("._") || name.starts_with("damaged-") ||
          name.ends_with(".hqx"))
        continue;
      found.push_back(entry.path().string());
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

// Best of three runs of a shell command, in milliseconds; negative when it could not run.
double milliseconds(const std::string& command) {
  double best = -1;
  for (int run = 0; run < 3; ++run) {
    auto start = std::chrono::steady_clock::now();
    int status = std::system((command + " >/dev/null 2>&1").c_str());
    double elapsed =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) == 127) return -1;
    best = best < 0 ? elapsed : std::min(best, elapsed);
  }
  return best;
}

std::string joined(const std::vector<std::string>& paths) {
  std::string list;
  for (const std::string& path : paths) list += " " + shellQuoted(path);
  return list;
}

// One process per file, as these tools take one document each.
std::string eachFile(const std::vector<std::string>& paths, const std::string& tool) {
  std::string script = "for f in" + joined(paths) + "; do " + tool + " \"$f\"; done";
  return "sh -c " + shellQuoted(script);
}

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
