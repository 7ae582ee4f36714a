// Mail.mdimporter: e-mail messages (.eml, Apple Mail's .emlx, message/rfc822) and mailboxes
// (.mbox, .mbx: messages after "From " lines) read with GMime: subject, senders, recipients, date,
// and the text of the message with the names of its attachments and the text of those that can
// be read here: plain text, HTML, PDF (poppler) and word-processor documents (ulvekbot's own
// readers). HTML goes through ulvekbot's HTML-to-text conversion. A mailbox of several messages
// answers each one's subject and text, everyone who wrote or was written to, and the dates of
// the first and the last message.

#include <fcntl.h>
#include <gmime/gmime.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/ascii.h"
#include "importer_plugin.h"
#include "poppler_text.h"
#include "readers/attributed/attributed_reader.h"
#include "text/html_to_text.h"
#include "unique_strings.h"

namespace {

using ulvek::plugin::Attributes;
using ulvek::plugin::UniqueStrings;

template <typename T>
struct GObjectDeleter {
  void operator()(T* object) const {
    if (object) g_object_unref(object);
  }
};
template <typename T>
using Owned = std::unique_ptr<T, GObjectDeleter<T>>;

// Nobody writes mail nested deeper; hostile messages nest thousands of levels.
constexpr int kMaxDepth = 64;
// Enough of an attachment's text to find it by, and no more attachments read than a person
// would attach.
constexpr std::size_t kMaxAttachmentText = 1024 * 1024;
constexpr std::size_t kMaxReadAttachments = 32;
// Attachments larger than this, decoded, are named but not read.
constexpr std::size_t kMaxAttachmentBytes = 64 * 1024 * 1024;

// A mailbox's text stops growing here; a mail archive can hold gigabytes.
constexpr std::size_t kMaxMailboxText = 64 * 1024 * 1024;
// Everyone a mailbox names, up to this many names and addresses each.
constexpr std::size_t kMaxPeople = 10000;

struct People {
  std::vector<std::string> names;
  std::vector<std::string> addresses;
};

void collect(InternetAddressList* list, People& people, int depth = 0) {
  if (!list || depth > 4) return;
  for (int i = 0; i < internet_address_list_length(list); ++i) {
    InternetAddress* address = internet_address_list_get_address(list, i);
    if (INTERNET_ADDRESS_IS_GROUP(address)) {
      collect(internet_address_group_get_members(INTERNET_ADDRESS_GROUP(address)), people,
              depth + 1);
      continue;
    }
    const char* mailbox = internet_address_mailbox_get_addr(INTERNET_ADDRESS_MAILBOX(address));
    const char* name = internet_address_get_name(address);
    std::string shown = name && *name ? name : (mailbox ? mailbox : "");
    if (!shown.empty()) people.names.push_back(shown);
    if (mailbox && *mailbox) people.addresses.push_back(mailbox);
  }
}

struct Body {
  // Each inline text part in message order, HTML as text.
  std::vector<std::string> texts;
  std::vector<std::string> attachments;
  std::size_t readAttachments = 0;
};

bool isAttachment(GMimeObject* part) {
  GMimeContentDisposition* disposition = g_mime_object_get_content_disposition(part);
  return disposition && g_mime_content_disposition_is_attachment(disposition);
}

bool isBlank(const std::string& text) {
  return text.find_first_not_of(" \t\r\n") == std::string::npos;
}

std::string textOf(GMimeTextPart* part) {
  char* text = g_mime_text_part_get_text(part);
  std::string result = text ? text : "";
  g_free(text);
  return result;
}

// The part's content with its transfer encoding undone; nothing beyond the size limit.
std::optional<std::string> decodedContent(GMimePart* part) {
  GMimeDataWrapper* content = g_mime_part_get_content(part);
  if (!content) return std::nullopt;
  Owned<GMimeStream> stream(g_mime_stream_mem_new());
  if (g_mime_data_wrapper_write_to_stream(content, stream.get()) < 0) return std::nullopt;
  GByteArray* bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(stream.get()));
  if (!bytes || bytes->len > kMaxAttachmentBytes) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(bytes->data), bytes->len);
}

std::string lowercaseExtension(const char* name) {
  const char* dot = name ? std::strrchr(name, '.') : nullptr;
  return dot ? ulvek::asciiLowercase(dot + 1) : std::string();
}

std::string pdfText(const std::string& bytes) {
  auto document = ulvek::plugin::PdfDocument::fromBytes(bytes.data(), bytes.size());
  return document ? ulvek::plugin::documentText(*document, kMaxAttachmentText) : std::string();
}

std::string htmlToText(const std::string& html);

