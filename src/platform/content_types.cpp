#include "platform/content_types.h"

#include <magic.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/ascii.h"
#include "base/log.h"
#include "platform/resource_fork.h"

namespace ulvek {
namespace {

// One row per type: identifier, extensions, MIME types and parents, the lists separated by
// blanks. Extensions and MIME types are lower case; a MIME type or extension claimed by two rows
// belongs to the first.
struct TypeRow {
  std::string_view identifier;
  std::string_view extensions;
  std::string_view mimeTypes;
  std::string_view parents;
};

constexpr TypeRow kTypeRows[] = {
    // The roots of the tree.
    {"public.item", "", "", ""},
    {"public.content", "", "", ""},
    {"public.data", "", "", "public.item"},
    {"public.directory", "", "", "public.item"},
    {"public.folder", "", "", "public.directory"},
    {"public.composite-content", "", "", "public.content"},
    {"com.apple.package", "", "", "public.directory"},
    {"com.apple.bundle", "bundle", "", "com.apple.package"},
    {"public.archive", "", "", "public.data"},
    {"public.executable", "", "", "public.item"},

    // Text.
    {"public.text", "", "", "public.data public.content"},
    {"public.plain-text", "txt text", "text/plain", "public.text"},
    {"public.utf8-plain-text", "", "", "public.plain-text"},
    {"public.utf16-plain-text", "", "", "public.plain-text"},
    {"public.log", "log", "", "public.plain-text"},
    {"net.daringfireball.markdown", "md markdown mdown mkdn mkd mdwn mdtext mmd",
     "text/markdown text/x-markdown", "public.plain-text"},
    {"org.tug.tex", "tex ltx", "text/x-tex application/x-tex", "public.plain-text"},
    {"org.tug.bib", "bib bibtex", "text/x-bibtex", "public.plain-text"},
    {"public.delimited-values-text", "", "", "public.text"},
    {"public.comma-separated-values-text", "csv", "text/csv text/comma-separated-values",
     "public.delimited-values-text"},
    {"public.tab-separated-values-text", "tsv tab", "text/tab-separated-values",
     "public.delimited-values-text"},
    {"public.json", "json", "application/json text/json", "public.text"},
    {"public.yaml", "yaml yml", "application/x-yaml text/yaml text/x-yaml", "public.text"},
    {"public.css", "css", "text/css", "public.plain-text"},
    {"public.patch-file", "diff patch", "text/x-diff text/x-patch", "public.plain-text"},
    {"public.source-code", "", "", "public.plain-text"},
    {"public.c-source", "c", "text/x-c", "public.source-code"},
    {"public.c-header", "h", "text/x-c-header", "public.source-code"},
    {"public.c-plus-plus-source", "cpp cc cxx c++ cp", "text/x-c++", "public.source-code"},
    {"public.c-plus-plus-header", "hpp hh hxx h++", "", "public.source-code"},
    {"public.objective-c-source", "m", "text/x-objective-c", "public.source-code"},
    {"public.objective-c-plus-plus-source", "mm", "", "public.source-code"},
    {"public.swift-source", "swift", "text/x-swift", "public.source-code"},
    {"com.sun.java-source", "java", "text/x-java text/x-java-source", "public.source-code"},
    {"public.make-source", "mk", "text/x-makefile", "public.source-code"},
    {"public.assembly-source", "s asm", "text/x-asm", "public.source-code"},
    {"public.fortran-source", "f for f77 f90 fpp", "text/x-fortran", "public.source-code"},
    {"public.pascal-source", "pas p pp", "text/x-pascal", "public.source-code"},
    {"public.script", "", "", "public.source-code"},
    {"public.shell-script", "sh bash zsh csh ksh command",
     "application/x-sh application/x-shellscript text/x-shellscript text/x-sh", "public.script"},
    {"public.python-script", "py pyw", "text/x-python text/x-script.python", "public.script"},
    {"public.perl-script", "pl pm", "text/x-perl application/x-perl", "public.script"},
    {"public.ruby-script", "rb", "text/x-ruby application/x-ruby", "public.script"},
    {"public.php-script", "php php3 php4 php5 phtml", "text/x-php application/x-httpd-php",
     "public.script"},
    {"public.lua-script", "lua", "text/x-lua", "public.script"},
    {"public.tcl-script", "tcl", "text/x-tcl application/x-tcl", "public.script"},
    {"com.netscape.javascript-source", "js mjs", "text/javascript application/javascript",
     "public.script"},
    {"com.apple.applescript.text", "applescript", "", "public.script"},
    {"com.microsoft.bat", "bat cmd", "text/x-msdos-batch", "public.script"},
    {"public.html", "html htm shtml shtm", "text/html", "public.text"},
    {"public.xml", "xml xsl xslt xsd dtd ent", "text/xml application/xml", "public.text"},
    {"public.xhtml", "xhtml xht", "application/xhtml+xml", "public.xml"},
    {"public.rss", "rss", "application/rss+xml", "public.xml"},
    {"org.opml.opml", "opml", "text/x-opml", "public.xml"},
    {"public.svg-image", "svg svgz", "image/svg+xml", "public.image"},
    {"com.apple.sdef", "sdef", "", "public.xml"},
    {"public.rtf", "rtf", "text/rtf application/rtf", "public.text"},
    {"public.vcard", "vcf vcard", "text/vcard text/x-vcard text/directory",
     "public.text public.contact"},
    {"public.contact", "", "", "public.content"},
    {"public.calendar-event", "", "", "public.content"},
    {"com.apple.ical.ics", "ics", "text/calendar", "public.text public.calendar-event"},
    {"com.apple.xcode.strings-text", "strings", "", "public.text"},

    // Property lists.
    {"com.apple.property-list", "plist", "application/x-plist", "public.data"},
    {"com.apple.xml-property-list", "", "", "public.xml com.apple.property-list"},
    {"com.apple.binary-property-list", "", "application/x-bplist", "com.apple.property-list"},

    // Word-processor documents.
    {"com.apple.rtfd", "rtfd", "", "com.apple.package public.composite-content"},
    {"com.apple.flat-rtfd", "", "", "public.data public.composite-content"},
    {"com.microsoft.word.doc", "doc", "application/msword", "public.data public.composite-content"},
    {"com.microsoft.word.dot", "dot", "", "public.data public.composite-content"},
    {"com.microsoft.word.wordml", "wordml", "", "public.xml public.composite-content"},
    {"org.openxmlformats.openxml", "", "", "public.zip-archive"},
    {"org.openxmlformats.wordprocessingml.document", "docx",
     "application/vnd.openxmlformats-officedocument.wordprocessingml.document",
     "org.openxmlformats.openxml public.composite-content"},
    {"org.openxmlformats.wordprocessingml.template", "dotx",
     "application/vnd.openxmlformats-officedocument.wordprocessingml.template",
     "org.openxmlformats.openxml public.composite-content"},
    {"org.openxmlformats.wordprocessingml.document.macroenabled", "docm",
     "application/vnd.ms-word.document.macroenabled.12",
     "org.openxmlformats.openxml public.composite-content"},
    {"org.openxmlformats.wordprocessingml.template.macroenabled", "dotm",
     "application/vnd.ms-word.template.macroenabled.12",
     "org.openxmlformats.openxml public.composite-content"},
    {"com.microsoft.excel.xls", "xls", "application/vnd.ms-excel",
     "public.data public.composite-content"},
    {"org.openxmlformats.spreadsheetml.sheet", "xlsx",
     "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet",
     "org.openxmlformats.openxml public.composite-content"},
    {"com.microsoft.powerpoint.ppt", "ppt", "application/vnd.ms-powerpoint",
     "public.data public.composite-content"},
    {"org.openxmlformats.presentationml.presentation", "pptx",
     "application/vnd.openxmlformats-officedocument.presentationml.presentation",
     "org.openxmlformats.openxml public.composite-content"},
    {"org.oasis-open.opendocument.text", "odt", "application/vnd.oasis.opendocument.text",
     "public.zip-archive public.composite-content"},
    {"org.oasis-open.opendocument.text-template", "ott",
     "application/vnd.oasis.opendocument.text-template",
     "public.zip-archive public.composite-content"},
    {"org.oasis-open.opendocument.spreadsheet", "ods",
     "application/vnd.oasis.opendocument.spreadsheet",
     "public.zip-archive public.composite-content"},
    {"org.oasis-open.opendocument.presentation", "odp",
     "application/vnd.oasis.opendocument.presentation",
     "public.zip-archive public.composite-content"},
    {"org.openoffice.text", "sxw", "application/vnd.sun.xml.writer",
     "public.zip-archive public.composite-content"},
    {"org.openoffice.text-template", "stw", "application/vnd.sun.xml.writer.template",
     "public.zip-archive public.composite-content"},
    {"com.corel.wordperfect.doc", "wpd", "application/vnd.wordperfect application/wordperfect",
     "public.data public.composite-content"},
    {"com.apple.iwork.pages.sffpages", "pages", "", "com.apple.package public.composite-content"},
    {"com.apple.iwork.keynote.sffkey", "key", "", "com.apple.package public.composite-content"},
    {"com.apple.iwork.numbers.sffnumbers", "numbers", "",
     "com.apple.package public.composite-content"},
    {"org.textbundle.package", "textbundle", "", "com.apple.package public.composite-content"},
    {"org.textbundle.compressed", "textpack", "", "public.zip-archive public.composite-content"},
    {"com.omnigroup.omnioutliner.oo3-package", "oo3", "",
     "com.apple.package public.composite-content"},
    {"com.omnigroup.omnioutliner.ooutline", "ooutline", "", "public.xml"},

    // Page descriptions.
    {"com.adobe.pdf", "pdf", "application/pdf application/x-pdf",
     "public.data public.composite-content"},
    {"com.apple.pdf-bundle", "pdfd", "", "com.apple.package public.composite-content"},
    {"com.apple.localized-pdf-bundle", "lpdf", "", "com.apple.package public.composite-content"},
    {"com.adobe.postscript", "ps", "application/postscript",
     "public.data public.composite-content"},
    {"com.adobe.encapsulated-postscript", "eps epsf epsi", "image/x-eps application/eps",
     "com.adobe.postscript public.image"},
    {"com.adobe.illustrator.ai-image", "ai", "application/illustrator", "com.adobe.pdf"},

    // Images.
    {"public.image", "", "", "public.data public.content"},
    {"public.jpeg", "jpg jpeg jpe jfif", "image/jpeg image/pjpeg", "public.image"},
    {"public.png", "png", "image/png", "public.image"},
    {"com.compuserve.gif", "gif", "image/gif", "public.image"},
    {"public.tiff", "tif tiff", "image/tiff", "public.image"},
    {"com.microsoft.bmp", "bmp dib", "image/bmp image/x-ms-bmp image/x-bmp", "public.image"},
    {"com.microsoft.ico", "ico", "image/vnd.microsoft.icon image/x-icon", "public.image"},
    {"com.apple.icns", "icns", "image/x-icns image/icns", "public.image"},
    {"public.heic", "heic", "image/heic", "public.heif-standard"},
    {"public.heif-standard", "heif", "image/heif", "public.image"},
    {"public.avif", "avif", "image/avif", "public.image"},
    {"org.webmproject.webp", "webp", "image/webp", "public.image"},
    {"com.adobe.photoshop-image", "psd", "image/vnd.adobe.photoshop image/x-photoshop",
     "public.image"},
    {"com.apple.pict", "pict pct pic", "image/pict image/x-pict", "public.image"},
    {"com.truevision.tga-image", "tga", "image/x-tga image/tga", "public.image"},
    {"public.jpeg-2000", "jp2 jpx j2k jpf", "image/jp2 image/jpx", "public.image"},
    {"public.pbm", "pbm pgm ppm pnm",
     "image/x-portable-bitmap image/x-portable-greymap image/x-portable-pixmap "
     "image/x-portable-anymap",
     "public.image"},
    {"com.ilm.openexr-image", "exr", "image/x-exr", "public.image"},
    {"com.adobe.raw-image", "dng", "image/x-adobe-dng", "public.image"},
    {"public.xbitmap-image", "xbm", "image/x-xbitmap", "public.image"},

    // Audio and video.
    {"public.audiovisual-content", "", "", "public.data public.content"},
    {"public.audio", "", "", "public.audiovisual-content"},
    {"public.movie", "", "", "public.audiovisual-content"},
    {"public.video", "", "", "public.movie"},
    {"public.mp3", "mp3", "audio/mpeg audio/mp3", "public.audio"},
    {"public.mpeg-4-audio", "m4a m4b", "audio/mp4 audio/x-m4a", "public.audio"},
    {"com.microsoft.waveform-audio", "wav wave", "audio/wav audio/x-wav audio/vnd.wave",
     "public.audio"},
    {"public.aiff-audio", "aiff aif", "audio/aiff audio/x-aiff", "public.audio"},
    {"public.aifc-audio", "aifc", "", "public.audio"},
    {"org.xiph.flac", "flac", "audio/flac audio/x-flac", "public.audio"},
    {"org.xiph.ogg-audio", "ogg oga opus", "audio/ogg audio/x-ogg", "public.audio"},
    {"public.midi-audio", "mid midi", "audio/midi audio/x-midi", "public.audio"},
    {"com.apple.coreaudio-format", "caf", "audio/x-caf", "public.audio"},
    {"public.au-audio", "au snd", "audio/basic", "public.audio"},
    {"public.mpeg-4", "mp4", "video/mp4", "public.movie"},
    {"com.apple.m4v-video", "m4v", "video/x-m4v", "public.movie"},
    {"com.apple.quicktime-movie", "mov qt", "video/quicktime", "public.movie"},
    {"public.avi", "avi", "video/avi video/x-msvideo", "public.movie"},
    {"public.mpeg", "mpg mpeg mpe", "video/mpeg", "public.movie"},
    {"public.3gpp", "3gp 3gpp", "video/3gpp", "public.movie"},
    {"org.webmproject.webm", "webm", "video/webm", "public.movie"},
    {"org.matroska.mkv", "mkv", "video/x-matroska", "public.movie"},
    {"com.microsoft.windows-media-wmv", "wmv", "video/x-ms-wmv", "public.movie"},

    // Archives.
    {"public.zip-archive", "zip", "application/zip application/x-zip-compressed", "public.archive"},
    {"org.gnu.gnu-zip-archive", "gz gzip", "application/gzip application/x-gzip", "public.archive"},
    {"public.tar-archive", "tar", "application/x-tar", "public.archive"},
    {"public.bzip2-archive", "bz2 bzip2", "application/x-bzip2", "public.archive"},
    {"org.tukaani.xz-archive", "xz", "application/x-xz", "public.archive"},
    {"org.7-zip.7-zip-archive", "7z", "application/x-7z-compressed", "public.archive"},
    {"com.rarlab.rar-archive", "rar", "application/vnd.rar application/x-rar", "public.archive"},
    {"com.stuffit.archive.sit", "sit", "application/x-stuffit", "public.archive"},
    {"com.apple.binhex-archive", "hqx", "application/mac-binhex40", "public.archive"},
    {"com.apple.disk-image-udif", "dmg", "application/x-apple-diskimage", "public.archive"},
    {"org.idpf.epub-container", "epub", "application/epub+zip",
     "public.zip-archive public.composite-content"},

    // Mail, web and locations.
    {"public.message", "", "", "public.data public.content"},
    {"public.email-message", "", "message/rfc822", "public.message"},
    {"com.apple.mail.email", "eml", "", "public.email-message"},
    {"com.apple.mail.emlx", "emlx", "", "public.email-message"},
    {"com.apple.webarchive", "webarchive", "application/x-webarchive",
     "public.data public.composite-content"},
    {"com.apple.internet-location", "", "", "public.data"},
    {"com.apple.web-internet-location", "webloc", "", "com.apple.internet-location"},
    {"com.apple.mail-internet-location", "mailloc", "", "com.apple.internet-location"},
    {"com.apple.ftp-internet-location", "ftploc", "", "com.apple.internet-location"},
    {"com.apple.generic-internet-location", "inetloc", "", "com.apple.internet-location"},
    {"com.apple.news-internet-location", "newsloc", "", "com.apple.internet-location"},
    {"com.apple.file-internet-location", "fileloc", "", "com.apple.internet-location"},
    {"com.apple.vnc-internet-location", "vncloc", "", "com.apple.internet-location"},
    {"com.microsoft.internet-shortcut", "url", "application/x-mswinurl",
     "com.apple.internet-location"},
    {"com.apple.finder.textclipping", "textclipping clipping", "", "public.data"},

    // Chats, scripts and applications.
    {"com.apple.ichat.transcript", "ichat chat", "", "public.data public.content"},
    {"com.apple.ichat.chatlog", "chatlog", "", "com.apple.package public.content"},
    {"com.apple.applescript.script", "scpt", "", "public.data"},
    {"com.apple.applescript.script-bundle", "scptd", "", "com.apple.package"},
    {"com.apple.application-bundle", "app", "", "com.apple.package public.executable"},
    {"com.apple.plugin", "plugin", "", "com.apple.bundle"},
    {"com.apple.metadata-importer", "mdimporter", "", "com.apple.plugin"},
    {"com.apple.quicklook-generator", "qlgenerator", "", "com.apple.plugin"},
    {"com.apple.systempreference.prefpane", "prefpane", "", "com.apple.plugin"},
    {"com.apple.kernel-extension", "kext", "", "com.apple.bundle"},
    {"com.apple.xpc-service", "xpc", "", "com.apple.bundle"},
    {"com.apple.application-and-system-extension", "appex", "", "com.apple.bundle"},
    {"com.apple.installer-package", "pkg mpkg", "", "com.apple.package"},
    {"com.apple.xcode.project", "xcodeproj", "", "com.apple.package"},
    {"com.apple.photos.library", "photoslibrary", "", "com.apple.package"},
};

// Splits a blank-separated list.
std::vector<std::string_view> words(std::string_view list) {
  std::vector<std::string_view> result;
  while (!list.empty()) {
    std::size_t blank = list.find(' ');
    std::string_view word = list.substr(0, blank);
    if (!word.empty()) result.push_back(word);
    if (blank == std::string_view::npos) break;
    list.remove_prefix(blank + 1);
  }
  return result;
}

// The table in the form lookups want, built on first use and kept for the process.
struct TypeIndex {
  struct Row {
    std::vector<std::string_view> extensions, mimeTypes, parents;
    ContentTypeInfo info;
  };
  std::vector<Row> rows;
  std::unordered_map<std::string_view, const Row*> byIdentifier;
  std::unordered_map<std::string_view, const Row*> byExtension;
  std::unordered_map<std::string_view, const Row*> byMIMEType;

