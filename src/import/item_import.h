#pragma once

// One item imported as the command line shows it and the Python module answers it: the result
// with its lists as arrays, and what the line says beside it (the content type, the failure).

#include <cstdint>
#include <deque>
#include <filesystem>
#include <limits>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/failure.h"
#include "base/property_value.h"
#include "import/mime_type_helper.h"
#include "protocol/import_result.h"

namespace ulvek {

struct ItemOptions {
  static constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();
  std::size_t maxText = kNoLimit;  // bytes of UTF-8 kept of the text
  double timeLimit = 0;            // seconds of in-process reading; 0: none
  std::optional<bool> ocr;         // read scans by OCR or not; nothing: the settings decide
  std::size_t cores = 0;           // an importer may use; 0: every usable core
};

struct ItemAnswer {
  ImportResult result;       // as the service answers it, the text cut to maxText
  PropertyDictionary extra;  // "ContentType", "MIMEType", "Error", as the line ends
  std::optional<Failure> failure;
  bool logged = false;  // a log line said the failure already
  std::uint64_t bytes = 0;
  bool byNature = false;  // no text, and none expected (images, sound, video, archives)

  TextView textOrEmpty() const {
    const TextString* text = result.string(ImportKey::Text);
    return text ? TextView(*text) : TextView();
  }
};

// Imports a file (by absolute path, as the service is given it). Safe on several threads at once.
ItemAnswer importItem(MIMETypeHelper& helper, const std::string& path, const ItemOptions& options);
// The answer of an item that failed before it could be imported.
ItemAnswer failedItem(const Failure& failure);

// {"kind": "damaged", "message": …}
PropertyValue errorMember(const Failure& failure);

// Whether the service answers the key's value as a line-feed-joined list (tags, authors,
// addresses, phone numbers).
bool isJoinedList(std::string_view key);
// The items of a line-feed-joined list; a value that is no string stays as it is.
PropertyValue splitList(const PropertyValue& value);

// Which items a walk over files and folders imports, in the order they are imported.
struct WalkOptions {
  bool recursive = true;
  std::size_t maxDepth = ItemOptions::kNoLimit;  // folder levels below a named folder
  std::vector<std::string> excludes;             // globs of names or paths below a named folder
  bool followLinks = false;
};

struct WalkItem {
  std::string path;
  std::optional<Failure> failure;  // named but missing, a folder that cannot be read
};

// Folders are walked in name order, depth first. Packages and folders that are one document
// (an unpacked book) are one item; AppleDouble "._NAME" companions are read with NAME; fifos
// and devices are left out. A path named is always an item, a link as the user named it.
// The walk goes as far as the next item asked for: it holds the folders it is inside, never the
// whole tree, so a hundred thousand files cost no more memory than a hundred.
class ItemWalk {
 public:
  explicit ItemWalk(WalkOptions options) : options_(std::move(options)) {}

  // Queues a path named; it is looked at when the walk reaches it.
  void add(const std::string& path) { named_.push_back(path); }
  // The next item, or nothing once every path added is walked.
  std::optional<WalkItem> next();
  // Every item left.
  std::vector<WalkItem> takeItems();
  // Links inside folders left out so far: all of them without followLinks, else the broken ones.
  std::size_t skippedLinks() const { return skippedLinks_; }

 private:
  struct Folder {
    std::vector<std::filesystem::directory_entry> entries;  // sorted by name
    std::size_t at = 0;
    std::string relative;  // below the folder named
    std::size_t depth = 0;
  };

  void start(const std::string& path);
  void open(const std::string& folder, std::string relative, std::size_t depth);
  void visit(const std::filesystem::directory_entry& entry, const std::string& relative,
             std::size_t depth);
  bool excluded(const std::string& name, const std::string& relative) const;
  bool firstVisit(const std::string& folder);
  void failEarly(const std::string& path, int error);

  WalkOptions options_;
  std::deque<std::string> named_;
  std::vector<Folder> folders_;  // the folders being walked, innermost last
  std::deque<WalkItem> found_;   // items found, not yet handed out
  std::size_t skippedLinks_ = 0;
  // Folders walked, so a linked folder is walked once and links in a circle end.
  std::set<std::pair<std::uint64_t, std::uint64_t>> walked_;
};

}  // namespace ulvek