// The text of an attachment this importer can read, by its type or else its name.
std::string attachmentText(GMimePart* part) {
  GMimeContentType* type = g_mime_object_get_content_type(GMIME_OBJECT(part));
  const char* name = g_mime_part_get_filename(part);
  const std::string extension = lowercaseExtension(name);
  auto is = [&](const char* major, const char* minor) {
    return type && g_mime_content_type_is_type(type, major, minor);
  };
  if (GMIME_IS_TEXT_PART(part) && is("text", "plain")) return textOf(GMIME_TEXT_PART(part));
  if (GMIME_IS_TEXT_PART(part) && is("text", "html"))
    return htmlToText(textOf(GMIME_TEXT_PART(part)));
  const bool pdf = is("application", "pdf") || extension == "pdf";
  const bool document =
      is("application", "rtf") || is("text", "rtf") || is("application", "msword") ||
      is("application", "vnd.openxmlformats-officedocument.wordprocessingml.document") ||
      is("application", "vnd.oasis.opendocument.text") || extension == "rtf" ||
      extension == "doc" || extension == "docx" || extension == "odt";
  if (!pdf && !document) return {};
  std::optional<std::string> bytes = decodedContent(part);
  if (!bytes || bytes->empty()) return {};
  if (pdf) return pdfText(*bytes);
  ulvek::Bytes view(reinterpret_cast<const std::uint8_t*>(bytes->data()), bytes->size());
  std::optional<ulvek::ReaderOutput> output = ulvek::attributedDocumentReader().read(
      ulvek::ReaderSource::data(view, name ? name : "attachment." + extension));
  if (!output || !output->text) return {};
  return ulvek::toUtf8(*output->text);
}

// Walks the tree without recursion: inline text parts in order, attachment names and texts.
void walk(GMimeObject* root, Body& body) {
  std::vector<std::pair<GMimeObject*, int>> pending{{root, 0}};
  while (!pending.empty()) {
    auto [object, depth] = pending.back();
    pending.pop_back();
    if (!object || depth > kMaxDepth) continue;
    if (GMIME_IS_MULTIPART(object)) {
      GMimeMultipart* multipart = GMIME_MULTIPART(object);
      int count = g_mime_multipart_get_count(multipart);
      // Alternatives say one thing several ways: the plain one, else the last (richest). A
      // blank plain part stands for nothing.
      GMimeContentType* type = g_mime_object_get_content_type(object);
      if (g_mime_content_type_is_type(type, "multipart", "alternative") && count > 0) {
        GMimeObject* chosen = g_mime_multipart_get_part(multipart, count - 1);
        for (int i = 0; i < count; ++i) {
          GMimeObject* child = g_mime_multipart_get_part(multipart, i);
          if (g_mime_content_type_is_type(g_mime_object_get_content_type(child), "text", "plain") &&
              GMIME_IS_TEXT_PART(child) && !isBlank(textOf(GMIME_TEXT_PART(child)))) {
            chosen = child;
            break;
          }
        }
        pending.emplace_back(chosen, depth + 1);
        continue;
      }
      for (int i = count - 1; i >= 0; --i)
        pending.emplace_back(g_mime_multipart_get_part(multipart, i), depth + 1);
      continue;
    }
    if (GMIME_IS_MESSAGE_PART(object)) {
      GMimeMessage* inner = g_mime_message_part_get_message(GMIME_MESSAGE_PART(object));
      if (inner) pending.emplace_back(g_mime_message_get_mime_part(inner), depth + 1);
      continue;
    }
    if (!GMIME_IS_PART(object)) continue;
    GMimePart* part = GMIME_PART(object);
    if (isAttachment(object)) {
      if (const char* name = g_mime_part_get_filename(part)) body.attachments.push_back(name);
      // A readable attachment's own text follows its name.
      if (body.readAttachments < kMaxReadAttachments) {
        ++body.readAttachments;
        std::string text = attachmentText(part);
        if (text.size() > kMaxAttachmentText) text.resize(kMaxAttachmentText);
        if (!text.empty()) body.attachments.push_back(std::move(text));
      }
      continue;
    }
    if (GMIME_IS_TEXT_PART(object)) {
      GMimeContentType* type = g_mime_object_get_content_type(object);
      if (g_mime_content_type_is_type(type, "text", "plain"))
        body.texts.push_back(textOf(GMIME_TEXT_PART(object)));
      else if (g_mime_content_type_is_type(type, "text", "html"))
        body.texts.push_back(htmlToText(textOf(GMIME_TEXT_PART(object))));
      continue;
    }
    if (const char* name = g_mime_part_get_filename(part)) body.attachments.push_back(name);
  }
}

