// PDF.mdimporter: PDF documents read with poppler, pages shared out to the cores and joined in
// reading order (what was read when the host's time runs out), with the document information;
// PostScript, EPS and Illustrator files are first turned into PDF by Ghostscript, run as a child
// with a time limit into a temporary folder of the service's own. Pages without text (scans), and
// scans whose only text is the invisible layer of a failed earlier OCR, are rendered in grey and
// read by Tesseract, within a time budget of their own.

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "importer_plugin.h"
#include "ocr_module.h"
#include "platform/open_beneath.h"
#include "platform/sandbox.h"
#include "poppler_text.h"
#include "text_layer.h"

extern char** environ;

namespace {

using ulvek::plugin::Attributes;
using ulvek::plugin::GreyPage;
using ulvek::plugin::PdfDocument;
namespace fs = std::filesystem;

// Ghostscript may take this long for one document; a PostScript loop must not hang the worker.
constexpr std::chrono::seconds kGhostscriptLimit{20};
using ulvek::plugin::pdf::kFewestLetters;
// A rendered page is at most this big, whatever size the page claims.
constexpr long long kMostPagePixels = 40'000'000;

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;
namespace ocr = ulvek::plugin::ocr;

// Document information as people read it: without the line ends some writers leave around it.
std::string info(std::string result) {
  std::size_t end = result.find_last_not_of(" \t\r\n");
  result.erase(end == std::string::npos ? 0 : end + 1);
  result.erase(0, result.find_first_not_of(" \t\r\n"));
  return result;
}

std::vector<std::string> keywords(const std::string& text) {
  std::vector<std::string> words;
  std::string word;
  for (char c : text + ",") {
    if (c == ',' || c == ';') {
      std::size_t first = word.find_first_not_of(" \t"), last = word.find_last_not_of(" \t");
      if (first != std::string::npos) words.push_back(word.substr(first, last - first + 1));
      word.clear();
    } else {
      word += c;
    }
  }
  return words;
}

// The service's temporary folder, as the service names it.
// The host gives its worker a temporary folder of its own in TMPDIR, removed when the worker
// goes; run elsewhere, the service's temporary folder.
std::string temporaryFolder() {
  std::string folder;
  if (const char* tmpdir = std::getenv("TMPDIR"); tmpdir && *tmpdir == '/') {
    folder = tmpdir;
  } else {
    const char* cache = std::getenv("XDG_CACHE_HOME");
    const char* home = std::getenv("HOME");
    std::string base =
        cache && *cache == '/' ? cache : std::string(home ? home : "/tmp") + "/.cache";
    folder = base + "/TemporaryItems/ulvekbot";
  }
  std::error_code error;
  fs::create_directories(folder, error);
  std::string pattern = folder + "/ps.XXXXXX";
  if (!::mkdtemp(pattern.data())) return "";
  return pattern;
}

// Ghostscript's pdfwrite of `path` into `output`; false on failure or after the time limit.
bool convertWithGhostscript(const std::string& path, const std::string& output) {
  std::string outputArgument = "-sOutputFile=" + output;
  std::vector<std::string> arguments = {"gs",           "-q",        "-dSAFER",
                                        "-dBATCH",      "-dNOPAUSE", "-sDEVICE=pdfwrite",
                                        outputArgument, "--",        path};
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  const std::string program = ulvek::sandbox::findProgram("gs");
  if (program.empty()) return false;
  // Forked rather than spawned, to die with the worker: a worker killed along with the service
  // has nobody left to end its process group. Only async-signal-safe calls before exec.
  const pid_t worker = ::getpid();
  const pid_t pid = ::fork();
  if (pid < 0) return false;
  if (pid == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != worker) ::_exit(127);
    const int input = ::open("/dev/null", O_RDONLY);
    const int output = ::open("/dev/null", O_WRONLY);
    if (input < 0 || output < 0 || ::dup2(input, STDIN_FILENO) < 0 ||
        ::dup2(output, STDOUT_FILENO) < 0)
      ::_exit(127);
    ::execve(program.c_str(), argv.data(), environ);
    ::_exit(127);
  }
  auto deadline = std::chrono::steady_clock::now() + kGhostscriptLimit;
  int status = 0;
  while (::waitpid(pid, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      ::kill(pid, SIGKILL);
      ::waitpid(pid, &status, 0);
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool isPostScript(const std::string& path) {
  std::string extension = fs::path(path).extension().string();
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return extension == ".ps" || extension == ".eps" || extension == ".ai" || extension == ".epsf";
}

// A PDF bundle (.pdfd, .lpdf) holds its document inside. Links are not followed, and the document
// is opened beneath the bundle (no link on the way) and read through its descriptor, so a link
// in a bundle never shows another file of the user's.
class BundleDocument {
 public:
  explicit BundleDocument(const std::string& path) {
    std::error_code error;
    if (!fs::is_directory(path, error)) {
      path_ = path;
      return;
    }
    for (auto it = fs::recursive_directory_iterator(path, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
      if (it->is_symlink(error)) continue;
      std::string extension = it->path().extension().string();
      if (extension != ".pdf" && extension != ".PDF") continue;
      fd_ = ulvek::openBeneath(path, fs::relative(it->path(), path, error).string(), O_RDONLY);
      if (fd_ >= 0) path_ = "/proc/self/fd/" + std::to_string(fd_);
      return;
    }
  }
  ~BundleDocument() {
    if (fd_ >= 0) ::close(fd_);
  }
  BundleDocument(const BundleDocument&) = delete;
  BundleDocument& operator=(const BundleDocument&) = delete;

  // The file to read, or "" when the bundle holds no document of its own.
  const std::string& path() const { return path_; }

 private:
  int fd_ = -1;
  std::string path_;
};

std::size_t letters(const std::string& text) {
  return std::count_if(text.begin(), text.end(),
                       [](char c) { return !std::isspace(static_cast<unsigned char>(c)); });
}

// A rendered page with nothing dark on it is blank: no reason to read it.
bool isBlank(const GreyPage& image) {
  for (int y = 0; y < image.height; ++y) {
    const unsigned char* row = image.pixels.data() + std::size_t(y) * image.rowBytes;
    for (int x = 0; x < image.width; ++x)
      if (row[x] < 128) return false;
  }
  return true;
}

// A page rendered in grey for Tesseract, at the resolution it was rendered at.
struct RenderedPage {
  GreyPage image;
  int dpi = 0;
};

// Page `index` of `document` in grey at `dpi` (less for pages too big for it); nothing for a
// blank page.
std::optional<RenderedPage> renderForReading(PdfDocument& document, int index, int dpi) {
  std::optional<ulvek::plugin::PageSize> box = document.cropBox(index);
  if (!box) return std::nullopt;
  double pixels = box->width / 72.0 * dpi * box->height / 72.0 * dpi;
  if (pixels > double(kMostPagePixels))
    dpi = static_cast<int>(dpi * std::sqrt(kMostPagePixels / pixels));
  if (dpi < 10) return std::nullopt;
  std::optional<GreyPage> image = document.grey(index, dpi);
  if (!image || isBlank(*image)) return std::nullopt;
  return RenderedPage{std::move(*image), dpi};
}

// Tesseract's reading of a rendered page; nothing where it reads nothing or not before
// `deadline`.
std::optional<std::string> recognizePage(const RenderedPage& page, ocr::Engine& engine,
                                         Clock::time_point deadline, bool& late) {
  const GreyPage& image = page.image;
  ocr::Reading reading = ocr::module()->readPixels(
      engine, image.pixels.data(), image.width, image.height, image.rowBytes, page.dpi, deadline);
  late = reading.timedOut;
  if (late || reading.text.empty()) return std::nullopt;
  return reading.text;
}

// The pages of `text` to read by OCR, in order: those without text of their own, and those whose
// only text is an invisible layer that failed. Only pages whose text looks failed are looked at
// for its visibility, so a document of good text costs nothing more.
std::vector<std::size_t> scannedPages(const ulvek::plugin::PagedText& text, PdfDocument& document,
                                      Clock::time_point deadline) {
  std::vector<std::size_t> scanned, suspect;
  for (std::size_t index = 0; index < text.pages.size(); ++index) {
    if (letters(text.pages[index]) < kFewestLetters)
      scanned.push_back(index);
    else if (ulvek::plugin::pdf::isFailedReading(text.pages[index]))
      suspect.push_back(index);
  }
  if (suspect.empty()) return scanned;
  std::vector<bool> invisible = ulvek::plugin::pdf::onlyInvisibleText(document, suspect, deadline);
  for (std::size_t at = 0; at < suspect.size(); ++at)
    if (invisible[at]) scanned.push_back(suspect[at]);
  std::sort(scanned.begin(), scanned.end());
  return scanned;
}

// The pages of `text` that have no text worth keeping, read by OCR until `deadline`, shared out
// to an engine and a poppler document a thread; what is read replaces a failed layer's text,
// which stays where OCR reads nothing. The pages after the first one not read in time are left
// out, as a stopped reading answers a beginning of the text. Answers the pages recognised.
int recognizeScannedPages(PdfDocument& document, ulvek::plugin::PagedText& text,
                          const ocr::Settings& settings, unsigned threadsAllowed,
                          Clock::time_point deadline, const std::string& path) {
  const std::vector<std::size_t> scanned = scannedPages(text, document, deadline);
  if (scanned.empty()) return 0;
  const std::string languages =
      settings.languages.empty() ? ocr::defaultLanguages() : settings.languages;
  const unsigned threads =
      std::min<unsigned>(threadsAllowed, static_cast<unsigned>(scanned.size()));
  // The engines are loaded when a page first shows something to read: blank pages load no model.
  std::once_flag loading;
  std::vector<ocr::Engine*> engines;
  auto engineOf = [&](std::size_t thread) -> ocr::Engine* {
    std::call_once(loading, [&] {
      if (const ocr::Module* loaded = ocr::module()) engines = loaded->several(languages, threads);
    });
    return thread < engines.size() ? engines[thread] : nullptr;
  };

  struct PageReading {
    std::optional<std::string> text;
    bool tried = false;
    bool late = false;
  };
  std::vector<PageReading> readings(scanned.size());
  std::atomic<std::size_t> next{0};
  auto readPages = [&](PdfDocument& own, std::size_t thread) {
    for (std::size_t at; (at = next.fetch_add(1)) < scanned.size();) {
      PageReading& reading = readings[at];
      const int index = static_cast<int>(scanned[at]);
      if (std::optional<RenderedPage> rendered =
              renderForReading(own, index, settings.resolution)) {
        ocr::Engine* engine = engineOf(thread);
        // Without a model nothing more is read here; a thread left without an engine of its own
        // (memory ran out after the first) leaves its page as the text layer had it.
        if (!engine) return;
        reading.text = recognizePage(*rendered, *engine, deadline, reading.late);
      }
      reading.tried = true;
      // Pages after a late one would be left out anyway.
      if (reading.late) next = scanned.size();
    }
  };
  {
    std::vector<std::jthread> helpers;
    for (std::size_t t = 1; t < threads; ++t)
      helpers.emplace_back([&, t] {
        // poppler's documents are not shared between threads.
        if (std::unique_ptr<PdfDocument> own = PdfDocument::fromFile(path)) readPages(*own, t);
      });
    readPages(document, 0);
  }

  // Every page before the first late one was taken before it, and read.
  const std::size_t cut = static_cast<std::size_t>(
      std::find_if(readings.begin(), readings.end(), [](const PageReading& r) { return r.late; }) -
      readings.begin());
  int recognized = 0, tried = 0;
  for (std::size_t at = 0; at < cut; ++at) {
    if (!readings[at].tried) continue;
    ++tried;
    if (!readings[at].text) continue;
    text.pages[scanned[at]] = std::move(*readings[at].text);
    ++recognized;
  }
  if (cut < scanned.size()) {
    std::fprintf(stderr, "OCR: time limit reached after %d pages of %s\n", tried, path.c_str());
    text.pages.resize(scanned[cut]);
    text.complete = false;
  }
  if (tried > 0) ocr::logReading(path, tried, languages);
  return recognized;
}

// Reads the document information; `ownDates` false leaves out the dates of a PDF that was made
// here from another document, which are only the time of the conversion.
bool readPDF(Attributes& out, const std::string& path, bool ownDates = true) {
  PdfDocument::Opening opening = PdfDocument::Opening::unreadable;
  std::unique_ptr<PdfDocument> document = PdfDocument::fromFile(path, &opening);
  // An owner password alone still lets anyone read; a user password keeps the text closed.
  if (opening == PdfDocument::Opening::locked) {
    out.string("kMDItemSecurityMethod", "Password Encrypted");
    return true;
  }
  if (!document) return false;
  if (document->encrypted()) out.string("kMDItemSecurityMethod", "Password Encrypted");
  const ulvek::plugin::DocumentInfo about = document->info();
  out.string("kMDItemTitle", info(about.title));
  std::string author = info(about.author);
  if (!author.empty()) out.strings("kMDItemAuthors", {author});
  out.string("kMDItemDescription", info(about.subject));
  out.strings("kMDItemKeywords", keywords(info(about.keywords)));
  out.string("kMDItemCreator", info(about.creator));
  out.string("kMDItemProducer", info(about.producer));
  if (ownDates && about.created > 0) out.date("kMDItemContentCreationDate", double(about.created));
  if (ownDates && about.modified > 0)
    out.date("kMDItemContentModificationDate", double(about.modified));
  out.integer("kMDItemNumberOfPages", document->pages());
  if (std::optional<ulvek::plugin::PageSize> box = document->mediaBox(0)) {
    out.number("kMDItemPageWidth", box->width);
    out.number("kMDItemPageHeight", box->height);
  }
  // What the host allows, less a share for sending the answer (at least 50 ms, which a busy
  // machine may take to schedule the worker at all): a stopped reading still answers. The host
  // adds OCR's budget to its time where OCR may run; the text layer keeps the rest.
  const ocr::Settings settings = ocr::settingsOf(out);
  const auto started = Clock::now();
  std::optional<Clock::time_point> deadline, ocrDeadline;
  if (auto left = out.timeLeft()) {
    Seconds reserve = std::clamp(*left * 0.15, Seconds(0.05), Seconds(1.0));
    Seconds ocrShare = settings.enabled ? std::min(settings.timeLimit, *left * 0.5) : Seconds(0);
    deadline = started + std::chrono::duration_cast<Clock::duration>(*left - reserve - ocrShare);
    ocrDeadline = started + std::chrono::duration_cast<Clock::duration>(*left - reserve);
  }
  const unsigned threads = ulvek::plugin::pageThreads(out.setting("ImporterThreads"));
  ulvek::plugin::PagedText text =
      ulvek::plugin::documentTextInParallel(*document, path, threads, deadline);
  if (!text.complete)
    std::fprintf(stderr, "time limit reached after %d of %d pages of %s\n", text.pagesRead,
                 document->pages(), path.c_str());
  if (settings.enabled) {
    Clock::time_point budget =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(settings.timeLimit);
    if (ocrDeadline) budget = std::min(budget, *ocrDeadline);
    if (int recognized = recognizeScannedPages(*document, text, settings, threads, budget, path)) {
      int withText = 0;
      text.text.clear();
      for (const std::string& page : text.pages) {
        if (page.empty()) continue;
        ++withText;
        text.text += page;
        text.text += '\n';
      }
      out.string(ulvek::plugin::kTextSource, recognized == withText ? "ocr" : "mixed");
    }
  }
  out.string("kMDItemTextContent", text.text);
  return true;
}

// The "%%CreationDate:" of a PostScript file's header comments (after the binary header of a DOS
// EPS), in the forms writers use: a PDF date ("D:20190412093000Z", cairo, Ghostscript), ctime
// ("Fri Apr 12 09:30:00 2019", dvips, groff, matplotlib), ISO 8601, or "4/12/2019 9:30:00"
// (Windows drivers). A date without a zone is taken as UTC. Nothing for anything else.
std::optional<time_t> postScriptCreationDate(const std::string& path) {
  constexpr std::size_t kHeaderBytes = 64 * 1024;
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) return std::nullopt;
  std::string head(kHeaderBytes, '\0');
  head.resize(std::fread(head.data(), 1, head.size(), file));
  if (head.size() >= 12 && head.compare(0, 4, "\xC5\xD0\xD3\xC6") == 0) {
    auto byte = [&](std::size_t at) { return std::uint32_t(std::uint8_t(head[at])); };
    long start = long(byte(4) | byte(5) << 8 | byte(6) << 16 | byte(7) << 24);
    head.assign(kHeaderBytes, '\0');
    head.resize(
        std::fseek(file, start, SEEK_SET) == 0 ? std::fread(head.data(), 1, head.size(), file) : 0);
  }
  std::fclose(file);

  std::optional<std::string> value;
  for (std::size_t at = 0; at < head.size();) {
    std::size_t end = std::min(head.find_first_of("\r\n", at), head.size());
    std::string_view line(head.data() + at, end - at);
    at = end + 1;
    if (line.starts_with("%%EndComments") || (!line.empty() && !line.starts_with("%"))) break;
    if (!line.starts_with("%%CreationDate:")) continue;
    value = std::string(line.substr(std::strlen("%%CreationDate:")));
    break;
  }
  if (!value) return std::nullopt;
  std::size_t first = value->find_first_not_of(" \t");
  std::size_t last = value->find_last_not_of(" \t");
  if (first == std::string::npos) return std::nullopt;
  *value = value->substr(first, last - first + 1);
  if (value->size() >= 2 && value->front() == '(' && value->back() == ')')
    *value = value->substr(1, value->size() - 2);

  if (value->starts_with("D:")) {
    time_t date = ulvek::plugin::pdfDate(*value);
    return date > 0 ? std::optional(date) : std::nullopt;
  }
  for (const char* format : {"%a %b %d %H:%M:%S %Y", "%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M:%S",
                             "%Y-%m-%d", "%m/%d/%Y %H:%M:%S", "%m/%d/%Y %H:%M", "%m/%d/%Y"}) {
    struct tm parts {};
    const char* rest = ::strptime(value->c_str(), format, &parts);
    if (!rest) continue;
    while (*rest == ' ') ++rest;
    if (*rest == 'Z' && rest[1] == '\0') ++rest;
    if (*rest != '\0') continue;
    time_t date = ::timegm(&parts);
    if (date > 0) return date;
  }
  return std::nullopt;
}

bool readDocument(Attributes& out, const char* path) {
  if (!isPostScript(path)) {
    BundleDocument document(path);
    return !document.path().empty() && readPDF(out, document.path());
  }
  std::string folder = temporaryFolder();
  if (folder.empty()) return false;
  std::string converted = folder + "/converted.pdf";
  bool read = convertWithGhostscript(path, converted) && readPDF(out, converted, false);
  std::error_code error;
  fs::remove_all(folder, error);
  if (!read) return false;
  if (std::optional<time_t> created = postScriptCreationDate(path))
    out.date("kMDItemContentCreationDate", double(*created));
  return true;
}

bool importPDF(Attributes& out, const char*, const char* path) {
  ulvek::plugin::PopplerMessages::tellAbout(path);
  bool read = readDocument(out, path);
  ulvek::plugin::PopplerMessages::finish(read);
  return read;
}

}  // namespace

ULVEK_EXPORT_IMPORTER_FACTORY(UlvekPDFImporterFactory, importPDF)
