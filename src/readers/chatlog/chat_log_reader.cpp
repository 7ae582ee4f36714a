#include "readers/chatlog/chat_log_reader.h"

#include <filesystem>
#include <vector>

#include "base/ascii.h"
#include "base/failure.h"
#include "platform/open_beneath.h"
#include "text/encodings.h"
#include "text/entity_conversion.h"
#include "text/markup_scanner.h"
#include "text/string_utilities.h"
#include "text/text_decoding.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;

class ChatLogReader final : public Reader {
 public:
  std::string_view name() const override { return "chat log"; }

  std::optional<ReaderOutput> read(const ReaderSource& source) const override {
    if (!source.isFile()) return std::nullopt;
    std::vector<fs::path> transcripts;
    std::error_code error;
    for (fs::directory_iterator entries(source.path(), error);
         !error && entries != fs::directory_iterator(); entries.increment(error)) {
      if (asciiLowercase(entries->path().extension().string()) == ".xml")
        transcripts.push_back(entries->path());
    }
    // Which of several transcripts is the log cannot be told, so none is.
    if (transcripts.size() != 1) {
      logFailure(FailureKind::Damaged, "Chat log without exactly one transcript: " + source.path());
      return std::nullopt;
    }
    // Only the package's own member: a link inside it never leads to the user's other files.
    std::optional<FileBytes> bytes =
        readFileBeneath(source.path(), transcripts.front().filename().string()).take();
    if (!bytes) {
      logFailure(FailureKind::Damaged,
                 "Transcript of chat log is not a file in it: " + transcripts.front().string());
      return std::nullopt;
    }
    std::optional<TextString> markup = stringWithMarkupData(bytes->bytes(), kUTF8StringEncoding);
    if (!markup) return std::nullopt;
    // Control characters become blanks and the text is composed, as in an importer's answer.
    ReaderOutput output;
    output.text =
        fixedAndNormalizedString(stringByConvertingEntitiesToCharacters(stripTags(*markup)));
    return output;
  }
};

}  // namespace

const Reader& chatLogReader() {
  static const ChatLogReader reader;
  return reader;
}

}  // namespace ulvek
