// The Transfer interface beside the classic one: large data and texts as sealed memory files,
// paths as bytes. Through the client library, which picks the interface by itself, and on the
// wire, against the built daemon on a private bus.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <regex>

#include <systemd/sd-bus.h>

#include "import/mime_type_helper.h"
#include "metadata/metadata_store.h"
#include "pdf_test_files.h"
#include "protocol/dbus_interface.h"
#include "protocol/sealed_memfd.h"
#include "service_fixture.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace std::chrono_literals;
using testing::readWholeFile;

// A reply read off the wire, or the error the service answered.
struct WireReply {
  sd_bus_message* message = nullptr;
  std::string errorName;
  std::string errorMessage;
  ~WireReply() { sd_bus_message_unref(message); }
};

class TransferTest : public ::testing::Test {
 protected:
  void SetUp() override {
    daemon_ = testing::startDaemon(logPath().string());
    client_ = testing::ServiceClient::connect(&error_);
    ASSERT_TRUE(client_->waitForService(10s)) << readWholeFile(logPath());
    ASSERT_GE(sd_bus_open_user(&bus_), 0);
  }
  void TearDown() override { sd_bus_flush_close_unref(bus_); }

  std::filesystem::path logPath() const { return folder_.path() / "daemon.log"; }

  // Calls a method of the Transfer interface with the arguments `append` writes.
  void callTransfer(const char* method, const std::function<int(sd_bus_message*)>& append,
                    WireReply& reply) {
    sd_bus_message* call = nullptr;
    ASSERT_GE(sd_bus_message_new_method_call(bus_, &call, dbus::kServiceName, dbus::kObjectPath,
                                             dbus::kTransferInterfaceName, method),
              0);
    ASSERT_GE(append(call), 0);
    sd_bus_error error = SD_BUS_ERROR_NULL;
    if (sd_bus_call(bus_, call, 60'000'000, &error, &reply.message) < 0) {
      reply.errorName = error.name ? error.name : "";
      reply.errorMessage = error.message ? error.message : "";
    }
    sd_bus_error_free(&error);
    sd_bus_message_unref(call);
  }

  testing::PrivateBus privateBus_;
  testing::TemporaryFolder folder_;
  testing::ChildProcess daemon_;
  std::unique_ptr<testing::ServiceClient> client_;
  std::optional<Error> error_;
  sd_bus* bus_ = nullptr;
};

// 200 MB cannot travel in one D-Bus message; the client hands the service a sealed memory file.
TEST_F(TransferTest, A200MegabytePdfIsImportedFromData) {
  std::string pdf = testing::paddedPdf("Carried by a sealed memory file", 200'000'000);
  Data data(pdf.begin(), pdf.end());
  pdf = {};
  auto start = std::chrono::steady_clock::now();
  std::optional<ImportResult> result =
      client_->openData(data, u"https://example.com/large.pdf", u"application/pdf", &error_);
  auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  ASSERT_TRUE(result) << error_->domain << ": " << error_->localizedDescription;
  ASSERT_TRUE(result->string(ImportKey::Text)) << readWholeFile(logPath());
  EXPECT_NE(toUtf8(*result->string(ImportKey::Text)).find("Carried by a sealed memory file"),
            std::string::npos);
  EXPECT_FALSE(result->contains(dbus::kTextTruncatedKey));
  RecordProperty("seconds", std::to_string(seconds));
  EXPECT_TRUE(client_->ping(&error_));
}

