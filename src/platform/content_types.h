#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/status.h"

namespace ulvek {

// Uniform type identifiers the rest of the system asks about by name.
inline constexpr std::string_view kUTTypeData = "public.data";
inline constexpr std::string_view kUTTypeText = "public.text";
inline constexpr std::string_view kUTTypePlainText = "public.plain-text";
inline constexpr std::string_view kUTTypeHTML = "public.html";
inline constexpr std::string_view kUTTypeXML = "public.xml";
inline constexpr std::string_view kUTTypePDF = "com.adobe.pdf";
inline constexpr std::string_view kUTTypeImage = "public.image";
inline constexpr std::string_view kUTTypeFolder = "public.folder";
inline constexpr std::string_view kUTTypePackage = "com.apple.package";

struct Format;

// One row of the format registry, its lists split. Extensions are lower case and compared
// without regard to case; MIME types are lower case.
struct ContentTypeInfo {
  std::string_view identifier;
  std::span<const std::string_view> extensions;
  std::span<const std::string_view> mimeTypes;
  std::span<const std::string_view> typeCodes;  // four characters each, unquoted
  std::span<const std::string_view> parents;
  const Format* format;
  bool declaredByImporter = false;  // not a registry row: an importer plug-in declared it
};

// A type an importer plug-in declares (its UTExportedTypeDeclarations).
struct DeclaredContentType {
  std::string identifier;
  std::vector<std::string> extensions;
  std::vector<std::string> mimeTypes;
  std::vector<std::string> typeCodes;  // four characters each
  std::vector<std::string> conformsTo;
};

// Adds a declared type beside the registry's rows, for the life of the process: its identifier
// (lower-cased) when no row has it, its extensions, MIME types and type codes where no row claims
// them.
void declareContentType(const DeclaredContentType& type);

// The table row of an identifier; null for identifiers the table does not declare (dyn. ones).
const ContentTypeInfo* contentTypeInfo(std::string_view identifier);

// The type declared for a file name extension (any case); nothing for an unknown one.
std::optional<std::string_view> contentTypeForExtension(std::string_view extension);
// The type declared for a MIME type (parameters after ";" and case ignored); nothing if unknown.
std::optional<std::string_view> contentTypeForMIMEType(std::string_view mimeType);
// The type declared for a four-character type code ("PDF ", exactly); nothing if unknown.
std::optional<std::string_view> contentTypeForTypeCode(std::string_view typeCode);
// The preferred extension and MIME type of a declared type.
std::optional<std::string_view> preferredExtension(std::string_view identifier);
std::optional<std::string_view> preferredMIMEType(std::string_view identifier);

// The preferred MIME type of a declared type, else of its nearest ancestor that has one.
std::optional<std::string_view> mimeTypeOfContentType(std::string_view identifier);

// Whether a folder with this extension is one document (a package, an unpacked book, a web
// archive or word-processor folder) rather than a folder of documents.
bool isDocumentFolderExtension(std::string_view extension);

// Whether `type` is `conformsTo` or descends from it through the table's parents.
bool typeConformsTo(std::string_view type, std::string_view conformsTo);

// The name of the route that reads a file of `type` when its content decided: the type's own
// reader, else the nearest ancestor's (breadth first, parents in order). Nothing for types the
// registry does not declare.
std::optional<std::string_view> readerForContentType(std::string_view type);

// The MIME type libmagic sniffs from a file's contents or from bytes ("application/pdf");
// nothing when the magic database cannot be loaded or the file cannot be read.
std::optional<std::string> sniffedMIMETypeOfFile(const std::string& path);
std::optional<std::string> sniffedMIMEType(std::span<const std::uint8_t> bytes);

// Which evidence of the content may decide a file's type: any; every registry signature, and
// libmagic only for content with NUL bytes; or only what no text file shows (container and
// leading-byte signatures, and libmagic for content with NUL bytes).
enum class ContentScope { Any, Signatures, NotText };

// What the content of the file at `path` shows it is: the registry's signatures
// (content_signatures.h), then libmagic's MIME type as a registry type, else as a "dyn.mime-type."
// identifier. Nothing when the content shows nothing or cannot be read.
std::optional<std::string> contentTypeFromContent(const std::string& path, ContentScope scope);

// The content type of the item at `path` (symbolic links followed): a folder answers its package
// type or "public.folder". A file answers its extension's type, unless that is a text type and the
// content is a document of another kind (a PDF named "x.txt"); a file with no or an unknown
// extension answers what its content shows (contentTypeFromContent), else a "dyn." identifier
// that names what is known. Nothing when the item cannot be examined.
std::optional<std::string> typeOfFile(const std::string& path);

// The package test: a folder whose extension names a package type of the table, or whose Finder
// flags carry the bundle bit. Symbolic links are not followed. A missing item answers a POSIX
// error; an empty path answers false.
Result<bool> isPackageAtPath(const std::string& path);

}  // namespace ulvek
