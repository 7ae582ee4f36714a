// The public client library (libulvekbot-client: client_c.h over client.h) against the built
// daemon on a private bus, linked as applications link it.

#include <gtest/gtest.h>
#include <ulvekbot/client.h>
#include <ulvekbot/client_c.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "../service/service_fixture.h"
#include "test_support.h"

namespace ulvek {
namespace {

using ClientPointer = std::unique_ptr<ulvekbot_client, decltype(&ulvekbot_client_free)>;
using ResultPointer = std::unique_ptr<ulvekbot_result, decltype(&ulvekbot_result_free)>;

const std::string kSurveyPdf = std::string(ULVEK_TEST_DATA_DIR) + "/pdf/survey.pdf";
const std::string kTestHelper = std::string(ULVEK_BINARY_DIR) + "/tests/client_test_helper";

ClientPointer clientFor(const std::string& helper) {
  return ClientPointer(ulvekbot_client_new(helper.c_str()), &ulvekbot_client_free);
}

std::string text(const char* value) { return value ? value : "(null)"; }

class ClientApiTest : public ::testing::Test {
 protected:
  testing::PrivateBus bus_;
  testing::TemporaryFolder folder_;
  ClientPointer client_ = clientFor(testing::builtProgram("ulvekbotd64"));
  void TearDown() override { EXPECT_EQ(ulvekbot_client_terminate(client_.get()), ULVEKBOT_OK); }
};

TEST_F(ClientApiTest, ImportsAnswerTypedValuesOrTheServicesError) {
  std::string html = folder_.write(
      "note.html",
      "<html><head><title>Harbour \xc3\xa6 notes</title><meta name=\"author\" content=\"Ada\">"
      "</head><body><p>Tide tables</p></body></html>");
  std::string missing = (folder_.path() / "missing.html").string();
  struct Case {
    const char* name;
    std::function<ulvekbot_status(ulvekbot_client*, ulvekbot_result**)> import;
    ulvekbot_status status;
    const char* title;         // null: no title expected
    const char* textFragment;  // null: no text expected
  };
  const Case cases[] = {
      {"an HTML file",
       [&](ulvekbot_client* c, ulvekbot_result** r) {
         return ulvekbot_client_import_file(c, html.c_str(), r);
       },
       ULVEKBOT_OK, "Harbour \xc3\xa6 notes", "Tide tables"},
      {"a PDF through its importer",
       [&](ulvekbot_client* c, ulvekbot_result** r) {
         return ulvekbot_client_import_file(c, kSurveyPdf.c_str(), r);
       },
       ULVEKBOT_OK, "Harbour Survey \xe2\x80\x93 Spring Round", ""},
      {"downloaded PDF data with its MIME type",
       [&](ulvekbot_client* c, ulvekbot_result** r) {
         std::string pdf = testing::readWholeFile(kSurveyPdf);
         return ulvekbot_client_import_data(c, pdf.data(), pdf.size(),
                                            "https://example.org/survey.pdf", "application/pdf", r);
       },
       ULVEKBOT_OK, "Harbour Survey \xe2\x80\x93 Spring Round", ""},
      // The daemon logs what it could not read and answers what it knows without reading: no text.
      {"a missing file",
       [&](ulvekbot_client* c, ulvekbot_result** r) {
         return ulvekbot_client_import_file(c, missing.c_str(), r);
       },
       ULVEKBOT_OK, nullptr, nullptr},
      {"no path",
       [&](ulvekbot_client* c, ulvekbot_result** r) {
         return ulvekbot_client_import_file(c, nullptr, r);
       },
       ULVEKBOT_ERROR_INVALID_ARGUMENT},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ulvekbot_result* raw = reinterpret_cast<ulvekbot_result*>(&raw);
    ulvekbot_status status = c.import(client_.get(), &raw);
    ResultPointer result(raw, &ulvekbot_result_free);
    ASSERT_EQ(status, c.status) << ulvekbot_client_error_message(client_.get());
    if (status != ULVEKBOT_OK) {
      EXPECT_EQ(raw, nullptr);
      EXPECT_STRNE(ulvekbot_client_error_message(client_.get()), "");
      continue;
    }
    EXPECT_STREQ(ulvekbot_client_error_message(client_.get()), "");
    if (c.title) {
      EXPECT_EQ(ulvekbot_result_kind(raw, "Title"), ULVEKBOT_VALUE_STRING);
      EXPECT_EQ(text(ulvekbot_result_string(raw, "Title")), c.title);
    }
    if (!c.textFragment) {
      EXPECT_EQ(ulvekbot_result_kind(raw, "Text"), ULVEKBOT_VALUE_NONE);
      continue;
    }
    EXPECT_NE(text(ulvekbot_result_string(raw, "Text")).find(c.textFragment), std::string::npos);
  }
}

TEST_F(ClientApiTest, KeysIterateInOrderAndGettersAnswerOnlyTheirKind) {
  std::string html =
      folder_.write("people.html",
                    "<html><head><title>Crew</title><meta name=\"author\" content=\"Ada\"></head>"
                    "<body>Names</body></html>");
  ulvekbot_result* raw = nullptr;
  ASSERT_EQ(ulvekbot_client_import_file(client_.get(), html.c_str(), &raw), ULVEKBOT_OK);
  ResultPointer result(raw, &ulvekbot_result_free);

  size_t count = ulvekbot_result_count(raw);
  ASSERT_GE(count, 3u);
  for (size_t i = 0; i < count; ++i) {
    const char* key = ulvekbot_result_key(raw, i);
    ASSERT_NE(key, nullptr);
    EXPECT_NE(ulvekbot_result_kind(raw, key), ULVEKBOT_VALUE_NONE) << key;
    if (i > 0) {
      EXPECT_LT(std::strcmp(ulvekbot_result_key(raw, i - 1), key), 0);
    }
  }
  EXPECT_EQ(ulvekbot_result_key(raw, count), nullptr);

  struct Case {
    const char* key;
    ulvekbot_value_kind kind;
  };
  // Lists the service joins with line feeds come apart; sizes are integers.
  for (Case c : {Case{"Title", ULVEKBOT_VALUE_STRING}, Case{"FileSize", ULVEKBOT_VALUE_INTEGER},
                 Case{"Author", ULVEKBOT_VALUE_STRING_LIST}, Case{"Absent", ULVEKBOT_VALUE_NONE}}) {
    SCOPED_TRACE(c.key);
    EXPECT_EQ(ulvekbot_result_kind(raw, c.key), c.kind);
    int64_t integer = 0;
    double real = 0;
    int boolean = 0;
    size_t size = 1;
    EXPECT_EQ(ulvekbot_result_string(raw, c.key) != nullptr, c.kind == ULVEKBOT_VALUE_STRING);
    EXPECT_EQ(ulvekbot_result_integer(raw, c.key, &integer), c.kind == ULVEKBOT_VALUE_INTEGER);
    EXPECT_EQ(ulvekbot_result_real(raw, c.key, &real), 0);
    EXPECT_EQ(ulvekbot_result_boolean(raw, c.key, &boolean), 0);
    EXPECT_EQ(ulvekbot_result_date(raw, c.key, &integer), 0);
    EXPECT_EQ(ulvekbot_result_bytes(raw, c.key, &size), nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(ulvekbot_result_list_count(raw, c.key) > 0, c.kind == ULVEKBOT_VALUE_STRING_LIST);
  }
  int64_t fileSize = 0;
  ASSERT_TRUE(ulvekbot_result_integer(raw, "FileSize", &fileSize));
  EXPECT_EQ(fileSize, static_cast<int64_t>(std::filesystem::file_size(html)));
  EXPECT_EQ(text(ulvekbot_result_list_item(raw, "Author", 0)), "Ada");
  EXPECT_EQ(ulvekbot_result_list_item(raw, "Author", 1), nullptr);
  // Null results and keys are answered, not crashed on.
  EXPECT_EQ(ulvekbot_result_count(nullptr), 0u);
  EXPECT_EQ(ulvekbot_result_kind(raw, nullptr), ULVEKBOT_VALUE_NONE);
  EXPECT_EQ(ulvekbot_result_string(nullptr, "Title"), nullptr);
}

TEST_F(ClientApiTest, QuestionsAboutFilesAnswerOneOrZero) {
  std::string plain = folder_.write("notes.txt", "plain words");
  struct Case {
    const char* name;
    ulvekbot_status (*ask)(ulvekbot_client*, const char*, int*);
    std::string path;
    int answer;
  };
  const Case cases[] = {
      {"a text file is plain", &ulvekbot_client_is_plain_file, plain, 1},
      {"a PDF is not plain", &ulvekbot_client_is_plain_file, kSurveyPdf, 0},
      // Supported: read by an importer plug-in, not by a reader of the service's own.
      {"a PDF is supported", &ulvekbot_client_supports_file, kSurveyPdf, 1},
      {"a text file is not supported", &ulvekbot_client_supports_file, plain, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    int answer = -1;
    ASSERT_EQ(c.ask(client_.get(), c.path.c_str(), &answer), ULVEKBOT_OK)
        << ulvekbot_client_error_message(client_.get());
    EXPECT_EQ(answer, c.answer);
    EXPECT_EQ(c.ask(client_.get(), c.path.c_str(), nullptr), ULVEKBOT_ERROR_INVALID_ARGUMENT);
  }
}

TEST(ClientApiFailures, EachFailureHasItsStatus) {
  testing::PrivateBus bus;
  testing::TemporaryFolder folder;
  std::string file = folder.write("a.txt", "words");
  auto ping = [](ulvekbot_client* c) { return ulvekbot_client_ping(c); };
  auto import = [&](ulvekbot_client* c) {
    ulvekbot_result* result = nullptr;
    ulvekbot_status status = ulvekbot_client_import_file(c, file.c_str(), &result);
    ulvekbot_result_free(result);
    return status;
  };
  struct Case {
    const char* name;
    std::string helper;
    const char* hang;  // seconds the test helper's Ping takes
    std::function<ulvekbot_status(ulvekbot_client*)> call;
    ulvekbot_status status;
  };
  const Case cases[] = {
      {"no program to start", "/nonexistent/ulvekbotd64", "0", ping, ULVEKBOT_ERROR_UNREACHABLE},
      {"a helper that answers too late", kTestHelper, "3", ping, ULVEKBOT_ERROR_TIMEOUT},
      {"a helper that answers", kTestHelper, "0", ping, ULVEKBOT_OK},
      // The test helper has no OpenFile: the bus answers with an error of its own.
      {"an operation the helper lacks", kTestHelper, "0", import, ULVEKBOT_ERROR_FAILED},
  };
  // The test helper registers the daemon's name.
  ::setenv("ULVEK_TEST_HELPER_NAME", "ulvekbotd64", 1);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ::setenv("ULVEK_TEST_HELPER_HANG", c.hang, 1);
    ClientPointer client = clientFor(c.helper);
    ASSERT_EQ(ulvekbot_client_set_timeout(client.get(), 1), ULVEKBOT_OK);
    EXPECT_EQ(c.call(client.get()), c.status) << ulvekbot_client_error_message(client.get());
    EXPECT_EQ(*ulvekbot_client_error_message(client.get()) == '\0', c.status == ULVEKBOT_OK);
  }
  ::unsetenv("ULVEK_TEST_HELPER_NAME");
  ::unsetenv("ULVEK_TEST_HELPER_HANG");
  EXPECT_EQ(ulvekbot_client_ping(nullptr), ULVEKBOT_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(ulvekbot_client_set_timeout(clientFor(kTestHelper).get(), 0),
            ULVEKBOT_ERROR_INVALID_ARGUMENT);
  EXPECT_STREQ(ulvekbot_status_name(ULVEKBOT_ERROR_TIMEOUT), "timed out");
}

TEST(ClientApiActivation, WithoutAPathTheBusStartsTheInstalledService) {
  testing::PrivateBus bus(
      {{"com.ulvek_technologies.ulvekbotd64", testing::builtProgram("ulvekbotd64")}});
  ClientPointer client(ulvekbot_client_new(nullptr), &ulvekbot_client_free);
  EXPECT_EQ(ulvekbot_client_ping(client.get()), ULVEKBOT_OK)
      << ulvekbot_client_error_message(client.get());
  EXPECT_EQ(ulvekbot_client_terminate(client.get()), ULVEKBOT_OK);
}

TEST(ClientApiCpp, ResultsHoldStandardTypes) {
  testing::PrivateBus bus;
  testing::TemporaryFolder folder;
  std::string html = folder.write("a.html", "<title>One</title><meta name=author content=Ada>");
  ulvekbot::Client client(ulvekbot::ClientOptions{testing::builtProgram("ulvekbotd64")});
  ulvekbot::Expected<ulvekbot::ImportResult> result = client.importFile(html);
  ASSERT_TRUE(result) << result.error().message;
  ASSERT_TRUE(result->string("Title"));
  EXPECT_EQ(*result->string("Title"), "One");
  ASSERT_TRUE(result->get<ulvekbot::StringList>("Author"));
  EXPECT_EQ(*result->get<ulvekbot::StringList>("Author"), ulvekbot::StringList{"Ada"});
  EXPECT_TRUE(result->get<std::int64_t>("FileSize"));
  EXPECT_FALSE(result->get<double>("FileSize"));

  // A PDF's dates are time points; its author a list of one.
  ulvekbot::Expected<ulvekbot::ImportResult> pdf = client.importFile(kSurveyPdf);
  ASSERT_TRUE(pdf) << pdf.error().message;
  struct DateCase {
    const char* key;
    std::int64_t seconds;
  };
  for (DateCase c : {DateCase{"Creation", 1615710600}, DateCase{"Modification", 1617383700}}) {
    const ulvekbot::Date* date = pdf->get<ulvekbot::Date>(c.key);
    ASSERT_TRUE(date) << c.key;
    EXPECT_EQ(std::chrono::system_clock::to_time_t(*date), c.seconds) << c.key;
  }
  ASSERT_TRUE(pdf->get<ulvekbot::StringList>("Author"));
  EXPECT_EQ(*pdf->get<ulvekbot::StringList>("Author"),
            ulvekbot::StringList{"Ingrid L\xc3\xb8v\xc3\xa5s"});

  // HTML is read as text by a reader of the service's own.
  ulvekbot::Expected<bool> plain = client.isPlainFile(html);
  ASSERT_TRUE(plain);
  EXPECT_TRUE(*plain);
  EXPECT_TRUE(client.terminate());
  // Once the daemon has gone, terminating again finds nothing to stop.
  EXPECT_TRUE(client.terminate());
}

}  // namespace
}  // namespace ulvek
