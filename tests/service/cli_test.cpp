// The ulvekbot command line, run as a real program.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "metadata/metadata_store.h"
#include "service/dbus_client.h"
#include "service_fixture.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace std::chrono_literals;
using testing::ProgramOutput;

struct Row {
  const char* name;
  std::vector<std::string> arguments;
  int status;
  const char* out;                 // exact standard output; null: not checked
  std::vector<const char*> parts;  // fragments of standard output
  const char* errorPart;           // fragment of standard error; null: must be empty
};

// A folder with a tagged file, a tagged folder and a dangling link, named relative to it.
class CommandLineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string tagged = folder_.write("tagged.txt", "text");
    ASSERT_TRUE(OVMetaDataStore::setObject(PropertyArray{u"Red\n6", u"Blue"}, MetaDataKey::UserTags,
                                           tagged, false));
    ASSERT_TRUE(OVMetaDataStore::setObject(PropertyArray{u"https://example.com/x"},
                                           MetaDataKey::WhereFroms, tagged, false));
    ASSERT_TRUE(OVMetaDataStore::setObject(PropertyValue(u"Note \"1\""), MetaDataKey::FinderComment,
                                           tagged, false));
    std::filesystem::create_directory(folder_.path() / "Folder");
    ASSERT_TRUE(OVMetaDataStore::setObject(PropertyArray{u"\u00C9t\u00E9"}, MetaDataKey::UserTags,
                                           (folder_.path() / "Folder").string(), false));
    std::filesystem::create_symlink("nowhere", folder_.path() / "dangling");
  }

  ProgramOutput run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), testing::builtProgram("ulvekbot"));
    return testing::runProgram(arguments, folder_.path());
  }

  void check(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
      SCOPED_TRACE(row.name);
      ProgramOutput output = run(row.arguments);
      EXPECT_EQ(output.status, row.status) << output.err;
      if (row.out) EXPECT_EQ(output.out, row.out);
      for (const char* part : row.parts)
        EXPECT_NE(output.out.find(part), std::string::npos) << output.out;
      if (row.errorPart) {
        EXPECT_NE(output.err.find(row.errorPart), std::string::npos) << output.err;
      } else {
        EXPECT_EQ(output.err, "");
      }
    }
  }

  testing::TemporaryFolder folder_;
};

constexpr const char* kTaggedJson =
    R"({"path":"tagged.txt","URL":"https://example.com/x","Tags":"Red\nBlue","SpotlightComment":"Note \"1\""})"
    "\n";
constexpr const char* kFolderJson =
    "{\"path\":\"Folder\",\"Title\":\"Folder\",\"Tags\":\"\xC3\x89t\xC3\xA9\"}\n";

TEST_F(CommandLineTest, InProcessCommands) {
  check({
      {"help lists every command",
       {"--help"},
       0,
       nullptr,
       {"usage: ulvekbot", "\n  attributes PATH...", "\n  directory PATH...", "\n  call ping"},
       nullptr},
      {"help of one command",
       {"attributes", "--help"},
       0,
       nullptr,
       {"ulvekbot attributes PATH..."},
       nullptr},
      {"no command", {}, 2, "", {}, "usage: ulvekbot"},
      {"unknown command", {"frobnicate"}, 2, "", {}, "unknown command \"frobnicate\""},
      {"attributes of a tagged file", {"attributes", "tagged.txt"}, 0, kTaggedJson, {}, nullptr},
      {"attributes of two items, one line each",
       {"attributes", "tagged.txt", "Folder"},
       0,
       "{\"path\":\"tagged.txt\",\"URL\":\"https://example.com/x\",\"Tags\":\"Red\\nBlue\","
       "\"SpotlightComment\":\"Note \\\"1\\\"\"}\n"
       "{\"path\":\"Folder\",\"Tags\":\"\xC3\x89t\xC3\xA9\"}\n",
       {},
       nullptr},
      {"attributes of a dangling link",
       {"attributes", "dangling"},
       0,
       "{\"path\":\"dangling\"}\n",
       {},
       nullptr},
      {"attributes of a missing item goes on with the rest",
       {"attributes", "missing", "Folder"},
       1,
       "{\"path\":\"Folder\",\"Tags\":\"\xC3\x89t\xC3\xA9\"}\n",
       {},
       "ulvekbot attributes: missing: No such file or directory"},
      {"attributes without a path", {"attributes"}, 2, "", {}, "expects at least one path"},
      {"directory of a folder", {"directory", "Folder"}, 0, kFolderJson, {}, nullptr},
      {"directory of a missing path that is not UTF-8",
       {"directory", "missing \xFF"},
       1,
       "",
       {},
       "No such file or directory"},
  });
}

TEST_F(CommandLineTest, NonUtf8NamesBecomeValidJson) {
  std::string name = "bad \xFF name";
  folder_.write(name, "x");
  ProgramOutput output = run({"directory", name});
  EXPECT_EQ(output.status, 0) << output.err;
  EXPECT_EQ(output.out,
            "{\"path\":\"bad \xEF\xBF\xBD name\",\"Title\":\"bad \xEF\xBF\xBD name\"}\n");
}

TEST_F(CommandLineTest, CallsReachTheDaemon) {
  testing::PrivateBus bus;
  testing::ChildProcess daemon = testing::startDaemon((folder_.path() / "daemon.log").string());
  auto client = DBusClient::connect(nullptr);
  ASSERT_TRUE(client && client->waitForService(10s));
  check({
      {"ping", {"call", "ping"}, 0, "", {}, nullptr},
      {"attributes by a relative path",
       {"call", "attributes", "tagged.txt"},
       0,
       kTaggedJson,
       {},
       nullptr},
      {"directory", {"call", "directory", "Folder"}, 0, kFolderJson, {}, nullptr},
      {"data import is not supported yet",
       {"call", "data", "tagged.txt", "", "application/pdf"},
       1,
       "",
       {},
       "ulvekbot call: data tagged.txt: not supported by the service (openData is not supported)"},
      {"importer question is not supported yet",
       {"call", "supports", "tagged.txt"},
       1,
       "",
       {},
       "not supported by the service"},
      {"unknown operation", {"call", "stillBusy"}, 2, "", {}, "unknown operation \"stillBusy\""},
      {"operation without its path", {"call", "import"}, 2, "", {}, "expects at least one path"},
      {"ping with an argument", {"call", "ping", "x"}, 2, "", {}, "takes no arguments"},
      {"path that cannot travel", {"call", "attributes", "x\xFF"}, 1, "", {}, "not valid UTF-8"},
  });

  check({{"terminate", {"call", "terminate"}, 0, "", {}, nullptr}});
  EXPECT_EQ(daemon.waitForExit(10s), 0);
  check({{"ping after terminate", {"call", "ping"}, 1, "", {}, "the service is not running"}});
}

TEST_F(CommandLineTest, CallWithoutABusFailsClearly) {
  setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/ulvekbot-test-bus", 1);
  check({{"no bus", {"call", "ping"}, 1, "", {}, "Cannot connect to the session bus"}});
  unsetenv("DBUS_SESSION_BUS_ADDRESS");
}

}  // namespace
}  // namespace ulvek
