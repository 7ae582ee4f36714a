// The ulvekbot command line, run as a real program.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "fork_test_files.h"
#include "metadata/metadata_store.h"
#include "platform/formats.h"
#include "service_fixture.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

struct Row {
  std::vector<std::string> arguments;
  int status;
  std::string out;        // exact standard output
  const char* errorPart;  // fragment of standard error; null: must be empty
};

// A tagged file, a tagged folder, a dangling link and a tree to walk, named relative to the
// folder the program runs in.
class CommandLineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string tagged = folder_.write("tagged.txt", "text");
    std::string folder = (folder_.path() / "Folder").string();
    fs::create_directory(folder);
    const std::tuple<std::string, std::string_view, PropertyValue> stored[] = {
        {tagged, MetaDataKey::UserTags, PropertyArray{u"Red\n6", u"Blue"}},
        {tagged, MetaDataKey::WhereFroms, PropertyArray{u"https://example.com/x"}},
        {tagged, MetaDataKey::FinderComment, u"Note \"1\""},
        {folder, MetaDataKey::UserTags, PropertyArray{u"\u00C9t\u00E9"}},
    };
    for (const auto& [path, key, value] : stored)
      ASSERT_TRUE(OVMetaDataStore::setObject(value, key, path, false));
    fs::create_symlink("nowhere", folder_.path() / "dangling");
    folder_.write("bad \xFF name", "x");
    folder_.write("tree/a.txt", "alpha");
    // Finder info only, so a.txt keeps its size: the companion itself is never listed.
    folder_.write("tree/._a.txt", testing::appleDouble({{9, testing::finderInfo("TEXT")}}));
    folder_.write("tree/sub/b.csv", "x,y\n");
    folder_.write("tree/sub/deeper/c.html", "<title>C</title><p>gamma</p>");
    folder_.write("tree/empty.txt", "");
    folder_.write("outside/secret.txt", "must not be imported");
    fs::create_directory_symlink("../outside", folder_.path() / "tree/linked-folder");
    fs::create_symlink("../outside/secret.txt", folder_.path() / "tree/linked-file.txt");
  }

  testing::ProgramOutput run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), testing::builtProgram("ulvekbot"));
    return testing::runProgram(arguments, folder_.path());
  }

  void check(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
      SCOPED_TRACE(row.arguments.empty() ? "(none)"
                                         : row.arguments[0] + " " + row.arguments.back());
      testing::ProgramOutput output = run(row.arguments);
      EXPECT_EQ(output.status, row.status) << output.err;
      EXPECT_EQ(output.out, row.out);
      if (row.errorPart) {
        EXPECT_NE(output.err.find(row.errorPart), std::string::npos) << output.err;
      } else {
        EXPECT_EQ(output.err, "");
      }
    }
  }

  testing::TemporaryFolder folder_;
};

const std::string kTaggedJson =
    R"({"path":"tagged.txt","URL":"https://example.com/x","Tags":"Red\nBlue",)"
    R"("SpotlightComment":"Note \"1\""})"
    "\n";
const std::string kFolderTags = "\"Tags\":\"\xC3\x89t\xC3\xA9\"}\n";

TEST_F(CommandLineTest, InProcessCommands) {
  testing::ProgramOutput help = run({"--help"});
  EXPECT_EQ(help.status, 0);
  for (const char* command :
       {"attributes PATH...", "directory PATH...", "import [--timeout SECONDS] PATH..."})
    EXPECT_NE(help.out.find(std::string("\n  ") + command), std::string::npos) << help.out;
  check({
      {{}, 2, "", "usage: ulvekbot"},
      {{"frobnicate"}, 2, "", "unknown command \"frobnicate\""},
      {{"attributes", "tagged.txt", "Folder"},
       0,
       kTaggedJson + "{\"path\":\"Folder\"," + kFolderTags,
       nullptr},
      {{"attributes", "dangling"}, 0, "{\"path\":\"dangling\"}\n", nullptr},
      // A missing item fails the command, the rest goes on.
      {{"attributes", "missing", "Folder"},
       1,
       "{\"path\":\"Folder\"," + kFolderTags,
       "ulvekbot attributes: missing: No such file or directory"},
      {{"attributes"}, 2, "", "expects at least one path"},
      {{"directory", "Folder"},
       0,
       "{\"path\":\"Folder\",\"Title\":\"Folder\"," + kFolderTags,
       nullptr},
      {{"directory", "bad \xFF name"},
       0,
       "{\"path\":\"bad \xEF\xBF\xBD name\",\"Title\":\"bad \xEF\xBF\xBD name\"}\n",
       nullptr},
      {{"import", "tree/a.txt", "missing", "tree/sub/b.csv"},
       1,
       "{\"path\":\"tree/a.txt\",\"Title\":\"a.txt\",\"Text\":\"alpha\",\"FileSize\":5,"
       "\"ContentType\":\"public.plain-text\",\"MIMEType\":\"text/plain\"}\n"
       "{\"path\":\"tree/sub/b.csv\",\"Title\":\"b.csv\",\"Text\":\"x,y\\n\",\"FileSize\":4,"
       "\"ContentType\":\"public.comma-separated-values-text\",\"MIMEType\":\"text/csv\"}\n",
       "missing: No such file or directory"},
      {{"import"}, 2, "", "expects at least one path"},
  });
}

