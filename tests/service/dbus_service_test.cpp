#include "service/dbus_service.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <regex>

#include "metadata/metadata_store.h"
#include "service/dbus_client.h"
#include "service/dbus_interface.h"
#include "service_fixture.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace std::chrono_literals;
using testing::ChildProcess;
using testing::readWholeFile;
using testing::waitForText;

// A private bus with one running daemon and a client connected to it.
class ServiceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    daemon_ = testing::startDaemon(logPath());
    std::optional<Error> error;
    client_ = DBusClient::connect(&error);
    ASSERT_TRUE(client_) << error->localizedDescription;
    ASSERT_TRUE(client_->waitForService(10s)) << readWholeFile(logPath());
  }

  std::filesystem::path logPath(std::string_view name = "daemon.log") const {
    return folder_.path() / name;
  }

  // Writes one metadata value through the store.
  static void store(const std::string& path, std::string_view key, const PropertyValue& value) {
    std::optional<Error> error;
    ASSERT_TRUE(OVMetaDataStore::setObject(value, key, path, false, &error))
        << key << ": " << (error ? error->localizedDescription : "");
  }

  testing::PrivateBus bus_;
  testing::TemporaryFolder folder_;
  ChildProcess daemon_;
  std::unique_ptr<DBusClient> client_;
};

TEST_F(ServiceTest, PingAnswersWithNothingAndLogsNothing) {
  for (int i = 0; i < 3; ++i) {
    std::optional<Error> error;
    EXPECT_TRUE(client_->ping(&error)) << error->localizedDescription;
  }
  EXPECT_EQ(readWholeFile(logPath()), "");
}

TEST_F(ServiceTest, IntrospectionListsExactlyTheEightOperationsInOrder) {
  std::optional<Error> error;
  std::optional<std::string> xml = client_->introspect(&error);
  ASSERT_TRUE(xml) << error->localizedDescription;
  std::string marker = std::string("<interface name=\"") + dbus::kInterfaceName + "\">";
  std::size_t start = xml->find(marker);
  ASSERT_NE(start, std::string::npos) << *xml;
  std::string interface = xml->substr(start, xml->find("</interface>", start) - start);

  struct Method {
    std::string name;
    std::string arguments;  // "in:type ... out:type"
  };
  std::vector<Method> methods;
  std::regex methodPattern(R"re(<method name="(\w+)">([\s\S]*?)</method>)re");
  std::regex argumentPattern(R"re(<arg type="([^"]+)" name="\w+" direction="(in|out)"/>)re");
  for (std::sregex_iterator it(interface.begin(), interface.end(), methodPattern), end; it != end;
       ++it) {
    Method method{(*it)[1], ""};
    std::string body = (*it)[2];
    for (std::sregex_iterator arg(body.begin(), body.end(), argumentPattern); arg != end; ++arg) {
      if (!method.arguments.empty()) method.arguments += ' ';
      method.arguments += (*arg)[2].str() + ":" + (*arg)[1].str();
    }
    methods.push_back(method);
  }
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"Terminate", ""},
      {"Ping", ""},
      {"OpenData", "in:ay in:s in:s out:a{sv}"},
      {"OpenDirectory", "in:s out:a{sv}"},
      {"OpenFile", "in:s out:a{sv}"},
      {"OpenAttributes", "in:s out:a{sv}"},
      {"SupportsFile", "in:s out:b"},
      {"IsPlainFile", "in:s out:b"},
  };
  ASSERT_EQ(methods.size(), expected.size()) << interface;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(methods[i].name, expected[i].first);
    EXPECT_EQ(methods[i].name, dbus::kMethodNames[i]);
    EXPECT_EQ(methods[i].arguments, expected[i].second) << methods[i].name;
  }
  EXPECT_EQ(interface.find("<property"), std::string::npos);
  EXPECT_EQ(interface.find("<signal"), std::string::npos);
}

