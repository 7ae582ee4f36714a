#pragma once

// Saved web pages: a main resource, its subresources and one nested archive per frame, as the
// serialized property list ("WebMainResource", "WebSubresources", "WebSubframeArchives") holds
// them.

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/property_value.h"
#include "base/text_string.h"
#include "platform/file_bytes.h"

namespace ulvek {

// Frames nested deeper than this are left out (with a log line).
inline constexpr std::size_t kMaxWebArchiveDepth = 64;
// Markup resources larger than this are not decoded (with a log line).
inline constexpr std::size_t kMaxWebResourceMarkup = 32 * 1024 * 1024;

// Whether a MIME type names markup: "text/…", or "application/…" naming htm, sgml, xml, rsd or
// atom (any case), or rdf or rss (lower case).
bool isMarkupMIMEType(TextView mimeType);
// Whether a main resource of this type may be a feed (RSS, Atom, RDF or plain XML), read as one
// when its root element says so.
bool isFeedMIMEType(TextView mimeType);

struct WebResource {
  Data data;
  TextString MIMEType;
  std::optional<TextString> textEncodingName;
  TextString URL;

  // The resource's markup as text; nothing when its type is not markup.
  std::optional<TextString> documentSource() const;
};

struct WebArchive {
  std::optional<WebResource> mainResource;
  std::vector<WebResource> subresources;
  std::vector<WebArchive> subframeArchives;

  // From the bytes of a binary or XML property list; nothing when they are not a web archive.
  static std::optional<WebArchive> initWithData(Bytes bytes, std::string_view name = {});
  // From the decoded list; `name` is for log lines.
  static std::optional<WebArchive> fromPropertyList(const PropertyValue& list,
                                                    std::string_view name = {});

  std::optional<TextString> documentSource() const;
  std::optional<TextString> baseURL() const;
  // "\n\n" + the main page's text, then each frame's, depth first.
  TextString searchableText() const;
  void appendSearchableTextTo(TextString& text) const;
  TextString searchableTextAndSource(std::optional<TextString>* source) const;

  const WebResource* subresourceForURL(TextView url) const;
  const WebArchive* subArchiveForURL(std::optional<TextView> url) const;
};

bool isWebArchiveFile(const std::string& path);
std::span<const TextView> webArchiveFileTypes();

// The text of a web archive file; the main page's base URL and markup through the out values.
// Nothing (and nothing in the out values) when the file cannot be read or is no web archive.
std::optional<TextString> searchableTextOfFile(const std::string& path,
                                               std::optional<TextString>* baseURL = nullptr,
                                               std::optional<TextString>* source = nullptr);
std::optional<TextString> documentSourceOfFile(const std::string& path,
                                               std::optional<TextString>* baseURL = nullptr);

}  // namespace ulvek