  TypeIndex() {
    rows.reserve(std::size(kTypeRows));
    for (const TypeRow& source : kTypeRows) {
      Row& row = rows.emplace_back();
      row.extensions = words(source.extensions);
      row.mimeTypes = words(source.mimeTypes);
      row.parents = words(source.parents);
      row.info = {source.identifier, row.extensions, row.mimeTypes, row.parents};
    }
    for (const Row& row : rows) {
      byIdentifier.emplace(row.info.identifier, &row);
      for (std::string_view extension : row.extensions) byExtension.emplace(extension, &row);
      for (std::string_view mimeType : row.mimeTypes) byMIMEType.emplace(mimeType, &row);
    }
  }
};

const TypeIndex& typeIndex() {
  static const TypeIndex* index = new TypeIndex();
  return *index;
}

// A dynamic identifier names what is known without claiming a type: the tag class and its value
// ("dyn.mime-type.application.octet-stream"), the value hex-encoded when it holds characters an
// identifier may not.
std::string dynamicIdentifier(std::string_view tagClass, std::string_view value) {
  std::string readable = asciiLowercase(value);
  std::replace(readable.begin(), readable.end(), '/', '.');
  bool plain = !readable.empty() && std::all_of(readable.begin(), readable.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.';
  });
  std::string result = "dyn." + std::string(tagClass) + ".";
  if (plain) return result + readable;
  static constexpr char kHex[] = "0123456789abcdef";
  result += 'x';
  for (unsigned char c : value) {
    result += kHex[c >> 4];
    result += kHex[c & 15];
  }
  return result;
}

// libmagic keeps one cookie for the process; its calls are not re-entrant on one cookie.
struct Magic {
  std::mutex lock;
  magic_t cookie = nullptr;

