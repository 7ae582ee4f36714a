// `ulvekbot classify` names a reader from planImport(); an import must ask that very reader
// first. Every fixture of the project is imported with readers that note when they are asked.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "import/mime_type_helper.h"
#include "import/route_table.h"
#include "platform/content_types.h"
#include "test_support.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;

// A built-in reader that writes its name down each time it is asked.
class NotingReader final : public Reader {
 public:
  NotingReader(const Reader& inner, std::vector<std::string>& asked)
      : inner_(inner), asked_(asked) {}
  std::string_view name() const override { return inner_.name(); }
  std::optional<ReaderOutput> read(const ReaderSource& source) const override {
    asked_.emplace_back(inner_.name());
    return inner_.read(source);
  }
  bool supportsFile(const std::string& path) const override { return inner_.supportsFile(path); }

 private:
  const Reader& inner_;
  std::vector<std::string>& asked_;
};

// What the walk of the command line makes items of: files, and folders that are one document.
std::vector<fs::path> fixtureItems() {
  std::vector<fs::path> items;
  for (const fs::path& root : {testing::dataPath(), testing::dataPath() / "../bundles/data"}) {
    for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator();
         ++it) {
      if (it->is_symlink()) continue;
      if (it->is_directory()) {
        std::string extension = it->path().extension().string();
        if (!extension.empty() && isDocumentFolderExtension(extension.substr(1))) {
          items.push_back(it->path());
          it.disable_recursion_pending();
        }
        continue;
      }
      if (it->is_regular_file()) items.push_back(it->path());
    }
  }
  return items;
}

TEST(ClassifyAgreement, TheReaderClassifyNamesIsTheReaderImportAsksFirst) {
  std::vector<std::string> asked;
  std::vector<std::unique_ptr<NotingReader>> noting;
  ReaderSet readers;
  for (const RouteInfo& info : kRoutes) {
    const Reader* reader = ReaderSet::builtin().readerFor(info.route);
    if (!reader) continue;
    noting.push_back(std::make_unique<NotingReader>(*reader, asked));
    readers.set(info.route, noting.back().get());
  }
  for (const auto& [name, reader] : ReaderSet::builtin().namedReaders()) {
    noting.push_back(std::make_unique<NotingReader>(*reader, asked));
    readers.setNamed(name, noting.back().get());
  }
  MIMETypeHelper helper(readers);
  testing::CapturedLog quiet;  // damaged fixtures log, as they should

  int routed = 0;
  std::vector<fs::path> items = fixtureItems();
  ASSERT_GT(items.size(), 300u);
  for (const fs::path& item : items) {
    SCOPED_TRACE(item.string());
    ImportPlan plan = planImport(item.string());
    Route route = plan.readingRoute();
    const Reader* named = helper.plannedReader(plan);
    asked.clear();
    helper.openFile(item.string());
    if (plan.size == 0) {
      EXPECT_TRUE(asked.empty()) << "an empty file is read by " << asked.front();
    } else if (named) {
      ++routed;
      ASSERT_FALSE(asked.empty()) << "classify names " << named->name() << ", nothing was asked";
      EXPECT_EQ(asked.front(), named->name()) << "route " << routeInfo(route).name;
    } else {
      // Routes the dispatcher serves itself may still end at the importers, never elsewhere.
      for (const std::string& reader : asked)
        EXPECT_EQ(reader, readers.readerFor(Route::Importer)->name())
            << "route " << routeInfo(route).name;
    }
  }
  EXPECT_GT(routed, 100);
}

}  // namespace
}  // namespace ulvek
