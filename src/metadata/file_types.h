#pragma once

// The file-type tests: small questions answered from a file name's extension and, where a test
// takes one, the file's quoted four-character type code ("'TEXT'"). An absent extension or type
// code matches nothing. Extensions are compared over their whole length without regard to case,
// type codes exactly, unless a test says otherwise.
// The order in which the dispatcher asks them is import/route_table.h.

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/property_value.h"
#include "base/text_string.h"

namespace ulvek {

using OptionalText = std::optional<TextView>;

// The part of the last path component after its last dot; empty when there is none, when the
// dot starts the name or ends it.
TextString pathExtension(std::string_view path);

// Between 1 and 17 units, all alphanumeric.
bool isValidPathExtension(TextView extension);

// NSFileManager(UlvekFileManagerExtensions)
bool isInternetLocationExtension(OptionalText extension, OptionalText type);

// NSString(EmailSupport)
bool isEmailExtension(OptionalText extension);

// NSImage(NSImageUlvekExtensions)
bool isPDFBundleExtension(OptionalText extension);
bool isPDFExtension(OptionalText extension, OptionalText type);
bool isPostScriptExtension(OptionalText extension);
bool isImageExtension(OptionalText extension, OptionalText type);
// Extensions and quoted type codes the image importer reads, plus "jpe", "ps", "eps", "ai".
std::span<const TextView> imageFileTypes();

// WebArchive(WebKitAdditions)
bool isWebArchiveExtension(OptionalText extension);

// NSString(MarkDown)
bool isTextBundleExtension(OptionalText extension, OptionalText type);

// NSString(XmlExtensions)
bool isHTMLExtension(OptionalText extension);
bool isPropertyListExtension(OptionalText extension);
bool isXMLExtension(OptionalText extension);

// NSString(Importer)
bool isSheetExtension(OptionalText extension);
bool isFormExtension(OptionalText extension);
bool isWordPerfectExtension(OptionalText extension, OptionalText type);

// NSAttributedString(NSAttributedStringUlvekExtensions)
bool isRTFExtension(OptionalText extension, OptionalText type);
bool isAttributedExtension(OptionalText extension, OptionalText type);
bool isTextClippingExtension(OptionalText extension, OptionalText type);
bool isTextExtension(OptionalText extension, OptionalText type);
bool isWordExtension(OptionalText extension, OptionalText type);
bool isOpenOfficeExtension(OptionalText extension);
// The same test for a path: its extension and its type code.
bool isTextClippingFile(const std::string& path);
// Formats the attributed-string readers open (lower-case extensions).
std::span<const TextView> attributedFileTypes();
// Extra plain-text extensions from the user default "AdditionalPlainTextExtensions", read on
// first use and kept for the life of the process.
std::span<const TextString> customTextFileTypes();
// How a value of "AdditionalPlainTextExtensions" becomes that list: a string is split at ".";
// strings of a list that are valid path extensions are kept in order; anything else is empty.
std::vector<TextString> textFileTypesFromDefault(const std::optional<PropertyValue>& value);

// NSString(NSStringChatExtensions)
bool isChatExtension(OptionalText extension, OptionalText type);

// NSAppleScript(UlvekAppleScriptExtensions)
bool isAppleScriptExtension(OptionalText extension, OptionalText type);

// NSString(URLUtilities): tests of a MIME type string. Absent or empty answers false.
bool isPDFMIMEType(OptionalText mimeType);
bool isPostScriptMIMEType(OptionalText mimeType);
bool isRTFMIMEType(OptionalText mimeType);
bool isMSWordMIMEType(OptionalText mimeType);
bool isOpenOfficeMIMEType(OptionalText mimeType);
bool isStarOfficeMIMEType(OptionalText mimeType);

}  // namespace ulvek
