// Every document of the project's fixtures, stored under a content hash with no extension or
// given a name that says text or nothing (.txt, .bin, .dat), gives what it gives under its own
// name: the content, not the name, decides what reads it.

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "import/mime_type_helper.h"
#include "import/route_table.h"
#include "test_support.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;

// The kinds of document whose content shows what they are.
const std::set<std::string> kExtensions = {
    "docx",  "dotx",  "odt",        "ott", "rtf", "doc",  "epub", "pdf", "ps",
    "html",  "xhtml", "webarchive", "vcf", "wpd", "xlsx", "pptx", "ods", "odp",
    "pages", "key",   "numbers",    "jpg", "png", "mp3",  "eml"};

// WordPerfect 4.2 and Macintosh WordPerfect files carry no signature: only their names tell.
const std::set<std::string> kWithoutSignature = {"ledger42.wpd", "mac.wpd"};

// Fixture folders of documents that only a bundled importer reads, which this test does not load.
const std::set<std::string> kImporterOnly = {"word6"};

// Fixtures broken on purpose answer little under any name; they are no evidence here.
bool isDamaged(const std::string& name) {
  for (const char* mark :
       {"damaged", "truncated", "cut", "broken", "empty", "missing", "encrypted"})
    if (name.find(mark) != std::string::npos) return true;
  return false;
}

// The result without what a name alone gives: the title taken from the file name, the size.
PropertyDictionary comparable(const ImportResult& result, const std::string& name) {
  PropertyDictionary values = result.values();
  values.erase("FileSize");
  const PropertyValue* title = find(values, "Title");
  if (title && title->string() && toUtf8(*title->string()) == name) values.erase("Title");
  return values;
}

// A dictionary as a failure message shows it.
std::string describe(const PropertyDictionary& values) {
  std::string text;
  for (const auto& [key, value] : values) text += key + "=" + testing::describe(&value) + "; ";
  return text;
}

TEST(RenamedDocuments, ContentDecidesWhereTheNameSaysNothingOrLies) {
  MIMETypeHelper helper;
  testing::TemporaryFolder folder;
  std::set<std::string> formats;
  int compared = 0;
  std::vector<fs::path> fixtures;
  // The project's fixtures, and the sheets the office importer's tests keep beside them.
  for (const fs::path& folder : {testing::dataPath(), testing::dataPath() / "../bundles/data"})
    for (const auto& entry : fs::recursive_directory_iterator(folder)) fixtures.push_back(entry);
  for (const fs::path& path : fixtures) {
    fs::directory_entry entry(path);
    if (!entry.is_regular_file()) continue;
    std::string name = entry.path().filename().string();
    std::string extension = entry.path().extension().string();
    if (extension.empty() || !kExtensions.contains(extension.substr(1)) || isDamaged(name) ||
        kWithoutSignature.contains(name) ||
        kImporterOnly.contains(entry.path().parent_path().filename().string()) ||
        entry.path().string().find(".pages/") != std::string::npos)
      continue;
    SCOPED_TRACE(entry.path().string());
    std::string bytes = testing::readFile(entry.path());
    std::string original = folder.write("original/" + name, bytes);
    ImportResult expected = helper.openFile(original);
    PropertyDictionary wanted = comparable(expected, name);
    for (const char* renamed : {"4f1c0a9d3b7e", "document.txt", "document.bin", "document.dat"}) {
      std::string path = folder.write(std::string("renamed/") + renamed, bytes);
      ImportPlan plan = planImport(path);
      EXPECT_TRUE(plan.typeDecided) << renamed;
      PropertyDictionary found = comparable(helper.openFile(path), renamed);
      EXPECT_TRUE(found == wanted)
          << renamed << "\n  found:  " << describe(found) << "\n  wanted: " << describe(wanted);
      fs::remove(path);
    }
    formats.insert(extension);
    ++compared;
  }
  EXPECT_GE(formats.size(), 25u) << "fixtures of too few formats";
  EXPECT_GE(compared, 60);
}

}  // namespace
}  // namespace ulvek