// Names that are not UTF-8 (here Latin-1) travel as bytes and answer what the in-process
// operations answer.
TEST_F(TransferTest, Latin1NamesAnswerAsInProcess) {
  std::string file = folder_.write("caf\xE9.txt", "Bonjour tout le monde");
  std::filesystem::create_directory(folder_.path() / "d\xE9j\xE0");
  std::string folder = (folder_.path() / "d\xE9j\xE0").string();
  ASSERT_TRUE(
      OVMetaDataStore::setObject(PropertyArray{u"Caf\u00e9"}, MetaDataKey::UserTags, file, false));
  MIMETypeHelper local;
  struct Row {
    const char* name;
    std::function<std::optional<ImportResult>()> remote;
    std::function<ImportResult()> inProcess;
  };
  const std::vector<Row> rows = {
      {"file", [&] { return client_->openFile(file, &error_); },
       [&] { return local.openFile(file); }},
      {"attributes", [&] { return client_->openAttributes(file, &error_); },
       [&] { return local.openAttributes(file); }},
      {"directory", [&] { return client_->openDirectory(folder, &error_); },
       [&] { return local.openDirectory(folder); }},
  };
  for (const Row& row : rows) {
    std::optional<ImportResult> result = row.remote();
    ASSERT_TRUE(result) << row.name << ": " << error_->localizedDescription;
    EXPECT_EQ(*result, row.inProcess()) << row.name;
  }
  std::optional<ImportResult> read = client_->openFile(file, &error_);
  ASSERT_TRUE(read && read->string(ImportKey::Text));
  EXPECT_EQ(*read->string(ImportKey::Text), u"Bonjour tout le monde");
  EXPECT_EQ(*read->string(ImportKey::Tags), u"Caf\u00e9");
  EXPECT_EQ(client_->isPlainFile(file, &error_), std::optional<bool>(true));
  EXPECT_EQ(client_->supportsFile(file, &error_), std::optional<bool>(false));

  // NUL ends a path: refused by the client, and by the service when sent anyway.
  EXPECT_FALSE(client_->openFile(std::string("caf\xE9\0.txt", 9), &error_));
  EXPECT_EQ(error_->domain, SD_BUS_ERROR_INVALID_ARGS);
  WireReply reply;
  callTransfer(
      "OpenFile",
      [](sd_bus_message* call) { return sd_bus_message_append_array(call, 'y', "a\0b", 3); },
      reply);
  EXPECT_EQ(reply.errorName, SD_BUS_ERROR_INVALID_ARGS);
  EXPECT_EQ(reply.errorMessage, "A path cannot hold a NUL byte");
}

// Texts over 32 MiB leave as a sealed memory file; past the classic 48 MiB they arrive whole.
TEST_F(TransferTest, LargeTextsArriveWholeThroughASealedMemoryFile) {
  // Large markup gives large texts (plain text files over 4 MB are skipped), under Latin-1 names
  // so that the client library takes the Transfer interface.
  std::string item = "<item>" + std::string(1000, 'w') + "</item>\n";
  struct Row {
    const char* name;
    std::size_t size;
    std::string path = {};
  };
  std::vector<Row> rows = {{"in the message", 1000}, {"over the classic 48 MiB", 60u << 20}};
  for (Row& row : rows) {
    std::string xml = "<root>";
    while (xml.size() < row.size) xml += item;
    row.path = folder_.write(std::string("gr\xF6\xDF"
                                         "e ") +
                                 row.name + ".xml",
                             xml + "</root>");
  }
  const std::string& largest = rows.back().path;

  // On the wire: no "Text", a sealed "TextFile" holding it, no cut mark.
  WireReply reply;
  callTransfer(
      "OpenFile",
      [&](sd_bus_message* call) {
        return sd_bus_message_append_array(call, 'y', largest.data(), largest.size());
      },
      reply);
  ASSERT_EQ(reply.errorName, "") << reply.errorMessage;
  std::vector<std::string> keys;
  std::optional<std::size_t> fileSize;
  ASSERT_GT(sd_bus_message_enter_container(reply.message, 'a', "{sv}"), 0);
  while (sd_bus_message_enter_container(reply.message, 'e', "sv") > 0) {
    const char* key = nullptr;
    ASSERT_GE(sd_bus_message_read_basic(reply.message, 's', &key), 0);
    keys.push_back(key);
    const char* contents = nullptr;
    ASSERT_GE(sd_bus_message_peek_type(reply.message, nullptr, &contents), 0);
    if (keys.back() == dbus::kTextFileKey) {
      ASSERT_STREQ(contents, "h");
      int descriptor = -1;
      ASSERT_GE(sd_bus_message_read(reply.message, "v", "h", &descriptor), 0);
      Result<SealedBytes> mapped = SealedBytes::map(descriptor);
      ASSERT_TRUE(mapped) << mapped.error().localizedDescription;
      fileSize = mapped->bytes().size();
    } else {
      ASSERT_GE(sd_bus_message_skip(reply.message, "v"), 0);
    }
    ASSERT_GE(sd_bus_message_exit_container(reply.message), 0);
  }
  EXPECT_EQ(std::count(keys.begin(), keys.end(), "Text"), 0);
  EXPECT_EQ(std::count(keys.begin(), keys.end(), dbus::kTextFileKey), 1);
  EXPECT_EQ(std::count(keys.begin(), keys.end(), dbus::kTextTruncatedKey), 0);
  EXPECT_GT(fileSize, 48u * 1024 * 1024);

  // Through the client library: the text is back in "Text", as the import made it in-process.
  MIMETypeHelper local;
  ScopedTextLimit sameLimit(dbus::kTransferTextBytes);
  for (const Row& row : rows) {
    std::optional<ImportResult> result = client_->openFile(row.path, &error_);
    ASSERT_TRUE(result) << row.name << ": " << error_->localizedDescription;
    ASSERT_TRUE(result->string(ImportKey::Text)) << row.name;
    EXPECT_EQ(*result, local.openFile(row.path)) << row.name;
    EXPECT_FALSE(result->contains(dbus::kTextTruncatedKey)) << row.name;
  }
  EXPECT_EQ(readWholeFile(logPath()).find("Truncated"), std::string::npos);
}

