#include "readers/chatlog/chat_log_reader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "test_support.h"

namespace ulvek {
namespace {

using testing::CapturedLog;
using testing::TemporaryFolder;

TEST(ChatLogReader, TheTextOfItsOneTranscript) {
  TemporaryFolder folder;
  struct Row {
    const char* package;
    std::vector<std::pair<const char*, const char*>> files;  // name, contents
    std::optional<std::u16string> text;
    bool logged = false;
  };
  const Row rows[] = {
      {"One.chatlog",
       {{"log.xml", "<chat><message>Hi &lt;there&gt;</message></chat>"}, {"icon.png", "PNG"}},
       u"Hi <there>"},
      {"Upper.chatlog", {{"LOG.XML", "<chat>caf\xC3\xA9</chat>"}}, u"caf\u00E9"},
      // Which of two transcripts is the log cannot be told.
      {"Two.chatlog", {{"a.xml", "<chat/>"}, {"b.xml", "<chat/>"}}, std::nullopt, true},
      {"None.chatlog", {{"notes.txt", "words"}}, std::nullopt, true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.package);
    for (const auto& [name, contents] : row.files)
      folder.write(std::string(row.package) + "/" + name, contents);
    std::string path = (folder.path() / row.package).string();
    CapturedLog log;
    std::optional<ReaderOutput> output = chatLogReader().read(ReaderSource::file(path));
    EXPECT_EQ(output ? output->text : std::nullopt, row.text);
    EXPECT_EQ(log.lines(),
              row.logged
                  ? std::vector<std::string>{"Chat log without exactly one transcript: " + path}
                  : std::vector<std::string>{});
  }
  // A transcript that links out of the package is not followed.
  folder.write("outside.xml", "<chat>private</chat>");
  std::filesystem::create_directories(folder.path() / "Linked.chatlog");
  std::filesystem::create_symlink("../outside.xml", folder.path() / "Linked.chatlog/log.xml");
  {
    CapturedLog log;
    EXPECT_FALSE(
        chatLogReader().read(ReaderSource::file((folder.path() / "Linked.chatlog").string())));
    EXPECT_TRUE(log.contains("Transcript of chat log is not a file in it: "));
  }
  // A file under the name is no package: nothing, one line.
  std::string file = folder.write("Flat.chatlog", "<chat/>");
  CapturedLog log;
  EXPECT_FALSE(chatLogReader().read(ReaderSource::file(file)));
  EXPECT_EQ(log.lines().size(), 1u);
}

}  // namespace
}  // namespace ulvek