// Decodes encoded words one by one: GMime loses the rest of a stateful charset (ISO-2022-JP)
// split over several words. White space between two encoded words is dropped, as it should be.
std::string decodedWords(const std::string& raw) {
  char* unfolded = g_mime_utils_header_unfold(raw.c_str());
  std::string text = unfolded ? unfolded : "";
  g_free(unfolded);
  std::string result;
  std::string pendingSpace;
  bool lastWasEncoded = false;
  std::size_t at = 0;
  while (at < text.size()) {
    std::size_t end = text.find_first_of(" \t", at);
    if (end == std::string::npos) end = text.size();
    std::string token = text.substr(at, end - at);
    bool encoded = token.size() > 4 && token.starts_with("=?") && token.ends_with("?=");
    if (!(encoded && lastWasEncoded)) result += pendingSpace;
    char* decoded = g_mime_utils_header_decode_text(nullptr, token.c_str());
    result += decoded ? decoded : token;
    g_free(decoded);
    lastWasEncoded = encoded;
    std::size_t next = text.find_first_not_of(" \t", end);
    pendingSpace = text.substr(end, (next == std::string::npos ? text.size() : next) - end);
    at = next == std::string::npos ? text.size() : next;
  }
  while (!result.empty() && result.front() == ' ') result.erase(0, 1);
  return result;
}

// The first Subject header, as most mail programs show it when a message has two.
std::string firstSubject(GMimeMessage* message) {
  GMimeHeaderList* headers = g_mime_object_get_header_list(GMIME_OBJECT(message));
  for (int i = 0; headers && i < g_mime_header_list_get_count(headers); ++i) {
    GMimeHeader* header = g_mime_header_list_get_header_at(headers, i);
    if (g_ascii_strcasecmp(g_mime_header_get_name(header), "Subject") != 0) continue;
    const char* raw = g_mime_header_get_raw_value(header);
    return decodedWords(raw ? raw : "");
  }
  const char* subject = g_mime_message_get_subject(message);
  return subject ? subject : "";
}

std::string htmlToText(const std::string& html) {
  ulvek::TextString text =
      ulvek::stringByConvertingHtml2PlainText(ulvek::fromUtf8(html), ulvek::kImportHtmlOptions);
  return ulvek::toUtf8(text);
}

// Apple Mail's .emlx: a line with the message's byte count, the message, then a property list.
// `mailbox` tells whether the file begins with a "From " line, as a mailbox's messages do.
GMimeStream* messageStream(const char* path, bool& mailbox) {
  GError* error = nullptr;
  GMimeStream* file = g_mime_stream_fs_open(path, O_RDONLY, 0, &error);
  if (error) g_error_free(error);
  if (!file) return nullptr;
  char head[5] = {};
  mailbox = g_mime_stream_read(file, head, sizeof head) == sizeof head &&
            std::memcmp(head, "From ", sizeof head) == 0;
  g_mime_stream_reset(file);
  std::string name = path;
  bool emlx = name.size() > 5 && (name.ends_with(".emlx") || name.ends_with(".EMLX"));
  if (!emlx || mailbox) return file;
  char line[32] = {};
  ssize_t got = g_mime_stream_read(file, line, sizeof line - 1);
  char* end = nullptr;
  long long count = got > 0 ? std::strtoll(line, &end, 10) : -1;
  while (end && (*end == ' ' || *end == '\t')) ++end;
  if (count < 0 || !end || (*end != '\n' && *end != '\r')) {
    g_mime_stream_reset(file);
    return file;  // not the count line after all: read it as a plain message
  }
  gint64 start = end - line + 1 + (*end == '\r' && end[1] == '\n');
  GMimeStream* message = g_mime_stream_substream(file, start, start + count);
  g_object_unref(file);
  return message;
}

// What one message says, as its attributes give it.
struct Message {
  std::string subject;
  People senders, recipients;
  std::optional<double> date;
  std::string text;
};

Message readMessage(GMimeMessage* message) {
  Message read;
  read.subject = firstSubject(message);
  collect(g_mime_message_get_from(message), read.senders);
  collect(g_mime_message_get_to(message), read.recipients);
  collect(g_mime_message_get_cc(message), read.recipients);
  if (GDateTime* date = g_mime_message_get_date(message))
    read.date = double(g_date_time_to_unix(date));
  Body body;
  walk(g_mime_message_get_mime_part(message), body);
  // The inline parts in order (a forwarded message's too): an HTML body nested in related parts
  // counts as much as a plain footer a mailing list added beside it.
  auto append = [&read](const std::string& part) {
    if (isBlank(part)) return;
    if (!read.text.empty()) read.text += '\n';
    read.text += part;
  };
  for (const std::string& part : body.texts) append(part);
  for (const std::string& name : body.attachments) append(name);
  return read;
}