// Data the caller could still change under the service is refused, with a clear error, and the
// service goes on serving.
TEST_F(TransferTest, DescriptorsThatCouldChangeAreRefused) {
  auto memfd = [](int seals) {
    OwnedDescriptor file(::memfd_create("data", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    EXPECT_EQ(::write(file.get(), "text", 4), 4);
    if (seals) {
      EXPECT_EQ(::fcntl(file.get(), F_ADD_SEALS, seals), 0);
    }
    return file;
  };
  std::string plain = folder_.write("plain.txt", "text");
  struct Row {
    const char* name;
    std::function<OwnedDescriptor()> make;
    const char* message;
  };
  const char* kUnsealed =
      "The memory file is not sealed against change (F_SEAL_WRITE, F_SEAL_SHRINK and "
      "F_SEAL_GROW are required)";
  const char* kNotMemfd = "The descriptor is not a memory file (a sealed memfd is expected)";
  const std::vector<Row> rows = {
      {"unsealed", [&] { return memfd(0); }, kUnsealed},
      {"writable", [&] { return memfd(F_SEAL_SHRINK | F_SEAL_GROW); }, kUnsealed},
      {"may shrink", [&] { return memfd(F_SEAL_WRITE | F_SEAL_GROW); }, kUnsealed},
      {"a plain file", [&] { return OwnedDescriptor(::open(plain.c_str(), O_RDONLY)); }, kNotMemfd},
  };
  for (const Row& row : rows) {
    OwnedDescriptor file = row.make();
    WireReply reply;
    callTransfer(
        "OpenData",
        [&](sd_bus_message* call) {
          return sd_bus_message_append(call, "hss", file.get(), "", "text/plain");
        },
        reply);
    EXPECT_EQ(reply.errorName, SD_BUS_ERROR_INVALID_ARGS) << row.name;
    EXPECT_EQ(reply.errorMessage, row.message) << row.name;
    EXPECT_TRUE(client_->ping(&error_)) << row.name;
  }
  EXPECT_TRUE(daemon_.running());
}

// Each method as "Name in:type ... out:type", for the interface named exactly.
std::vector<std::string> methodsOf(const std::string& xml, std::string_view interfaceName) {
  std::size_t start = xml.find("<interface name=\"" + std::string(interfaceName) + "\">");
  if (start == std::string::npos) return {};
  std::string interface = xml.substr(start, xml.find("</interface>", start) - start);
  std::vector<std::string> methods;
  std::regex methodPattern(R"re(<method name="(\w+)">([\s\S]*?)</method>)re");
  std::regex argumentPattern(R"re(<arg type="([^"]+)" name="(\w+)" direction="(in|out)"/>)re");
  for (std::sregex_iterator it(interface.begin(), interface.end(), methodPattern), end; it != end;
       ++it) {
    std::string method = (*it)[1], body = (*it)[2];
    for (std::sregex_iterator arg(body.begin(), body.end(), argumentPattern); arg != end; ++arg)
      method += " " + (*arg)[3].str() + ":" + (*arg)[1].str() + ":" + (*arg)[2].str();
    methods.push_back(method);
  }
  return methods;
}

TEST_F(TransferTest, IntrospectionShowsTheTransferInterfaceBesideTheClassicEight) {
  std::optional<std::string> xml = client_->introspect(&error_);
  ASSERT_TRUE(xml);
  EXPECT_EQ(methodsOf(*xml, dbus::kTransferInterfaceName),
            (std::vector<std::string>{
                "OpenData in:h:data in:s:url in:s:mimeType out:a{sv}:result",
                "OpenDirectory in:ay:path out:a{sv}:result", "OpenFile in:ay:path out:a{sv}:result",
                "OpenAttributes in:ay:path out:a{sv}:result",
                "SupportsFile in:ay:path out:b:supported", "IsPlainFile in:ay:path out:b:plain"}));
  std::vector<std::string> classic = methodsOf(*xml, dbus::kInterfaceName);
  ASSERT_EQ(classic.size(), dbus::kMethodNames.size());
  for (std::size_t i = 0; i < classic.size(); ++i)
    EXPECT_EQ(classic[i].substr(0, classic[i].find(' ')), dbus::kMethodNames[i]);
}

}  // namespace
}  // namespace ulvek