  Magic() {
    cookie = magic_open(MAGIC_MIME_TYPE | MAGIC_SYMLINK | MAGIC_ERROR);
    if (cookie && magic_load(cookie, nullptr) != 0) {
      logLine(std::string("Couldn't load the magic database: ") + magic_error(cookie));
      magic_close(cookie);
      cookie = nullptr;
    }
  }
};

Magic& sharedMagic() {
  static Magic* magic = new Magic();
  return *magic;
}

std::optional<std::string> magicAnswer(const char* answer) {
  if (!answer || !*answer) return std::nullopt;
  return asciiLowercase(answer);
}

std::string lastPathComponent(const std::string& path) {
  std::string_view name = path;
  while (name.size() > 1 && name.back() == '/') name.remove_suffix(1);
  std::size_t slash = name.rfind('/');
  if (slash != std::string_view::npos) name.remove_prefix(slash + 1);
  return std::string(name);
}

// The extension of a path as bytes: after the last dot of the last component, not when the dot
// starts or ends the name.
std::string extensionOfPath(const std::string& path) {
  std::string name = lastPathComponent(path);
  std::size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0 || dot + 1 == name.size()) return {};
  return name.substr(dot + 1);
}

bool hasBundleBit(const std::string& path) {
  // Folder Finder info keeps its flags at bytes 8 and 9; 0x2000 is "has bundle".
  std::optional<Data> info = finderInfoBytes(path);
  return info && info->size() >= 10 && ((*info)[8] & 0x20) != 0;
}