void answerMessage(Attributes& out, const Message& message) {
  out.string("kMDItemTitle", message.subject);
  out.strings("kMDItemAuthors", message.senders.names);
  out.strings("kMDItemAuthorEmailAddresses", message.senders.addresses);
  out.strings("kMDItemRecipients", message.recipients.names);
  out.strings("kMDItemRecipientEmailAddresses", message.recipients.addresses);
  if (message.date) out.date("kMDItemContentCreationDate", *message.date);
  out.string("kMDItemTextContent", message.text);
}

// Several messages: each one's subject and text, a blank line apart; everyone named once, in the
// order met; the first and the last date. The mailbox's own name stays its title.
class Mailbox {
 public:
  void add(const Message& message) {
    ++count_;
    if (text_.size() < kMaxMailboxText) {
      bool first = true;
      for (const std::string& part : {message.subject, message.text}) {
        std::size_t end = part.find_last_not_of(" \t\r\n");
        if (end == std::string::npos) continue;
        if (first && !text_.empty()) text_ += '\n';
        first = false;
        text_.append(part, 0, end + 1);
        text_ += '\n';
      }
    }
    addPeople(message.senders, senders_);
    addPeople(message.recipients, recipients_);
    if (message.date) {
      first_ = first_ ? std::min(*first_, *message.date) : *message.date;
      last_ = last_ ? std::max(*last_, *message.date) : *message.date;
    }
  }

  std::size_t count() const { return count_; }

  void answer(Attributes& out) const {
    out.strings("kMDItemAuthors", senders_.names.values());
    out.strings("kMDItemAuthorEmailAddresses", senders_.addresses.values());
    out.strings("kMDItemRecipients", recipients_.names.values());
    out.strings("kMDItemRecipientEmailAddresses", recipients_.addresses.values());
    if (first_) out.date("kMDItemContentCreationDate", *first_);
    if (last_) out.date("kMDItemContentModificationDate", *last_);
    out.string("kMDItemTextContent", text_.substr(0, kMaxMailboxText));
  }

 private:
  struct Everyone {
    UniqueStrings names{kMaxPeople}, addresses{kMaxPeople};
  };

  static void addPeople(const People& people, Everyone& everyone) {
    for (const std::string& name : people.names) everyone.names.add(name);
    for (const std::string& address : people.addresses)
      everyone.addresses.add(address, ulvek::asciiLowercase(address));
  }

  std::size_t count_ = 0;
  std::string text_;
  Everyone senders_, recipients_;
  std::optional<double> first_, last_;
};

bool importMail(Attributes& out, const char*, const char* path) {
  static bool initialised = (g_mime_init(), true);
  (void)initialised;
  using Clock = std::chrono::steady_clock;
  ulvek::plugin::PopplerMessages::tellAbout(std::string("PDF attachment in ") + path);
  bool mailbox = false;
  Owned<GMimeStream> stream(messageStream(path, mailbox));
  if (!stream) return false;
  Owned<GMimeParser> parser(g_mime_parser_new_with_stream(stream.get()));
  if (!mailbox) {
    Owned<GMimeMessage> message(g_mime_parser_construct_message(parser.get(), nullptr));
    if (!message) return false;
    Message read = readMessage(message.get());
    ulvek::plugin::PopplerMessages::finish(true);
    answerMessage(out, read);
    return true;
  }
  // A mailbox is read message by message until the host's time is nearly up; what was read by
  // then is answered, with a line saying so.
  g_mime_parser_set_format(parser.get(), GMIME_FORMAT_MBOX);
  std::optional<Clock::time_point> deadline;
  if (auto left = out.timeLeft())
    deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(*left * 0.85);
  Mailbox messages;
  std::optional<Message> only;
  bool late = false;
  while (!g_mime_parser_eos(parser.get())) {
    if (deadline && Clock::now() >= *deadline) {
      late = true;
      break;
    }
    Owned<GMimeMessage> message(g_mime_parser_construct_message(parser.get(), nullptr));
    if (!message) break;
    Message read = readMessage(message.get());
    messages.add(read);
    if (messages.count() == 1) only = std::move(read);
  }
  ulvek::plugin::PopplerMessages::finish(true);
  if (late)
    std::fprintf(stderr, "time limit reached after %zu messages of %s\n", messages.count(), path);
  if (messages.count() == 0) return false;
  // One message in a mailbox is that message.
  if (messages.count() == 1 && only)
    answerMessage(out, *only);
  else
    messages.answer(out);
  return true;
}

}  // namespace

ULVEK_EXPORT_IMPORTER_FACTORY(UlvekMailImporterFactory, importMail)
