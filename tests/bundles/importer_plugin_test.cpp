// What every bundled importer does around its own reading: a file it cannot read gets one line
// in the host's log, naming the importer, the file and, where the library gives one, the reason.

#include <gtest/gtest.h>

#include <string>

#include "bundle_harness.h"
#include "test_support.h"

namespace ulvek {
namespace {

TEST(ImporterPlugin, UnreadableFilesGetOneLogLine) {
  testing::TemporaryFolder folder;
  const std::string good = (testing::dataPath() / "image/harbour.jpg").string();
  struct Row {
    const char* bundle;
    const char* factory;
    std::string path;
    std::string log;  // "" for none
  };
  const std::string notImage = folder.write("x.jpg", "not an image at all");
  const std::string notPDF = folder.write("x.pdf", "not a PDF either");
  const std::string notPages = folder.write("x.pages", "nor a Pages document");
  const Row rows[] = {
      {"Image", "UlvekImageImporterFactory", notImage,
       "cannot read " + notImage + ": Failed to read input data\n"},
      {"PDF", "UlvekPDFImporterFactory", notPDF, "cannot read " + notPDF + "\n"},
      {"iWork", "UlvekIWorkImporterFactory", notPages, "cannot read " + notPages + "\n"},
      {"Image", "UlvekImageImporterFactory", good, ""},
  };
  for (const Row& row : rows) {
    testing::Bundle bundle(row.bundle, row.factory);
    std::string log;
    bundle.import(row.path, "", &log);
    EXPECT_EQ(log, row.log) << row.path;
  }
}

}  // namespace
}  // namespace ulvek
