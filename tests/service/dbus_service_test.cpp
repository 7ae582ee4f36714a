#include "service/dbus_service.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <regex>

#include "metadata/metadata_store.h"
#include "protocol/dbus_interface.h"
#include "service_fixture.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::ChildProcess;
using testing::readWholeFile;

// A private bus with one running daemon and a client connected to it.
class ServiceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    daemon_ = testing::startDaemon(logPath());
    std::optional<Error> error;
    client_ = testing::ServiceClient::connect(&error);
    ASSERT_TRUE(client_) << error->localizedDescription;
    ASSERT_TRUE(client_->waitForService(10s)) << readWholeFile(logPath());
  }

  std::filesystem::path logPath(std::string_view name = "daemon.log") const {
    return folder_.path() / name;
  }

  static void store(const std::string& path, std::string_view key, const PropertyValue& value) {
    ASSERT_TRUE(OVMetaDataStore::setObject(value, key, path, false)) << key;
  }

  testing::PrivateBus bus_;
  testing::TemporaryFolder folder_;
  ChildProcess daemon_;
  std::unique_ptr<testing::ServiceClient> client_;
  std::optional<Error> error_;
};

TEST_F(ServiceTest, PingAnswersNothingAndLogsNothingAndStillBusyIsUnknown) {
  EXPECT_TRUE(client_->ping(&error_));
  EXPECT_TRUE(client_->ping(&error_));
  EXPECT_EQ(readWholeFile(logPath()), "");
  EXPECT_FALSE(client_->callWithoutArguments("StillBusy", &error_));
  ASSERT_TRUE(error_);
  EXPECT_EQ(error_->domain, SD_BUS_ERROR_UNKNOWN_METHOD);
}