TEST_F(CommandLineTest, ImportWalksFoldersWithoutFollowingLinks) {
  testing::ProgramOutput output = run({"import", "tree"});
  EXPECT_EQ(output.status, 0) << output.err;
  std::istringstream stream(output.out);
  int lines = 0;
  for (std::string line; std::getline(stream, line); ++lines)
    EXPECT_TRUE(line.starts_with("{\"path\":\"tree/")) << line;
  EXPECT_EQ(lines, 4) << output.out;
  EXPECT_EQ(output.out.find("must not be imported"), std::string::npos);
  EXPECT_NE(output.err.find("ulvekbot import: 4 files, 37 bytes, "), std::string::npos);
  EXPECT_NE(output.err.find(", 1 without text\n"), std::string::npos) << output.err;
}

// Each line names the type the import went by, which the content decides where the name lies.
TEST_F(CommandLineTest, ImportLinesNameTheContentType) {
  folder_.write("letter.txt", "{\\rtf1\\ansi Dear reader}");
  folder_.write("page", "<!DOCTYPE html><title>Page</title><p>Body</p>");
  check({
      {{"import", "letter.txt", "page"},
       0,
       "{\"path\":\"letter.txt\",\"Title\":\"letter.txt\",\"Text\":\"Dear reader\","
       "\"FileSize\":24,\"ContentType\":\"public.rtf\",\"MIMEType\":\"text/rtf\"}\n"
       "{\"path\":\"page\",\"Title\":\"Page\",\"Text\":\"Page\\n\\nBody\\n\\n\",\"FileSize\":45,"
       "\"ContentType\":\"public.html\",\"MIMEType\":\"text/html\"}\n",
       "ulvekbot import: 2 files"},
  });
}

// A folder that is one document, an unpacked book among them, is one line of a walk.
TEST_F(CommandLineTest, DocumentFoldersAreOneItem) {
  folder_.write("shelf/Book.epub/mimetype", "application/epub+zip");
  folder_.write("shelf/Book.epub/META-INF/container.xml", "<container/>");
  folder_.write("shelf/Book.epub/OEBPS/one.xhtml", "<html/>");
  folder_.write("shelf/Notes.rtfd/TXT.rtf", "{\\rtf1 notes}");
  folder_.write("shelf/loose/a.txt", "a");
  testing::ProgramOutput output = run({"import", "shelf"});
  EXPECT_EQ(output.status, 0) << output.err;
  std::vector<std::string> paths;
  std::istringstream stream(output.out);
  for (std::string line; std::getline(stream, line);)
    paths.push_back(line.substr(0, line.find(',')));
  std::sort(paths.begin(), paths.end());
  EXPECT_EQ(paths, (std::vector<std::string>{"{\"path\":\"shelf/Book.epub\"",
                                             "{\"path\":\"shelf/Notes.rtfd\"",
                                             "{\"path\":\"shelf/loose/a.txt\""}));
}

// Every registry row, as a table and as JSON lines.
TEST_F(CommandLineTest, FormatsListsTheRegistry) {
  testing::ProgramOutput table = run({"formats"});
  EXPECT_EQ(table.status, 0) << table.err;
  EXPECT_TRUE(table.out.starts_with("IDENTIFIER")) << table.out;
  for (const char* row : {"org.openxmlformats.wordprocessingml.document", "attributed document",
                          "public.jpeg", "importer: Image.mdimporter", "abstract", "package"})
    EXPECT_NE(table.out.find(row), std::string::npos) << row;
  testing::ProgramOutput json = run({"formats", "--json"});
  EXPECT_EQ(json.status, 0);
  EXPECT_EQ(static_cast<std::size_t>(std::count(json.out.begin(), json.out.end(), '\n')),
            formats().size());
  EXPECT_NE(json.out.find(R"("signatures":["^%PDF-"])"), std::string::npos);
  EXPECT_EQ(run({"formats", "--bogus"}).status, 2);
}

TEST_F(CommandLineTest, CallsReachTheDaemon) {
  testing::PrivateBus bus;
  testing::ChildProcess daemon = testing::startDaemon((folder_.path() / "daemon.log").string());
  auto client = testing::ServiceClient::connect(nullptr);
  ASSERT_TRUE(client && client->waitForService(10s));
  check({
      {{"call", "ping"}, 0, "", nullptr},
      {{"call", "attributes", "tagged.txt"}, 0, kTaggedJson, nullptr},
      {{"call", "directory", "Folder"},
       0,
       "{\"path\":\"Folder\",\"Title\":\"Folder\"," + kFolderTags,
       nullptr},
      // Text is no PDF: the service answers an empty result.
      {{"call", "data", "tagged.txt", "", "application/pdf"}, 0, "{\"path\":\"tagged.txt\"}\n", ""},
      {{"call", "stillBusy"}, 2, "", "unknown operation \"stillBusy\""},
      {{"call", "ping", "x"}, 2, "", "takes no arguments"},
      {{"call", "attributes", "bad \xFF name"}, 1, "", "not valid UTF-8"},
      {{"call", "terminate"}, 0, "", nullptr},
  });
  EXPECT_EQ(daemon.waitForExit(10s), 0);
  check({{{"call", "terminate"}, 1, "", "the service is not running"}});
  setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/ulvekbot-test-bus", 1);
  check({{{"call", "ping"}, 1, "", "Cannot connect to the session bus"}});
}

}  // namespace
}  // namespace ulvek