std::optional<std::string_view> packageTypeForExtension(const std::string& extension) {
  std::optional<std::string_view> type = contentTypeForExtension(extension);
  if (type && typeConformsTo(*type, kUTTypePackage)) return type;
  return std::nullopt;
}

}  // namespace

const ContentTypeInfo* contentTypeInfo(std::string_view identifier) {
  const TypeIndex& index = typeIndex();
  auto found = index.byIdentifier.find(identifier);
  return found == index.byIdentifier.end() ? nullptr : &found->second->info;
}

std::optional<std::string_view> contentTypeForExtension(std::string_view extension) {
  if (extension.empty()) return std::nullopt;
  const TypeIndex& index = typeIndex();
  std::string key = asciiLowercase(extension);
  auto found = index.byExtension.find(key);
  if (found == index.byExtension.end()) return std::nullopt;
  return found->second->info.identifier;
}

std::optional<std::string_view> contentTypeForMIMEType(std::string_view mimeType) {
  std::size_t semicolon = mimeType.find(';');
  if (semicolon != std::string_view::npos) mimeType = mimeType.substr(0, semicolon);
  while (!mimeType.empty() && mimeType.back() == ' ') mimeType.remove_suffix(1);
  while (!mimeType.empty() && mimeType.front() == ' ') mimeType.remove_prefix(1);
  if (mimeType.empty()) return std::nullopt;
  const TypeIndex& index = typeIndex();
  std::string key = asciiLowercase(mimeType);
  auto found = index.byMIMEType.find(key);
  if (found == index.byMIMEType.end()) return std::nullopt;
  return found->second->info.identifier;
}