TEST_F(ServiceTest, IntrospectionListsExactlyTheEightOperationsInOrder) {
  std::optional<std::string> xml = client_->introspect(&error_);
  ASSERT_TRUE(xml);
  std::size_t start = xml->find(std::string("<interface name=\"") + dbus::kInterfaceName + "\">");
  ASSERT_NE(start, std::string::npos) << *xml;
  std::string interface = xml->substr(start, xml->find("</interface>", start) - start);
  // Each method as "Name in:type ... out:type".
  std::vector<std::string> methods;
  std::regex methodPattern(R"re(<method name="(\w+)">([\s\S]*?)</method>)re");
  std::regex argumentPattern(R"re(<arg type="([^"]+)" name="\w+" direction="(in|out)"/>)re");
  for (std::sregex_iterator it(interface.begin(), interface.end(), methodPattern), end; it != end;
       ++it) {
    std::string method = (*it)[1], body = (*it)[2];
    for (std::sregex_iterator arg(body.begin(), body.end(), argumentPattern); arg != end; ++arg)
      method += " " + (*arg)[2].str() + ":" + (*arg)[1].str();
    methods.push_back(method);
  }
  EXPECT_EQ(methods,
            (std::vector<std::string>{"Terminate", "Ping", "OpenData in:ay in:s in:s out:a{sv}",
                                      "OpenDirectory in:s out:a{sv}", "OpenFile in:s out:a{sv}",
                                      "OpenAttributes in:s out:a{sv}", "SupportsFile in:s out:b",
                                      "IsPlainFile in:s out:b"}));
  EXPECT_EQ(interface.find("<property"), std::string::npos);
  EXPECT_EQ(interface.find("<signal"), std::string::npos);
}

TEST_F(ServiceTest, TerminateEndsWithStatusZeroAndNoReply) {
  EXPECT_TRUE(client_->terminate(&error_)) << error_->domain;
  EXPECT_EQ(daemon_.waitForExit(10s), 0);
  EXPECT_FALSE(client_->ping(&error_));
  EXPECT_EQ(error_->domain, SD_BUS_ERROR_SERVICE_UNKNOWN);
}

TEST_F(ServiceTest, ASecondInstanceWaitsInTheQueueAndTakesOver) {
  std::optional<std::string> firstOwner = client_->serviceOwner();
  ASSERT_TRUE(firstOwner);
  ChildProcess second = testing::startDaemon(logPath("second.log"));
  ASSERT_TRUE(testing::waitForText(logPath("second.log"), "waits in the queue", 10s));
  std::this_thread::sleep_for(100ms);
  EXPECT_TRUE(second.running());
  EXPECT_EQ(client_->serviceOwner(), firstOwner);
  EXPECT_TRUE(client_->ping(&error_));

  // When the first instance ends, the queued one owns the name and answers.
  EXPECT_TRUE(client_->terminate(&error_));
  EXPECT_EQ(daemon_.waitForExit(10s), 0);
  for (int tries = 0; tries < 100 && client_->serviceOwner() == firstOwner; ++tries)
    std::this_thread::sleep_for(20ms);
  std::optional<std::string> secondOwner = client_->serviceOwner();
  ASSERT_TRUE(secondOwner);
  EXPECT_NE(secondOwner, firstOwner);
  EXPECT_TRUE(client_->ping(&error_));
  EXPECT_TRUE(client_->terminate(&error_));
  EXPECT_EQ(second.waitForExit(10s), 0);
}

// What the daemon answers over the bus must be what the operation answers in-process, for files
// and folders alike.
TEST_F(ServiceTest, StoredMetadataArrivesIntact) {
  const std::string urlText = "https://example.com/a?b=c&d=\xC3\xA9";
  const TextString url = fromUtf8(urlText);
  Data urlBytes(urlText.begin(), urlText.end());
  Data urlBytesWithZero = urlBytes;
  urlBytesWithZero.push_back(0);
  const TextString comment = u"A \"quoted\"\ncomment";
  const std::vector<std::tuple<std::string_view, PropertyValue, PropertyDictionary>> rows = {
      {MetaDataKey::UserTags,
       PropertyArray{u"Red\n6", u"Blue", u"\U0001F600"},
       {{"Tags", u"Red\nBlue\n\U0001F600"}}},
      {MetaDataKey::UserTags, PropertyArray{}, {{"Tags", u""}}},
      {MetaDataKey::WhereFroms, PropertyArray{url, u"https://second.example"}, {{"URL", url}}},
      {MetaDataKey::WhereFroms, url, {{"URL", url}}},
      {MetaDataKey::WhereFroms, urlBytes, {{"URL", url}}},
      {MetaDataKey::WhereFroms, urlBytesWithZero, {{"URL", url}}},
      {MetaDataKey::FinderComment, comment, {{"SpotlightComment", comment}}},
      {MetaDataKey::FinderComment, u"", {}},
  };
  MIMETypeHelper local;
  int index = 0;
  for (const auto& [key, value, attributes] : rows) {
    std::string name = "item " + std::to_string(index++) + " \xC3\xA9\xF0\x9F\x98\x80";
    std::filesystem::create_directory(folder_.path() / name);
    for (std::string path :
         {folder_.write(name + ".txt", "text"), (folder_.path() / name).string()}) {
      SCOPED_TRACE(path);
      store(path, key, value);
      std::optional<ImportResult> result = client_->openAttributes(path, &error_);
      ASSERT_TRUE(result) << error_->localizedDescription;
      EXPECT_EQ(result->values(), attributes);
      EXPECT_EQ(*result, local.openAttributes(path));
      result = client_->openDirectory(path, &error_);
      ASSERT_TRUE(result) << error_->localizedDescription;
      PropertyDictionary expected = attributes;
      expected.emplace("Title", fromUtf8(std::filesystem::path(path).filename().string()));
      EXPECT_EQ(result->values(), expected);
      EXPECT_EQ(*result, local.openDirectory(path));
    }
  }
}

// Document folders reach the readers of their kind in the daemon as they do in-process.
TEST_F(ServiceTest, DocumentFoldersAnswerAsInProcess) {
  folder_.write("Plan.oo3/contents.xml", "<?xml version=\"1.0\"?><outline>Buy</outline>");
  folder_.write("Talk.chatlog/log.xml", "<chat>Hi</chat>");
  folder_.write("Book.epub/mimetype", "application/epub+zip");
  folder_.write("Notes.textbundle/text.md", "Notes");
  const std::pair<const char*, std::u16string> rows[] = {{"Plan.oo3", u"Buy"},
                                                         {"Talk.chatlog", u"Hi"},
                                                         {"Book.epub", u""},
                                                         {"Notes.textbundle", u"Notes"}};
  MIMETypeHelper local;
  for (const auto& [name, text] : rows) {
    std::string path = (folder_.path() / name).string();
    std::optional<ImportResult> result = client_->openFile(path, &error_);
    ASSERT_TRUE(result) << name << ": " << (error_ ? error_->localizedDescription : "");
    ASSERT_TRUE(result->string(ImportKey::Text)) << name;
    EXPECT_EQ(*result->string(ImportKey::Text), text) << name;
    EXPECT_EQ(*result, local.openFile(path)) << name;
  }
}

TEST_F(ServiceTest, ResultsAreIndependentCopies) {
  std::string path = folder_.write("tagged.txt", "x");
  store(path, MetaDataKey::UserTags, PropertyArray{u"One"});
  std::optional<ImportResult> first = client_->openDirectory(path, &error_);
  ASSERT_TRUE(first);
  ImportResult original = *first;
  first->putOrRemove(ImportKey::Title, PropertyValue(u"changed by the client"));
  first->remove(ImportKey::Tags);
  std::optional<ImportResult> second = client_->openDirectory(path, &error_);
  ASSERT_TRUE(second);
  EXPECT_EQ(*second, original);
  EXPECT_NE(*second, *first);
}

// A reply past the bus's message limit would make the bus drop the service: its text is cut
// instead, with a log line, and serving goes on.
TEST_F(ServiceTest, LargeTextIsCutToFitTheBus) {
  std::string item = "<item>" + std::string(1000, 'x') + "</item>\n";
  std::string xml = "<root>";
  xml.reserve(62 * 1024 * 1024);
  while (xml.size() < 60u * 1024 * 1024) xml += item;
  xml += "</root>";
  std::string path = folder_.write("big.xml", xml);
  std::optional<ImportResult> result = client_->openFile(path, &error_);
  ASSERT_TRUE(result) << (error_ ? error_->localizedDescription : "");
  ASSERT_TRUE(result->string(ImportKey::Text));
  EXPECT_LT(result->string(ImportKey::Text)->size(), xml.size());
  EXPECT_GT(result->string(ImportKey::Text)->size(), 40u * 1024 * 1024);
  EXPECT_TRUE(client_->ping(&error_));
  EXPECT_TRUE(daemon_.running());
  EXPECT_NE(readWholeFile(logPath()).find("Truncated: " + path + " (Text)"), std::string::npos);
}

// Metadata is cut as the text is: a 100 MB title made the bus drop the service.
TEST_F(ServiceTest, LargeMetadataIsCutToFitTheBus) {
  const std::string large(3u * 1024 * 1024, 't');
  std::string path =
      folder_.write("big-title.html", "<html><head><title>" + large +
                                          "</title><meta name=\"description\" content=\"" + large +
                                          "\"></head><body>short</body></html>");
  std::optional<ImportResult> result = client_->openFile(path, &error_);
  ASSERT_TRUE(result) << (error_ ? error_->localizedDescription : "");
  for (std::string_view key : {ImportKey::Title, ImportKey::Description}) {
    const TextString* value = result->string(key);
    ASSERT_TRUE(value) << key;
    EXPECT_EQ(value->size(), ImportResult::kMaxValueBytes) << key;
    EXPECT_NE(readWholeFile(logPath()).find("Truncated: " + path + " (" + std::string(key) + ")"),
              std::string::npos)
        << key;
  }
  EXPECT_TRUE(client_->ping(&error_));
}

TEST_F(ServiceTest, DataItCannotReadAndFilesNoImporterReadsAnswerNothing) {
  Data notPDF{'t', 'e', 'x', 't'};
  std::optional<ImportResult> data =
      client_->openData(notPDF, u"https://example.com/a.pdf", u"application/pdf", &error_);
  ASSERT_TRUE(data) << (error_ ? error_->localizedDescription : "");
  EXPECT_TRUE(data->empty());
  std::string unknown = folder_.write("x.nothing-reads-this", "\x01\x02");
  std::optional<bool> supported = client_->supportsFile(unknown, &error_);
  ASSERT_TRUE(supported);
  EXPECT_FALSE(*supported);
  EXPECT_TRUE(client_->ping(&error_));
  EXPECT_TRUE(daemon_.running());
}

TEST(ServiceErrorTest, EscapingExceptionsMapToDBusErrors) {
  const std::tuple<std::exception_ptr, const char*, const char*> rows[] = {
      {std::make_exception_ptr(NotSupportedError("openFile")), SD_BUS_ERROR_NOT_SUPPORTED,
       "openFile is not supported"},
      {std::make_exception_ptr(std::runtime_error("broke")), SD_BUS_ERROR_FAILED, "broke"},
      {std::make_exception_ptr(42), SD_BUS_ERROR_FAILED, "an exception of unknown type"},
  };
  for (const auto& [exception, errorName, message] : rows) {
    DBusErrorReply reply = errorReplyFor(exception);
    EXPECT_EQ(reply.name, errorName) << message;
    EXPECT_EQ(reply.message, message);
  }
}

// A missing item answers a smaller result, also where its name is no D-Bus string (it goes as
// bytes); a path with NUL, which no file has, is refused.
TEST_F(ServiceTest, AwkwardPathsGiveSmallerResultsOrClearErrors) {
  std::optional<ImportResult> result = client_->openDirectory(folder_.path() / "missing", &error_);
  ASSERT_TRUE(result);
  EXPECT_EQ(result->values(), (PropertyDictionary{{"Title", u"missing"}}));
  for (std::string path : {"/tmp/bad \xFF name"s, "/tmp/\xEF\xBF\xBF"s}) {
    result = client_->openAttributes(path, &error_);
    ASSERT_TRUE(result) << path << ": " << error_->localizedDescription;
    EXPECT_TRUE(result->empty()) << path;
  }
  EXPECT_FALSE(client_->openAttributes("/tmp/a\0b"s, &error_));
  ASSERT_TRUE(error_);
  EXPECT_EQ(error_->domain, SD_BUS_ERROR_INVALID_ARGS);
  EXPECT_TRUE(client_->ping(&error_));
}

}  // namespace
}  // namespace ulvek
