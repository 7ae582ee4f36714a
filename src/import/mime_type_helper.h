#pragma once

#include <optional>
#include <string>

#include "base/failure.h"
#include "base/property_value.h"
#include "base/status.h"
#include "import/reader_set.h"
#include "protocol/import_result.h"
#include "text/html_meta.h"

namespace ulvek {

// What an import learnt beyond its result, for the command line.
struct ImportDetails {
  std::optional<std::string> contentType;  // the type the import went by
  std::optional<Failure> failure;          // why the file was not read; nothing when it was
  std::optional<std::string> textSource;   // "ocr" or "mixed" where the text was recognised
};

// The service's root object: the eight remote operations and the internal ones they share.
// Keeps no state between requests. Paths are file-system paths (bytes, usually UTF-8).
class MIMETypeHelper {
 public:
  static constexpr std::string_view kClassName = "MIMETypeHelper";

  // The readers it routes to: the built-in ones, or a test's own set (kept by reference).
  explicit MIMETypeHelper(const ReaderSet& readers = ReaderSet::builtin()) : readers_(readers) {}
  const ReaderSet& readers() const { return readers_; }

  // Remote interface.
  ImportResult openFile(const std::string& path);
  ImportResult openDirectory(const std::string& path);
  ImportResult openAttributes(const std::string& path);
  ImportResult openData(const std::optional<Data>& data, const std::optional<TextString>& url,
                        const std::optional<TextString>& mimeType);
  // openData over bytes the caller keeps (a mapped memory file), without copying them.
  ImportResult openDataBytes(std::optional<Bytes> data, const std::optional<TextString>& url,
                             const std::optional<TextString>& mimeType);
  bool supportsFile(const std::string& path);
  bool isPlainFile(const std::string& path);

  // openFile, also answering the content type that the import went by (for the command line,
  // whose lines name it; the remote result keeps its keys).
  ImportResult openFile(const std::string& path, std::optional<std::string>& contentType);
  // openFile, also answering why the file could not be read, where it could not.
  ImportResult openFile(const std::string& path, ImportDetails& details);

  // The process's own temporary folder, made at a service's start (which sweeps what ended
  // processes left behind) and removed at its orderly end.
  static Status prepareTemporaryItems();
  static void removeTemporaryItems();

  // Internal: the comment of an item from its stored attributes, else from the metadata index.
  std::optional<TextString> getFinderCommentAtPath(const std::string& path,
                                                   const PropertyDictionary* xattributes) const;

  // Internal: maps an HTML page's meta attributes (title, description, author, keywords) into the
  // result with put-if-present, each key from the first of its meta names present; absent or
  // empty meta writes nothing.
  static void copyHTMLMetaAttributes(const HtmlMetaAttributes* meta, ImportResult& result);

  // Internal: maps a reader's properties into the result with put-if-present, by the rules of
  // the convention the reader follows, and answers the text the reader found.
  static std::optional<TextString> copyReaderOutput(ReaderOutput& output, ImportResult& result);

  // The reader an import of the planned file asks first; nothing where the dispatcher reads the
  // file itself or no reader is built. `ulvekbot classify` names it.
  const Reader* plannedReader(const ImportPlan& plan) const {
    Route route = plan.readingRoute();
    if (route == Route::Registered) return readers_.named(plan.registeredReader);
    return routeInfo(route).hasReader ? readers_.readerFor(route) : nullptr;
  }

  // Internal: the reader of a route, or nothing with one log line when none is built.
  const Reader* readerFor(Route route, const std::string& path) const;

 private:
  const ReaderSet& readers_;
};

}  // namespace ulvek
