#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/property_value.h"
#include "readers/zip/zip_archive.h"

namespace ulvek {

// An EPUB book, packed (a zip archive) or unpacked (a folder): its bibliographic metadata under
// Spotlight attribute names, its reading order and its plain text. Encrypted books answer their
// metadata and no text. Books are read in place: members come from the archive in memory or
// from the folder, and nothing is written.
class EPUBParser {
 public:
  // YES for paths ending in ".epub" or ".ibooks", compared without regard to case.
  static bool isEPUBFile(const std::string& path);

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

  // The spine documents' text in reading order, each followed by "\n"; nothing for a book
  // whose rights file names a scheme.
  std::optional<TextString> textContents();
  // The rights scheme ("Adobe", "Apple", "Barnes & Noble", "Kobo"), or empty.
  const std::string& DRM();
  bool hasDRM() { return !DRM().empty(); }

  // The folder the package document lies in, "" at the top.
  std::string opfFolder() const;

 private:
  void parse(const std::string& member);

  std::string epubPath_;
  std::unique_ptr<ZipArchive> archive_;
  bool folder_ = false;
  std::map<std::string, std::string> items_;
  std::vector<std::string> spines_;
  std::vector<std::string> auxiliaryFiles_;
  PropertyDictionary metaData_;
  std::string opfFile_, ncxFile_, tocFile_, coverPath_, coverID_, mimetype_;
  std::optional<std::string> drm_;
};

// "a/b" + "c/d.xhtml": one "/" between parts, duplicate and trailing ones removed; "." and ".."
// are kept as written.
std::string joinedPath(const std::string& folder, const std::string& name);

}  // namespace ulvek
