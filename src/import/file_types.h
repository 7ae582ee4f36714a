#pragma once

// The file-type tests: small questions answered from a file name's extension and, where a test
// takes one, the file's quoted four-character type code ("'TEXT'"). An absent extension or type
// code matches nothing. Extensions are compared over their whole length without regard to case,
// type codes exactly, unless a test says otherwise.
//
// classifyFile() asks the tests in the one fixed order the importer uses. openFile() and the
// `classify` command both call it, so what `ulvekbot classify` prints is what an import does.

#include <functional>
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

// What the first test that answers YES makes of a file, in the order they are asked.
enum class FileClass {
  None,  // no test answered YES: the content type decides
  InternetLocation,
  Email,
  PDF,
  Image,
  WebArchive,
  TextBundle,
  HTML,
  PropertyList,
  XML,
  Sheet,
  Form,
  WordPerfect,
  AttributedDocument,
  TextClipping,
  PlainText,
  Chat,
  AppleScript,
};

struct FileClassification {
  FileClass fileClass = FileClass::None;
  int step = 0;           // 1 to 17; 0 when no test answered YES
  std::string_view test;  // the test that answered YES, e.g. "isHTMLExtension:"; empty if none
  bool packageSkipped = false;  // the text test answered YES but the item is a package
};

// Asks the tests in the dispatcher's order; the first YES decides. `isPackage` is called only
// when the text test answers YES (the only test that touches the file system); a package is not
// read as plain text and the remaining tests are asked. No `isPackage` counts as "not a package".
FileClassification classifyFile(OptionalText extension, OptionalText type,
                                const std::function<bool()>& isPackage = {});

// When no test answered YES, the content type decides: HTML, plain text, or the importers.
enum class ContentTypeRoute { Importer, HTML, PlainText };
ContentTypeRoute routeForContentType(std::optional<std::string_view> contentType);

std::string_view fileClassName(FileClass fileClass);
std::string_view contentTypeRouteName(ContentTypeRoute route);

}  // namespace ulvek