TEST_F(ServiceTest, AnOperationOutsideTheInterfaceIsUnknown) {
  std::optional<Error> error;
  EXPECT_FALSE(client_->callWithoutArguments("StillBusy", &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, SD_BUS_ERROR_UNKNOWN_METHOD);
  EXPECT_TRUE(client_->ping(&error));
}

TEST_F(ServiceTest, TerminateEndsWithStatusZeroAndNoReply) {
  std::optional<Error> error;
  EXPECT_TRUE(client_->terminate(&error)) << error->domain << ": " << error->localizedDescription;
  EXPECT_EQ(daemon_.waitForExit(10s), 0);
  EXPECT_FALSE(client_->serviceOwner());
  EXPECT_FALSE(client_->ping(&error));
  EXPECT_EQ(error->domain, SD_BUS_ERROR_SERVICE_UNKNOWN);
}

TEST_F(ServiceTest, ASecondInstanceKeepsRunningUnreachable) {
  std::optional<std::string> firstOwner = client_->serviceOwner();
  ASSERT_TRUE(firstOwner);
  ChildProcess second = testing::startDaemon(logPath("second.log"));
  ASSERT_TRUE(waitForText(logPath("second.log"), "stays unreachable", 10s));
  std::this_thread::sleep_for(100ms);
  EXPECT_TRUE(second.running());
  EXPECT_EQ(client_->serviceOwner(), firstOwner);
  std::optional<Error> error;
  EXPECT_TRUE(client_->ping(&error));

  // It did not queue for the name, so it does not take over when the first instance ends.
  EXPECT_TRUE(client_->terminate(&error));
  EXPECT_EQ(daemon_.waitForExit(10s), 0);
  std::this_thread::sleep_for(100ms);
  EXPECT_TRUE(second.running());
  EXPECT_FALSE(client_->serviceOwner());
  EXPECT_FALSE(client_->ping(&error));
}

// What the daemon answers over the bus must be what the operation answers in-process.
TEST_F(ServiceTest, StoredMetadataArrivesIntact) {
  using Setup = std::function<void(const std::string& path)>;
  struct Row {
    const char* name;
    bool folder;
    Setup setup;
    PropertyDictionary attributes;  // expected from OpenAttributes
    bool lossless = true;           // whether D-Bus carries the in-process result unchanged
  };
  const std::string urlText = "https://example.com/a?b=c&d=\xC3\xA9";
  const TextString url = fromUtf8(urlText);
  Data urlBytes(urlText.begin(), urlText.end());
  Data urlBytesWithZero = urlBytes;
  urlBytesWithZero.push_back(0);
  Data urlBytesWithInnerZero = urlBytes;
  urlBytesWithInnerZero.push_back(0);
  urlBytesWithInnerZero.push_back('x');

  const std::vector<Row> rows = {
      {"no stored attributes", false, [](const std::string&) {}, {}},
      {"tags with colour suffixes",
       false,
       [](const std::string& path) {
         store(path, MetaDataKey::UserTags, PropertyArray{u"Red\n6", u"Blue", u"\U0001F600 emoji"});
       },
       {{"Tags", u"Red\nBlue\n\U0001F600 emoji"}}},
      {"empty tag list",
       false,
       [](const std::string& path) { store(path, MetaDataKey::UserTags, PropertyArray{}); },
       {{"Tags", u""}}},
      {"tag that a D-Bus string cannot hold",
       false,
       [](const std::string& path) {
         store(path, MetaDataKey::UserTags, PropertyArray{TextString(u"a\uFFFFb")});
       },
       {{"Tags", u"a\uFFFDb"}},
       false},
      {"where-from array takes the first",
       false,
       [&](const std::string& path) {
         store(path, MetaDataKey::WhereFroms, PropertyArray{url, u"https://second.example"});
       },
       {{"URL", url}}},
      {"where-from string",
       false,
       [&](const std::string& path) { store(path, MetaDataKey::WhereFroms, url); },
       {{"URL", url}}},
      {"where-from bytes without final zero",
       false,
       [&](const std::string& path) { store(path, MetaDataKey::WhereFroms, urlBytes); },
       {{"URL", url}}},
      {"where-from bytes with a zero",
       false,
       [&](const std::string& path) { store(path, MetaDataKey::WhereFroms, urlBytesWithZero); },
       {{"URL", url}}},
      {"comment",
       false,
       [](const std::string& path) {
         store(path, MetaDataKey::FinderComment, PropertyValue(u"A \"quoted\"\ncomment"));
       },
       {{"SpotlightComment", u"A \"quoted\"\ncomment"}}},
      {"folder with everything",
       true,
       [&](const std::string& path) {
         store(path, MetaDataKey::UserTags, PropertyArray{u"Work", u"Done"});
         store(path, MetaDataKey::WhereFroms, url);
         store(path, MetaDataKey::FinderComment, PropertyValue(u"Folder note"));
       },
       {{"Tags", u"Work\nDone"}, {"URL", url}, {"SpotlightComment", u"Folder note"}}},
  };
  MIMETypeHelper local;
  int index = 0;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::string name = "item " + std::to_string(index++) + " \xC3\xA9\xF0\x9F\x98\x80";
    std::string path = (folder_.path() / name).string();
    if (row.folder) {
      std::filesystem::create_directory(path);
    } else {
      folder_.write(name, "contents");
    }
    row.setup(path);

    std::optional<Error> error;
    std::optional<ImportResult> attributes = client_->openAttributes(path, &error);
    ASSERT_TRUE(attributes) << error->localizedDescription;
    EXPECT_EQ(attributes->values(), row.attributes);
    if (row.lossless) EXPECT_EQ(*attributes, local.openAttributes(path));

    std::optional<ImportResult> directory = client_->openDirectory(path, &error);
    ASSERT_TRUE(directory) << error->localizedDescription;
    PropertyDictionary expected = row.attributes;
    expected.emplace("Title", fromUtf8(name));
    EXPECT_EQ(directory->values(), expected);
    if (row.lossless) EXPECT_EQ(*directory, local.openDirectory(path));
  }
}

