#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/property_value.h"
#include "platform/temporary_items.h"
#include "readers/epub/ncx_parser.h"
#include "readers/epub/styled_text.h"
#include "readers/zip/zip_archive.h"

namespace ulvek {

// A book's cover image as stored, with its MIME type.
struct EPUBCover {
  std::string member;  // where it lies in the book
  Data bytes;
  std::string mimeType;  // "image/jpeg"
};

// An EPUB book, packed (a zip archive) or unpacked (a folder): its bibliographic metadata under
// Spotlight attribute names, its reading order and its plain text. Encrypted books answer their
// metadata and no text. Books are read in place: members come from the archive in memory or
// from the folder. Only `unzippedEPUB` writes: an unpacked copy in the temporary folder, removed
// with the parser.
//
// For clients that display a book: a table of contents, the whole book as one HTML document and
// as styled text, the first page, the cover and a mapping between entries and unpacked files.
class EPUBParser {
 public:
  explicit EPUBParser(const std::string& path);

  const std::string& opfFile() const { return opfFile_; }
  const std::string& ncxFile() const { return ncxFile_; }
  const std::string& tocFile() const { return tocFile_; }
  const std::string& coverPath() const { return coverPath_; }
  const std::map<std::string, std::string>& items() const { return items_; }
  const std::vector<std::string>& spines() const { return spines_; }
  const std::vector<std::string>& auxiliaryFiles() const { return auxiliaryFiles_; }
  const PropertyDictionary& metaData() const { return metaData_; }

  bool testForNamedFile(const std::string& name);
  std::optional<Data> dataForNamedFile(const std::string& name);

  // The spine documents' text in reading order, each followed by "\n" and each document once
  // however often the spine lists it, at most kMaxTextUtf8Bytes; nothing for a book whose
  // rights file names a scheme.
  std::optional<TextString> textContents();
  // The rights scheme ("Adobe", "Apple", "Barnes & Noble", "Kobo"), or empty.
  const std::string& DRM();
  bool hasDRM() { return !DRM().empty(); }

  // The folder the package document lies in, "" at the top.
  std::string opfFolder() const;

  // ---- Display ----

  // The cover of the book at `path`; nothing for an empty path or a book without one.
  static std::optional<EPUBCover> coverForFile(const std::string& path);

  // The table of contents: the NCX tree (else the EPUB 3 nav tree), completed from the reading
  // order when it names fewer entries than the spine has; entries' contents are relative to the
  // package document's folder.
  const NavEntries& rootChildren();
  // The first entry's file in the unpacked copy; nothing without navigation documents, for an
  // encrypted book, or when the book cannot be unpacked.
  std::optional<std::string> firstPage();
  // "file://" URLs of the unpacked copy for entries and contents, and back.
  std::optional<std::string> URLForItem(const NavEntry& entry);
  std::optional<std::string> URLForContent(const std::string& content);
  std::optional<std::string> contentForURL(const std::string& url);

  // The cover image: the manifest's cover item, else the first image of the guide's cover page.
  std::optional<EPUBCover> cover();
  // The spine's documents as one HTML document: every document after the first wrapped in its
  // own body, each starting with an anchor named after its file; links between documents point
  // at those anchors, images are inlined as data: URLs and style sheets as style elements.
  // Nothing for an encrypted book.
  std::optional<TextString> htmlContents();
  // The merged HTML as styled runs; nothing for an encrypted book or when there is no HTML.
  std::optional<StyledText> richTextContents();

  // The path of the unpacked copy (a book folder is its own copy), made on first use; nothing
  // when unpacking fails (tried again on the next call).
  std::optional<std::string> unzippedEPUB();
  // The media type the manifest gives a member, if any.
  std::optional<std::string> mediaTypeOfMember(const std::string& member) const;

 private:
  // False when the member is missing or breaks off.
  bool parse(const std::string& member);
  // Spine documents as members, in reading order, each once.
  std::vector<std::string> readingOrder();
  std::optional<std::string> firstImageOfPage(const std::string& page);

  std::string epubPath_;
  std::unique_ptr<ZipArchive> archive_;
  bool folder_ = false;
  std::map<std::string, std::string> items_;
  std::vector<std::string> spines_;
  std::vector<std::string> auxiliaryFiles_;
  PropertyDictionary metaData_;
  std::string opfFile_, ncxFile_, tocFile_, coverPath_, coverID_, mimetype_;
  std::optional<std::string> drm_;
  // Manifest members (normalized) to their media types; the guide's cover page.
  std::map<std::string, std::string> mediaTypes_;
  std::string guideCover_;
  std::optional<NavEntries> children_;
  std::optional<std::string> firstPage_;
  std::optional<TemporaryDirectory> unpacked_;
};

// "a/b" + "c/d.xhtml": one "/" between parts, duplicate and trailing ones removed; "." and ".."
// are kept as written.
std::string joinedPath(const std::string& folder, const std::string& name);

}  // namespace ulvek