std::optional<std::string_view> preferredExtension(std::string_view identifier) {
  const ContentTypeInfo* info = contentTypeInfo(identifier);
  if (!info || info->extensions.empty()) return std::nullopt;
  return info->extensions.front();
}

std::optional<std::string_view> preferredMIMEType(std::string_view identifier) {
  const ContentTypeInfo* info = contentTypeInfo(identifier);
  if (!info || info->mimeTypes.empty()) return std::nullopt;
  return info->mimeTypes.front();
}

bool typeConformsTo(std::string_view type, std::string_view conformsTo) {
  if (type.empty() || conformsTo.empty()) return false;
  if (type == conformsTo) return true;
  // The tree is a small acyclic graph; a walk with a visited list stays safe even if a row
  // were ever to name itself as an ancestor.
  std::vector<std::string_view> pending{type};
  std::vector<std::string_view> visited;
  while (!pending.empty()) {
    std::string_view current = pending.back();
    pending.pop_back();
    if (current == conformsTo) return true;
    if (std::find(visited.begin(), visited.end(), current) != visited.end()) continue;
    visited.push_back(current);
    if (const ContentTypeInfo* info = contentTypeInfo(current))
      pending.insert(pending.end(), info->parents.begin(), info->parents.end());
  }
  return false;
}

