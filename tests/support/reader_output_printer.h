#pragma once

#include <ostream>

#include "readers/reader.h"

namespace ulvek {

// Failure messages show a reader's answer property by property, the text left out.
inline void PrintTo(const ReaderOutput& output, std::ostream* out) {
  auto text = [&](const char* name, const std::optional<TextString>& value) {
    if (value) *out << name << "=\"" << toUtf8(*value) << "\" ";
  };
  auto list = [&](const char* name, const std::optional<TextList>& value) {
    if (!value) return;
    *out << name << "=[";
    for (const TextString& item : *value) *out << "\"" << toUtf8(item) << "\",";
    *out << "] ";
  };
  auto date = [&](const char* name, const std::optional<Date>& value) {
    if (value) *out << name << "=" << value->microseconds << " ";
  };
  *out << "{convention " << static_cast<int>(output.convention) << " ";
  text("title", output.title);
  text("subject", output.subject);
  text("headline", output.headline);
  text("description", output.description);
  text("comment", output.comment);
  text("finderComment", output.finderComment);
  text("copyright", output.copyright);
  text("album", output.album);
  text("composer", output.composer);
  text("url", output.url);
  list("authors", output.authors);
  list("keywords", output.keywords);
  list("authorAddresses", output.authorAddresses);
  list("recipients", output.recipients);
  list("recipientAddresses", output.recipientAddresses);
  list("emailAddresses", output.emailAddresses);
  list("instantMessageAddresses", output.instantMessageAddresses);
  list("phoneNumbers", output.phoneNumbers);
  date("creation", output.creation);
  date("modification", output.modification);
  for (const auto& [name, content] : output.htmlMeta)
    *out << "meta " << toUtf8(name) << "=\"" << toUtf8(content) << "\" ";
  if (!output.documentType.empty()) *out << "documentType=" << toUtf8(output.documentType);
  *out << "}";
}

}  // namespace ulvek