TEST_F(ServiceTest, ResultsAreIndependentCopies) {
  std::string path = folder_.write("tagged.txt", "x");
  store(path, MetaDataKey::UserTags, PropertyArray{u"One"});
  std::optional<Error> error;
  std::optional<ImportResult> first = client_->openDirectory(path, &error);
  ASSERT_TRUE(first);
  ImportResult original = *first;
  first->putOrRemove(ImportKey::Title, PropertyValue(u"changed by the client"));
  first->remove(ImportKey::Tags);
  std::optional<ImportResult> second = client_->openDirectory(path, &error);
  ASSERT_TRUE(second);
  EXPECT_EQ(*second, original);
  EXPECT_NE(*second, *first);
}

TEST_F(ServiceTest, AFailedOperationAnswersAnErrorAndServingGoesOn) {
  struct Row {
    const char* name;
    std::function<bool(DBusClient&, ErrorOut)> call;
    const char* errorName;
    const char* message;
  };
  const std::vector<Row> rows = {
      {"data import with data",
       [](DBusClient& client, ErrorOut error) {
         return client
             .openData(Data{'%', 'P', 'D', 'F'}, u"https://example.com/a.pdf", u"application/pdf",
                       error)
             .has_value();
       },
       SD_BUS_ERROR_NOT_SUPPORTED, "openData is not supported"},
      {"data import with absent arguments",
       [](DBusClient& client, ErrorOut error) {
         return client.openData(std::nullopt, std::nullopt, std::nullopt, error).has_value();
       },
       SD_BUS_ERROR_NOT_SUPPORTED, "openData is not supported"},
      {"importer question",
       [](DBusClient& client, ErrorOut error) {
         return client.supportsFile("/etc/hostname", error).has_value();
       },
       SD_BUS_ERROR_NOT_SUPPORTED, "supportsFile is not supported"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::optional<Error> error;
    EXPECT_FALSE(row.call(*client_, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, row.errorName);
    EXPECT_EQ(error->localizedDescription, row.message);
    EXPECT_TRUE(client_->ping(&error));
  }
  EXPECT_TRUE(daemon_.running());
  // The failure is logged in the one exception format.
  std::string log = readWholeFile(logPath());
  EXPECT_NE(log.find("openData:URL:MIMEType: (MIMETypeHelper):\n"), std::string::npos) << log;
  EXPECT_NE(log.find("supportsFile: (MIMETypeHelper):\n"), std::string::npos) << log;
}

TEST(ServiceErrorTest, EscapingExceptionsMapToDBusErrors) {
  struct Row {
    const char* name;
    std::exception_ptr exception;
    const char* errorName;
    const char* message;
  };
  const std::vector<Row> rows = {
      {"not supported", std::make_exception_ptr(NotSupportedError("openFile")),
       SD_BUS_ERROR_NOT_SUPPORTED, "openFile is not supported"},
      {"runtime error", std::make_exception_ptr(std::runtime_error("reader broke")),
       SD_BUS_ERROR_FAILED, "reader broke"},
      {"out of range", std::make_exception_ptr(std::out_of_range("index 9")), SD_BUS_ERROR_FAILED,
       "index 9"},
      {"not an exception class", std::make_exception_ptr(42), SD_BUS_ERROR_FAILED,
       "an exception of unknown type"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    DBusErrorReply reply = errorReplyFor(row.exception);
    EXPECT_EQ(reply.name, row.errorName);
    EXPECT_EQ(reply.message, row.message);
  }
}

TEST_F(ServiceTest, AwkwardPathsGiveSmallerResultsOrClearErrors) {
  std::string missing = (folder_.path() / "missing item").string();
  std::string dangling = (folder_.path() / "dangling link").string();
  std::filesystem::create_symlink(folder_.path() / "nowhere", dangling);

  struct Row {
    const char* name;
    std::string path;
    std::optional<PropertyDictionary> attributes;  // nothing: the client refuses the path
    const char* errorName;
  };
  const std::vector<Row> rows = {
      {"missing item", missing, PropertyDictionary{}, nullptr},
      {"dangling symbolic link", dangling, PropertyDictionary{}, nullptr},
      {"empty path", "", PropertyDictionary{}, nullptr},
      {"path that is not UTF-8", (folder_.path() / "bad \xFF name").string(), std::nullopt,
       SD_BUS_ERROR_INVALID_ARGS},
      {"path with a NUL", std::string("/tmp/a\0b", 8), std::nullopt, SD_BUS_ERROR_INVALID_ARGS},
      {"path with a noncharacter", "/tmp/\xEF\xBF\xBF", std::nullopt, SD_BUS_ERROR_INVALID_ARGS},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::optional<Error> error;
    std::optional<ImportResult> result = client_->openAttributes(row.path, &error);
    if (row.attributes) {
      ASSERT_TRUE(result) << error->localizedDescription;
      EXPECT_EQ(result->values(), *row.attributes);
    } else {
      EXPECT_FALSE(result);
      ASSERT_TRUE(error);
      EXPECT_EQ(error->domain, row.errorName);
    }
    EXPECT_TRUE(client_->ping(&error));
  }
  std::optional<Error> error;
  std::optional<ImportResult> directory = client_->openDirectory(missing, &error);
  ASSERT_TRUE(directory);
  EXPECT_EQ(directory->values(), (PropertyDictionary{{"Title", u"missing item"}}));
}

}  // namespace
}  // namespace ulvek
