#pragma once

#include <optional>
#include <string>

#include "base/property_value.h"
#include "import/import_result.h"
#include "text/html_meta.h"

namespace ulvek {

// The service's root object: the eight remote operations and the internal ones they share.
// Keeps no state between requests. Paths are file-system paths (bytes, usually UTF-8).
class MIMETypeHelper {
 public:
  static constexpr std::string_view kClassName = "MIMETypeHelper";

  // Remote interface.
  ImportResult openFile(const std::string& path);
  ImportResult openDirectory(const std::string& path);
  ImportResult openAttributes(const std::string& path);
  ImportResult openData(const std::optional<Data>& data, const std::optional<TextString>& url,
                        const std::optional<TextString>& mimeType);
  bool supportsFile(const std::string& path);
  bool isPlainFile(const std::string& path);

  // Internal: the comment of an item from its stored attributes, else from the metadata index.
  std::optional<TextString> getFinderCommentAtPath(const std::string& path,
                                                   const PropertyDictionary* xattributes);

  // Internal: maps an HTML page's meta attributes (title, description, author, keywords) into the
  // result with put-if-present; absent or empty meta writes nothing.
  static void copyHTMLMetaAttributes(const HtmlMetaAttributes* meta, ImportResult& result);

  // Internal: maps a reader's Spotlight attributes, and an attributed-string reader's document
  // attributes, into the result with put-if-present.
  static void copyMetaData(const PropertyDictionary* attributes, ImportResult& result);
  static void copyAttributedStringAttributes(const PropertyDictionary* attributes,
                                             ImportResult& result);
};

}  // namespace ulvek
