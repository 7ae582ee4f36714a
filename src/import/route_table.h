#pragma once

// The one list that decides how a file is read. The classification order, the names of file
// classes and routes, and which routes a reader serves all come from the tables below, so adding
// a reader is one row (see docs/architecture.md).

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/text_string.h"
#include "metadata/file_types.h"
#include "platform/formats.h"

namespace ulvek {

// Routes: how the text of a file is read once the classification has chosen. name, and whether
// a reader of the ReaderSet serves the route (the others are the dispatcher's own).
#define ULVEK_ROUTES(X)                              \
  X(Undecided, "content type", false)                \
  X(InternetLocation, "internet location", false)    \
  X(PDF, "PDF", true)                                \
  X(WebArchive, "web archive", true)                 \
  X(TextBundle, "text bundle", true)                 \
  X(WordPerfect, "WordPerfect", true)                \
  X(AttributedDocument, "attributed document", true) \
  X(TextClipping, "text clipping", true)             \
  X(AddressCard, "address card", true)               \
  X(Importer, "importer", true)                      \
  X(EPUB, "EPUB", true)                              \
  X(HTML, "HTML", false)                             \
  X(PropertyList, "property list", false)            \
  X(XML, "XML", false)                               \
  X(PlainText, "plain text", false)                  \
  X(Registered, "registered reader", true)

enum class Route : std::uint8_t {
#define ULVEK_ROUTE_ENUM(name, text, hasReader) name,
  ULVEK_ROUTES(ULVEK_ROUTE_ENUM)
#undef ULVEK_ROUTE_ENUM
};

struct RouteInfo {
  Route route;
  std::string_view name;
  bool hasReader;
};

inline constexpr RouteInfo kRoutes[] = {
#define ULVEK_ROUTE_ROW(name, text, hasReader) {Route::name, text, hasReader},
    ULVEK_ROUTES(ULVEK_ROUTE_ROW)
#undef ULVEK_ROUTE_ROW
};
inline constexpr std::size_t kRouteCount = std::size(kRoutes);

constexpr const RouteInfo& routeInfo(Route route) {
  return kRoutes[static_cast<std::size_t>(route)];
}

// Whether a file of a class can be read as text without a document reader (the service's
// isPlainFile question): always, unless an image test also claims its name, or not.
enum class Plain : std::uint8_t { No, Always, UnlessImage };

// File classes: what the first test that answers YES makes of a file, in the order of the steps
// that choose them; name, the route the class takes, and whether it is plain.
#define ULVEK_FILE_CLASSES(X)                                          \
  X(None, "none", Undecided, No)                                       \
  X(InternetLocation, "internet location", InternetLocation, No)       \
  X(Email, "e-mail", Importer, No)                                     \
  X(PDF, "PDF", PDF, No)                                               \
  X(Image, "image", Importer, No)                                      \
  X(WebArchive, "web archive", WebArchive, No)                         \
  X(TextBundle, "text bundle", TextBundle, UnlessImage)                \
  X(HTML, "HTML", HTML, Always)                                        \
  X(PropertyList, "property list", PropertyList, Always)               \
  X(XML, "XML", XML, Always)                                           \
  X(Sheet, "sheet", PlainText, Always)                                 \
  X(Form, "address card", AddressCard, No)                             \
  X(WordPerfect, "WordPerfect", WordPerfect, No)                       \
  X(AttributedDocument, "attributed document", AttributedDocument, No) \
  X(TextClipping, "text clipping", TextClipping, No)                   \
  X(PlainText, "plain text", PlainText, UnlessImage)                   \
  X(Chat, "chat", Importer, No)                                        \
  X(AppleScript, "AppleScript", Importer, No)

enum class FileClass : std::uint8_t {
#define ULVEK_CLASS_ENUM(name, text, route, plain) name,
  ULVEK_FILE_CLASSES(ULVEK_CLASS_ENUM)
#undef ULVEK_CLASS_ENUM
};

struct FileClassInfo {
  FileClass fileClass;
  std::string_view name;
  Route route;
  Plain plain;
};

inline constexpr FileClassInfo kFileClasses[] = {
#define ULVEK_CLASS_ROW(name, text, route, plain) \
  {FileClass::name, text, Route::route, Plain::plain},
    ULVEK_FILE_CLASSES(ULVEK_CLASS_ROW)
#undef ULVEK_CLASS_ROW
};

constexpr const FileClassInfo& fileClassInfo(FileClass fileClass) {
  return kFileClasses[static_cast<std::size_t>(fileClass)];
}
constexpr std::string_view fileClassName(FileClass fileClass) {
  return fileClassInfo(fileClass).name;
}

// The tests that take no type code, with the shape the classification wants.
template <bool (*test)(OptionalText)>
constexpr bool extensionOnly(OptionalText extension, OptionalText) {
  return test(extension);
}

// The classification: the file tests in the order the dispatcher asks them; the first YES
// decides. step (two tests share a number where one step asks two), the class it chooses, the
// test's name, and the test.
#define ULVEK_CLASSIFICATION(X)                                                            \
  X(1, InternetLocation, "isInternetLocationExtension:type:", isInternetLocationExtension) \
  X(2, Email, "isEmailExtension:", extensionOnly<isEmailExtension>)                        \
  X(3, PDF, "isPDFBundleExtension:", extensionOnly<isPDFBundleExtension>)                  \
  X(3, PDF, "isPDFExtension:type:", isPDFExtension)                                        \
  X(4, Image, "isImageExtension:type:", isImageExtension)                                  \
  X(5, WebArchive, "isWebArchiveExtension:", extensionOnly<isWebArchiveExtension>)         \
  X(6, TextBundle, "isTextBundleExtension:type:", isTextBundleExtension)                   \
  X(7, HTML, "isHTMLExtension:", extensionOnly<isHTMLExtension>)                           \
  X(8, PropertyList, "isPropertyListExtension:", extensionOnly<isPropertyListExtension>)   \
  X(9, XML, "isXMLExtension:", extensionOnly<isXMLExtension>)                              \
  X(10, Sheet, "isSheetExtension:", extensionOnly<isSheetExtension>)                       \
  X(11, Form, "isFormExtension:", extensionOnly<isFormExtension>)                          \
  X(12, WordPerfect, "isWordPerfectExtension:type:", isWordPerfectExtension)               \
  X(13, AttributedDocument, "isRTFExtension:type:", isRTFExtension)                        \
  X(13, AttributedDocument, "isAttributedExtension:type:", isAttributedExtension)          \
  X(14, TextClipping, "isTextClippingExtension:type:", isTextClippingExtension)            \
  X(15, PlainText, "isTextExtension:type:", isTextExtension)                               \
  X(16, Chat, "isChatExtension:type:", isChatExtension)                                    \
  X(17, AppleScript, "isAppleScriptExtension:type:", isAppleScriptExtension)

// One file test of the classification.
struct ClassificationStep {
  int number;             // from 1; two tests share a number where one step asks two
  std::string_view test;  // the test's name, e.g. "isHTMLExtension:"
  FileClass fileClass;
  bool (*answers)(OptionalText extension, OptionalText type);
};

inline constexpr ClassificationStep kClassificationOrder[] = {
#define ULVEK_STEP_ROW(number, fileClass, test, answers) \
  {number, test, FileClass::fileClass, answers},
    ULVEK_CLASSIFICATION(ULVEK_STEP_ROW)
#undef ULVEK_STEP_ROW
};

namespace detail {
constexpr bool tablesAgree() {
  for (std::size_t i = 0; i < std::size(kRoutes); ++i)
    if (static_cast<std::size_t>(kRoutes[i].route) != i) return false;
  for (std::size_t i = 0; i < std::size(kFileClasses); ++i)
    if (static_cast<std::size_t>(kFileClasses[i].fileClass) != i) return false;
  // Steps count up from 1 without gaps and choose the classes in their declared order.
  int previous = 0;
  auto previousClass = FileClass::None;
  for (const ClassificationStep& step : kClassificationOrder) {
    if (step.number != previous && step.number != previous + 1) return false;
    if (step.fileClass < previousClass) return false;
    previous = step.number;
    previousClass = step.fileClass;
  }
  // Every class but None is chosen by some step.
  for (const FileClassInfo& info : kFileClasses) {
    bool chosen = info.fileClass == FileClass::None;
    for (const ClassificationStep& step : kClassificationOrder)
      chosen = chosen || step.fileClass == info.fileClass;
    if (!chosen) return false;
  }
  return previous >= 1;
}
}  // namespace detail
static_assert(detail::tablesAgree(), "routes, classes and steps out of order");

// How many steps the classification has.
inline constexpr int kClassificationSteps =
    kClassificationOrder[std::size(kClassificationOrder) - 1].number;

// Downloaded data has no file to test: its MIME type or the extension of the address it came
// from decides, in this order; data no row claims is not read.
struct DataRoute {
  Route route;
  std::array<bool (*)(OptionalText), 4> mimeTests;
  std::array<bool (*)(OptionalText), 3> extensionTests;
};

template <bool (*test)(OptionalText, OptionalText)>
constexpr bool withoutType(OptionalText extension) {
  return test(extension, std::nullopt);
}

inline constexpr DataRoute kDataRoutes[] = {
    {Route::PDF, {isPDFMIMEType, isPostScriptMIMEType}, {withoutType<isPDFExtension>}},
    {Route::AttributedDocument,
     {isRTFMIMEType, isMSWordMIMEType, isOpenOfficeMIMEType, isStarOfficeMIMEType},
     {withoutType<isRTFExtension>, withoutType<isWordExtension>, isOpenOfficeExtension}},
};

// The route that reads downloaded data of `mimeType` from an address with `extension`.
std::optional<Route> routeForData(OptionalText mimeType, OptionalText extension);

struct FileClassification {
  FileClass fileClass = FileClass::None;
  int step = 0;           // 1 to kClassificationSteps; 0 when no test answered YES
  std::string_view test;  // the test that answered YES, e.g. "isHTMLExtension:"; empty if none
  bool packageSkipped = false;  // the text test answered YES but the item is a package
};

// Asks the tests in the dispatcher's order; the first YES decides. `isPackage` is called only
// when the text test answers YES (the only test that touches the file system); a package is not
// read as plain text and the remaining tests are asked. No `isPackage` counts as "not a package".
FileClassification classifyFile(OptionalText extension, OptionalText type,
                                const std::function<bool()>& isPackage = {});

// Whether the file tests say a name can be read as plain text, from the classes' plain column:
// any class that always is, else one that is unless the name is also an image's.
bool isPlainByName(OptionalText extension, OptionalText type);

// When no test answered YES, the content type decides: HTML, plain text, or the importers.
Route routeForContentType(std::optional<std::string_view> contentType);

// The route named `name` (a RouteInfo name, as the format registry's reader column has them).
constexpr std::optional<Route> routeNamed(std::string_view name) {
  for (const RouteInfo& info : kRoutes)
    if (info.name == name) return info.route;
  return std::nullopt;
}

// What the dispatcher learns about a file before reading it. openFile() and `ulvekbot classify`
// both make it with planImport(), so what `classify` prints is what an import does.
struct ImportPlan {
  std::string path;
  TextString extension;
  std::optional<TextString> typeCode;
  std::optional<std::string> contentType;
  std::uint64_t size = 0;
  FileClassification classification;
  Route route = Route::Undecided;        // the classification's route; Undecided leaves it to…
  Route contentRoute = Route::Importer;  // …the content type's
  // For Route::Registered: the registry's name of the reader.
  std::string_view registeredReader;
  // The content type, not a name test, chose `route`: no test answered, or the name said text
  // and the content is a document of another kind.
  bool typeDecided = false;

  // The route whose reader is asked first: the classification's, else the content type's.
  Route readingRoute() const { return route == Route::Undecided ? contentRoute : route; }

  OptionalText extensionView() const { return TextView(extension); }
  OptionalText typeView() const { return typeCode ? OptionalText(*typeCode) : std::nullopt; }
};
ImportPlan planImport(const std::string& path);

}  // namespace ulvek