std::optional<std::string> sniffedMIMETypeOfFile(const std::string& path) {
  Magic& magic = sharedMagic();
  std::lock_guard guard(magic.lock);
  if (!magic.cookie || path.empty()) return std::nullopt;
  return magicAnswer(magic_file(magic.cookie, path.c_str()));
}

std::optional<std::string> sniffedMIMEType(std::span<const std::uint8_t> bytes) {
  Magic& magic = sharedMagic();
  std::lock_guard guard(magic.lock);
  if (!magic.cookie) return std::nullopt;
  return magicAnswer(magic_buffer(magic.cookie, bytes.data(), bytes.size()));
}

std::optional<std::string> typeOfFile(const std::string& path) {
  if (path.empty()) return std::nullopt;
  std::error_code statusError;
  std::filesystem::file_status status = std::filesystem::status(path, statusError);
  if (statusError || !std::filesystem::exists(status)) return std::nullopt;
  std::string extension = extensionOfPath(path);
  if (std::filesystem::is_directory(status)) {
    if (auto package = packageTypeForExtension(extension)) return std::string(*package);
    if (hasBundleBit(path)) return std::string(kUTTypePackage);
    return std::string(kUTTypeFolder);
  }
  if (auto type = contentTypeForExtension(extension)) return std::string(*type);
  std::optional<std::string> sniffed = sniffedMIMETypeOfFile(path);
  if (sniffed) {
    if (auto type = contentTypeForMIMEType(*sniffed)) return std::string(*type);
  }
  if (!extension.empty()) return dynamicIdentifier("filename-extension", extension);
  if (sniffed) return dynamicIdentifier("mime-type", *sniffed);
  return std::nullopt;
}

Result<bool> isPackageAtPath(const std::string& path) {
  if (path.empty()) return false;
  std::error_code statusError;
  std::filesystem::file_status status = std::filesystem::symlink_status(path, statusError);
  if (statusError || !std::filesystem::exists(status))
    return Error::posix(statusError ? statusError.value() : ENOENT, path);
  if (!std::filesystem::is_directory(status)) return false;
  return packageTypeForExtension(extensionOfPath(path)).has_value() || hasBundleBit(path);
}

}  // namespace ulvek
