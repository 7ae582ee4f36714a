#pragma once

// Page text as the PDF and Mail importers take it from poppler, one way for both.

#include <poppler/cpp/poppler-document.h>
#include <poppler/cpp/poppler-page.h>

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace ulvek::plugin {

// poppler's UTF-8, without the NUL units some strings end in.
inline std::string utf8(const poppler::ustring& text) {
  poppler::byte_array bytes = text.to_utf8();
  std::string result(bytes.begin(), bytes.end());
  while (!result.empty() && result.back() == '\0') result.pop_back();
  return result;
}

// One page in reading order, as pdftotext reads by default, without the form feed and line ends
// it ends with.
inline std::string pageText(poppler::page& page) {
  std::string text = utf8(page.text(poppler::rectf(), poppler::page::non_raw_non_physical_layout));
  while (!text.empty() && (text.back() == '\f' || text.back() == '\n')) text.pop_back();
  return text;
}

// The pages' texts, each followed by a line feed; pages without text are left out. Reading stops
// once `limit` bytes have been gathered.
inline std::string documentText(poppler::document& document,
                                std::size_t limit = std::string::npos) {
  std::string text;
  for (int index = 0; index < document.pages() && text.size() < limit; ++index) {
    std::unique_ptr<poppler::page> page(document.create_page(index));
    if (!page) continue;
    std::string onPage = pageText(*page);
    if (onPage.empty()) continue;
    text += onPage;
    text += '\n';
  }
  return text;
}

// The cores this process may run on; ULVEKBOT_PDF_THREADS overrides (benchmarks compare).
inline unsigned pageThreads() {
  if (const char* wanted = std::getenv("ULVEKBOT_PDF_THREADS"); wanted && *wanted)
    return std::clamp(std::atoi(wanted), 1, 64);
  cpu_set_t cores;
  if (sched_getaffinity(0, sizeof cores, &cores) != 0) return 1;
  return std::clamp(CPU_COUNT(&cores), 1, 8);
}

struct PagedText {
  std::string text;  // as documentText gives it, pages in order
  int pagesRead = 0;
  bool complete = true;  // every page was read before the deadline
};

// The text of `document` (loaded from `path`), its pages shared out to `threads` threads, each
// with a document of its own from `path` (one poppler document is never used by two threads).
// Pages are taken in order; at `deadline` the threads stop and the pages read up to the first
// page not read are answered. Short documents are read on this thread alone.
inline PagedText documentTextInParallel(
    poppler::document& document, const std::string& path, unsigned threads,
    std::optional<std::chrono::steady_clock::time_point> deadline = std::nullopt) {
  constexpr int kPagesPerThread = 16;
  const int count = document.pages();
  std::vector<std::string> pages(std::max(count, 0));
  std::vector<char> done(pages.size(), 0);
  std::atomic<int> next{0};
  std::atomic<bool> late{false};
  auto readPages = [&](poppler::document& own) {
    for (int index; (index = next.fetch_add(1)) < count;) {
      if (deadline && std::chrono::steady_clock::now() >= *deadline) {
        late = true;
        return;
      }
      if (std::unique_ptr<poppler::page> page(own.create_page(index)); page)
        pages[index] = pageText(*page);
      done[index] = 1;
    }
  };
  unsigned helpers = std::min<unsigned>(threads, std::max(1, count / kPagesPerThread)) - 1;
  std::vector<std::thread> running;
  for (unsigned i = 0; i < helpers; ++i) {
    running.emplace_back([&] {
      std::unique_ptr<poppler::document> own(poppler::document::load_from_file(path));
      if (own && !own->is_locked()) readPages(*own);
    });
  }
  readPages(document);
  for (std::thread& thread : running) thread.join();
  // The pages up to the first one not read: a stopped reading answers a beginning of the text.
  PagedText result;
  for (std::size_t index = 0; index < pages.size(); ++index) {
    if (!done[index]) {
      result.complete = false;
      break;
    }
    ++result.pagesRead;
    if (pages[index].empty()) continue;
    result.text += pages[index];
    result.text += '\n';
  }
  if (late) result.complete = false;
  return result;
}

}  // namespace ulvek::plugin
