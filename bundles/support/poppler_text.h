#pragma once

// Page text as the PDF and Mail importers take it from poppler, one way for both.

#include <poppler/Error.h>

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "pdf_document.h"

namespace ulvek::plugin {

// poppler's complaints, as log lines naming the file they came from; a damaged document can make
// thousands, so only the first few of each file are told. They are held until the reading ends:
// a document that could not be opened at all gets its one "cannot read" line instead. poppler
// calls from any thread that reads pages.
class PopplerMessages {
 public:
  static constexpr std::size_t kMost = 10;

  // From now on poppler's messages are about `origin` ("PDF importer: /x.pdf").
  static void tellAbout(std::string origin) {
    PopplerMessages& messages = instance();
    {
      std::lock_guard lock(messages.mutex_);
      messages.origin_ = std::move(origin);
      messages.held_.clear();
      messages.count_ = 0;
    }
    setErrorCallback(&PopplerMessages::hold);
  }

  // Writes what was held (`tell`), or forgets it.
  static void finish(bool tell) {
    PopplerMessages& messages = instance();
    std::lock_guard lock(messages.mutex_);
    if (tell) {
      for (const std::string& text : messages.held_)
        std::fprintf(stderr, "%s: %s\n", messages.origin_.c_str(), text.c_str());
      if (messages.count_ > messages.held_.size())
        std::fprintf(stderr, "%s: %zu more messages\n", messages.origin_.c_str(),
                     messages.count_ - messages.held_.size());
    }
    messages.held_.clear();
    messages.count_ = 0;
  }

 private:
  static PopplerMessages& instance() {
    static PopplerMessages messages;
    return messages;
  }

  static void hold(ErrorCategory, Goffset position, const char* message) {
    PopplerMessages& messages = instance();
    std::lock_guard lock(messages.mutex_);
    if (messages.count_++ >= kMost) return;
    messages.held_.push_back(position >= 0 ? "error (" + std::to_string(position) + "): " + message
                                           : std::string("error: ") + message);
  }

  std::mutex mutex_;
  std::string origin_;
  std::vector<std::string> held_;
  std::size_t count_ = 0;
};

// The pages' texts, each followed by a line feed; pages without text are left out. Reading stops
// once `limit` bytes have been gathered.
inline std::string documentText(PdfDocument& document, std::size_t limit = std::string::npos) {
  std::string text;
  for (int index = 0; index < document.pages() && text.size() < limit; ++index) {
    std::string onPage = document.text(index);
    if (onPage.empty()) continue;
    text += onPage;
    text += '\n';
  }
  return text;
}

// The threads one import may use: ULVEKBOT_PDF_THREADS (benchmarks compare), else `granted`, the
// host's share of the cores for this call, else the cores this process may run on.
inline unsigned pageThreads(std::optional<std::string> granted = std::nullopt) {
  if (const char* wanted = std::getenv("ULVEKBOT_PDF_THREADS"); wanted && *wanted)
    return std::clamp(std::atoi(wanted), 1, 64);
  if (granted && !granted->empty()) return std::clamp(std::atoi(granted->c_str()), 1, 64);
  cpu_set_t cores;
  if (sched_getaffinity(0, sizeof cores, &cores) != 0) return 1;
  return std::clamp(CPU_COUNT(&cores), 1, 8);
}

struct PagedText {
  std::string text;                // as documentText gives it, pages in order
  std::vector<std::string> pages;  // the text of each page read, in order
  int pagesRead = 0;
  bool complete = true;  // every page was read before the deadline
};

// The text of `document`, opened from `path`, its pages shared out to `threads` threads: this one
// with `document`, the others each with a document of its own opened from `path` (one poppler
// document is never used by two threads). Pages are taken in order; at `deadline` the threads
// stop and the pages read up to the first page not read are answered. Short documents are read
// on this thread alone.
inline PagedText documentTextInParallel(
    PdfDocument& document, const std::string& path, unsigned threads,
    std::optional<std::chrono::steady_clock::time_point> deadline = std::nullopt) {
  constexpr int kPagesPerThread = 16;
  const int count = document.pages();
  std::vector<std::string> pages(std::max(count, 0));
  std::vector<char> done(pages.size(), 0);
  std::atomic<int> next{0};
  std::atomic<bool> late{false};
  auto readPages = [&](PdfDocument& own) {
    for (int index; (index = next.fetch_add(1)) < count;) {
      if (deadline && std::chrono::steady_clock::now() >= *deadline) {
        late = true;
        return;
      }
      pages[index] = own.text(index);
      done[index] = 1;
    }
  };
  unsigned helpers = std::min<unsigned>(threads, std::max(1, count / kPagesPerThread)) - 1;
  std::vector<std::thread> running;
  for (unsigned i = 0; i < helpers; ++i) {
    running.emplace_back([&] {
      if (std::unique_ptr<PdfDocument> own = PdfDocument::fromFile(path)) readPages(*own);
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
    result.pages.push_back(pages[index]);
    if (pages[index].empty()) continue;
    result.text += pages[index];
    result.text += '\n';
  }
  if (late) result.complete = false;
  return result;
}

}  // namespace ulvek::plugin
