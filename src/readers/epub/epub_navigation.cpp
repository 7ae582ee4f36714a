// The parts of EPUBParser that serve clients displaying a book: table of contents, merged HTML
// and styled text, first page, URL mapping and cover.

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <unordered_map>

#include "base/ascii.h"
#include "base/base64.h"
#include "base/file_url.h"
#include "base/log.h"
#include "metadata/file_types.h"
#include "platform/content_types.h"
#include "readers/epub/epub_parser.h"
#include "readers/epub/epub_paths.h"
#include "text/encodings.h"
#include "text/entity_conversion.h"
#include "text/html_to_text.h"
#include "text/markup_scanner.h"
#include "text/string_utilities.h"
#include "text/text_decoding.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;

// A merged book larger than this (in UTF-16 units, 512 MiB) stops growing: past it a book is an
// attack on the client, not something to read.
constexpr std::size_t kMaxMergedUnits = 256u << 20;

// "&", "<", ">" and the double quote as references, so a file name can stand in an attribute.
TextString standardEntities(std::string_view text) {
  static constexpr std::pair<char16_t, std::u16string_view> kReferences[] = {
      {u'&', u"&amp;"}, {u'<', u"&lt;"}, {u'>', u"&gt;"}, {u'"', u"&quot;"}};
  TextString converted;
  for (char16_t c : fromUtf8(text)) {
    const auto* found = std::find_if(std::begin(kReferences), std::end(kReferences),
                                     [c](const auto& reference) { return reference.first == c; });
    if (found != std::end(kReferences))
      converted += found->second;
    else
      converted += c;
  }
  return converted;
}

// An attribute's value as a link: character references converted.
std::optional<std::string> linkAttribute(TextView tag, std::string_view name) {
  std::optional<TextString> value = attributeOfTagWithName(tag, name);
  if (!value) return std::nullopt;
  return toUtf8(stringByConvertingEntitiesToCharacters(*value));
}

std::optional<TextString> markupOf(const std::optional<Data>& bytes) {
  if (!bytes) return std::nullopt;
  return stringWithMarkupData(*bytes, kUTF8StringEncoding);
}

// Contents of a navigation tree are relative to the navigation document; the book's own paths
// are relative to the package document's folder.
void rebase(NavEntries& entries, const std::string& from, const std::string& to) {
  for (NavEntry& entry : entries) {
    if (!entry.content.empty())
      if (std::optional<std::string> member = normalizedMemberPath(joinedPath(from, entry.content)))
        entry.content = relativeMemberPath(*member, to);
    rebase(entry.children, from, to);
  }
}

// The first line of a document's text, for an entry the navigation documents do not name.
TextString firstLine(TextView html) {
  TextString text = stringByTrimmingWhiteSpaces(
      stringByConvertingHtml2PlainTextNonUmlauted(html, false, true, true, true));
  return stringByTrimmingWhiteSpaces(TextView(text).substr(0, text.find(u'\n')));
}

TextString fileTitle(const std::string& href) {
  std::string name = memberName(href);
  std::size_t dot = name.rfind('.');
  return fromUtf8(dot == std::string::npos || dot == 0 ? name : name.substr(0, dot));
}

}  // namespace

std::optional<std::string> EPUBParser::mediaTypeOfMember(const std::string& member) const {
  auto found = mediaTypes_.find(member);
  if (found == mediaTypes_.end()) return std::nullopt;
  return found->second;
}

std::vector<std::string> EPUBParser::readingOrder() {
  std::vector<std::string> pages;
  std::set<std::string> seen;
  std::size_t skipped = 0;
  std::string folder = opfFolder();
  for (const std::string& idref : spines_) {
    auto item = items_.find(idref);
    std::optional<std::string> member;
    if (item != items_.end()) member = normalizedMemberPath(joinedPath(folder, item->second));
    // Images, missing items, paths out of the book and repeats (a spine that loops) are left
    // out.
    if (!member || !seen.insert(*member).second) {
      ++skipped;
      continue;
    }
    pages.push_back(*member);
  }
  if (skipped > 0)
    logLine("Skipped " + std::to_string(skipped) + " spine entries of " + epubPath_ +
            " (no page, or repeated)");
  return pages;
}

const NavEntries& EPUBParser::rootChildren() {
  if (children_) return *children_;
  NavEntries& result = children_.emplace();
  std::string folder = opfFolder();
  auto load = [&](const std::string& member, NavigationFormat format) {
    std::optional<Data> data = dataForNamedFile(member);
    if (!data) return NavEntries();
    NCXParser parser(*data, format);
    if (!parser.isWellFormed())
      logLine("Damaged navigation document: " + epubPath_ + " (" + member + ")");
    NavEntries entries = parser.children();
    std::string from = memberFolder(member);
    if (from != folder) rebase(entries, from, folder);
    return entries;
  };
  if (!ncxFile_.empty()) result = load(ncxFile_, NavigationFormat::NCX);
  if (result.empty() && !tocFile_.empty()) result = load(tocFile_, NavigationFormat::NavDocument);
  if (ncxFile_.empty() && tocFile_.empty())
    logLine("No navigation document: " + epubPath_ + " (contents from the reading order)");
  if (countOfEntries(result) >= spines_.size()) return result;

  // The tree names fewer entries than the spine has: complete it from the reading order.
  std::map<std::string, std::size_t> named;
  for (std::size_t i = 0; i < result.size(); ++i) {
    if (result[i].hasChildren) return result;
    if (std::optional<std::string> member =
            normalizedMemberPath(joinedPath(folder, result[i].content)))
      named[*member] = i;
  }

  // Link titles of the XHTML table of contents, by target member.
  std::map<std::string, TextString> titles;
  if (!tocFile_.empty()) {
    if (std::optional<TextString> toc = markupOf(dataForNamedFile(tocFile_))) {
      std::optional<std::string> target;
      TextString title;
      ScanMarkup(
          *toc,
          [&](const MarkupItem& item) {
            if (target) title += item.textRun();
            if (item.state != MarkupState::Tag || !item.nameIs("a")) return false;
            if (target)
              titles.emplace(*target,
                             stringByTrimmingWhiteSpaces(stringByRemovingMultipleWhiteSpaces(
                                 stringByConvertingEntitiesToCharacters(title))));
            target.reset();
            title.clear();
            if (isTagOpen(item.tag()) && !isTagClosed(item.tag()))
              if (std::optional<std::string> href = linkAttribute(item.tag(), "HREF"))
                target = resolvedMemberPath(tocFile_, *href);
            return false;
          },
          nullptr, false);
    }
  }

  NavEntries* target = &result;
  std::size_t index = 0;
  std::size_t insertedAtTop = 0;  // entries put in front of the tree's own top level
  for (const std::string& page : readingOrder()) {
    if (auto entry = named.find(page); entry != named.end()) {
      NavEntry& parent = result[entry->second + insertedAtTop];
      parent.children.clear();
      parent.hasChildren = true;
      target = &parent.children;
      index = 0;
      continue;
    }
    std::string href = relativeMemberPath(page, folder);
    TextString label;
    if (auto title = titles.find(page); title != titles.end()) label = title->second;
    if (label.empty())
      if (std::optional<TextString> html = markupOf(dataForNamedFile(page)))
        label = firstLine(*html);
    if (label.empty()) label = fileTitle(href);
    target->insert(target->begin() + static_cast<std::ptrdiff_t>(index++),
                   NavEntry{href, label, {}, false});
    if (target == &result) ++insertedAtTop;
  }
  return result;
}

std::optional<std::string> EPUBParser::unzippedEPUB() {
  if (folder_) {
    std::error_code error;
    fs::path absolute = fs::absolute(epubPath_, error);
    return error ? epubPath_ : absolute.lexically_normal().string();
  }
  if (unpacked_) return unpacked_->path();
  if (!archive_) return std::nullopt;
  std::optional<TemporaryDirectory> folder = TemporaryDirectory::create("epub").take();
  if (!folder) {
    logLine("No temporary folder to unpack " + epubPath_);
    return std::nullopt;
  }
  if (Status unpacked = unpackZipArchive(*archive_, folder->path()); !unpacked.ok()) {
    logLine("Unable to unpack " + epubPath_ + ": " + unpacked.error().localizedDescription);
    return std::nullopt;
  }
  unpacked_ = std::move(folder);
  return unpacked_->path();
}

std::optional<std::string> EPUBParser::firstPage() {
  if (firstPage_) return firstPage_;
  if (ncxFile_.empty() && tocFile_.empty()) return std::nullopt;
  if (hasDRM()) return std::nullopt;
  const NavEntries& toc = rootChildren();
  if (toc.empty()) return std::nullopt;
  std::optional<std::string> url = URLForContent(toc.front().content);
  if (!url && unzippedEPUB()) url = URLForContent(toc.front().content);
  if (!url) return std::nullopt;
  firstPage_ = pathOfFileURL(*url);
  return firstPage_;
}

std::optional<std::string> EPUBParser::URLForItem(const NavEntry& entry) {
  return URLForContent(entry.content);
}

std::optional<std::string> EPUBParser::URLForContent(const std::string& content) {
  if (content.empty()) return std::nullopt;
  std::string folder;
  if (folder_)
    folder = *unzippedEPUB();
  else if (unpacked_)
    folder = unpacked_->path();
  else
    return std::nullopt;
  // Contents that climb out of the book name no file of it.
  std::optional<std::string> member = normalizedMemberPath(joinedPath(opfFolder(), content));
  if (!member) return std::nullopt;
  return fileURLWithPath(joinedPath(folder, *member));
}

std::optional<std::string> EPUBParser::contentForURL(const std::string& url) {
  std::optional<std::string> path = pathOfFileURL(url);
  if (!path || (!folder_ && !unpacked_)) return std::nullopt;
  std::string base = joinedPath(*unzippedEPUB(), opfFolder());
  std::string normal = fs::path(*path).lexically_normal().string();
  if (normal.size() <= base.size() + 1 || !normal.starts_with(base + "/")) return std::nullopt;
  return normal.substr(base.size() + 1);
}

std::optional<std::string> EPUBParser::firstImageOfPage(const std::string& page) {
  std::optional<TextString> html = markupOf(dataForNamedFile(page));
  if (!html) return std::nullopt;
  std::optional<std::string> image;
  ScanMarkup(
      *html,
      [&](const MarkupItem& item) {
        if (item.state != MarkupState::Tag) return false;
        std::optional<std::string> link;
        if (item.nameIs("img"))
          link = linkAttribute(item.tag(), "SRC");
        else if (item.nameIs("image"))
          link = linkAttribute(item.tag(), "HREF");
        if (link) image = resolvedMemberPath(page, *link);
        return image.has_value();
      },
      nullptr, false);
  return image;
}

std::optional<EPUBCover> EPUBParser::coverForFile(const std::string& path) {
  if (path.empty()) return std::nullopt;
  EPUBParser book(path);
  return book.cover();
}

std::optional<EPUBCover> EPUBParser::cover() {
  std::string folder = opfFolder();
  std::optional<std::string> member;
  if (!coverPath_.empty()) {
    member = normalizedMemberPath(joinedPath(folder, coverPath_));
  } else if (!guideCover_.empty()) {
    member = normalizedMemberPath(joinedPath(folder, guideCover_));
    if (member && !mediaTypeOfMember(*member).value_or("").starts_with("image/"))
      member = firstImageOfPage(*member);
  }
  if (!member) return std::nullopt;
  std::optional<Data> bytes = dataForNamedFile(*member);
  if (!bytes || bytes->empty()) return std::nullopt;
  // Text (a page, a note) is no picture; bytes the magic database does not know may still be.
  std::optional<std::string> sniffed = sniffedMIMEType(*bytes);
  if (sniffed && sniffed->starts_with("text/")) {
    logLine("Cover of " + epubPath_ + " is no image: " + *member + " (" + *sniffed + ")");
    return std::nullopt;
  }
  std::optional<std::string> type = mediaTypeOfMember(*member);
  if (!type || !type->starts_with("image/"))
    type = sniffed && sniffed->starts_with("image/") ? sniffed : std::nullopt;
  if (!type) {
    std::string extension = toUtf8(pathExtension(*member));
    if (std::optional<std::string_view> uti = contentTypeForExtension(extension))
      if (std::optional<std::string_view> mime = preferredMIMEType(*uti)) type = std::string(*mime);
  }
  return EPUBCover{*member, std::move(*bytes), type.value_or("application/octet-stream")};
}

std::optional<TextString> EPUBParser::htmlContents() {
  if (hasDRM()) return std::nullopt;
  TextString result =
      u"<html>\n<meta http-equiv=\"Content-Type\" content=\"text/html; charset=UTF-8\"/>\n";
  // Images are read once however often the book shows them.
  std::unordered_map<std::string, TextString> dataURLs;
  auto dataURL = [&](const std::string& member) -> const TextString& {
    auto [found, added] = dataURLs.try_emplace(member);
    if (!added) return found->second;
    std::optional<Data> bytes = dataForNamedFile(member);
    if (!bytes || bytes->empty()) return found->second;
    std::optional<std::string> type = mediaTypeOfMember(member);
    if (!type) {
      std::string extension = asciiLowercase(toUtf8(pathExtension(member)));
      if (std::optional<std::string_view> uti = contentTypeForExtension(extension))
        if (std::optional<std::string_view> mime = preferredMIMEType(*uti))
          type = std::string(*mime);
    }
    if (!type) type = sniffedMIMEType(*bytes);
    found->second =
        fromUtf8("data:" + type.value_or("application/octet-stream") + ";base64," + base64(*bytes));
    return found->second;
  };

  bool later = false;
  for (const std::string& page : readingOrder()) {
    std::optional<TextString> source = markupOf(dataForNamedFile(page));
    if (!source || source->empty()) continue;
    TextString copy;
    TextString anchor = standardEntities(memberName(page));
    bool copying = false;
    std::size_t droppedImages = 0;
    auto emitAnchor = [&] {
      if (anchor.empty()) return;
      copy += u"<a name=\"" + anchor + u"\"/>\n";
      anchor.clear();
    };
    auto handle = [&](const MarkupItem& item) {
      if (item.isFinal()) {
        if (copying) copy += item.textRun();
        return false;
      }
      bool isTag = item.state == MarkupState::Tag;
      TextView tag = item.tag();
      bool start = isTagOpen(tag) && !isTagClosed(tag);
      // The first document keeps its head; later ones give their body only.
      if (isTag && (later ? item.nameIs("body") : item.nameIs("html"))) {
        copying = start;
        if (later && start) emitAnchor();
        return false;
      }
      if (!copying) return false;
      copy += item.textRun();
      if (!isTag) {
        copy += tag;
        return false;
      }
      if (item.nameIs("img") || item.nameIs("image")) {
        std::string_view name = item.nameIs("img") ? "SRC" : "HREF";
        std::optional<TextString> raw = attributeOfTagWithName(tag, name);
        std::optional<std::string> link = linkAttribute(tag, name);
        // Images on the web (and data: URLs) stay as they are; any other image is the book's
        // own, and one that is not in the book is dropped rather than left pointing nowhere.
        if (!raw || !link || hasURLScheme(*link)) {
          copy += tag;
          return false;
        }
        std::optional<std::string> member = resolvedMemberPath(page, *link);
        const TextString& url = member ? dataURL(*member) : TextString();
        if (!url.empty())
          copy += stringByReplacingString(tag, *raw, url);
        else
          ++droppedImages;
      } else if (item.nameIs("a")) {
        std::optional<std::string> link = linkAttribute(tag, "HREF");
        std::optional<std::string> member = link ? resolvedMemberPath(page, *link) : std::nullopt;
        if (member)
          copy += u"<a href=\"#" + standardEntities(memberName(*member)) + u"\">\n";
        else
          copy += tag;
      } else if (item.nameIs("link")) {
        std::optional<std::string> rel = linkAttribute(tag, "REL");
        std::optional<std::string> link = linkAttribute(tag, "HREF");
        std::optional<std::string> member = link ? resolvedMemberPath(page, *link) : std::nullopt;
        if (!rel || asciiLowercase(*rel) != "stylesheet" || !member) {
          copy += tag;
          return false;
        }
        std::optional<Data> css = dataForNamedFile(*member);
        std::optional<DetectedText> style = css ? decodeDetectingEncoding(*css) : std::nullopt;
        if (style) copy += u"<style><!--\n" + style->text + u"\n--></style>\n";
      } else {
        copy += tag;
      }
      if (!later && start && item.nameIs("body")) emitAnchor();
      return false;
    };
    // A page that repeats a large image thousands of times stops as soon as it is too large.
    auto bounded = [&](const MarkupItem& item) {
      handle(item);
      return result.size() + copy.size() > kMaxMergedUnits;
    };
    parseXmlWithHandler(*source, bounded, nullptr, false);
    if (droppedImages > 0)
      logLine("Dropped " + std::to_string(droppedImages) + " images that are not in " + epubPath_ +
              " (" + page + ")");
    if (result.size() + copy.size() > kMaxMergedUnits) {
      logLine("Book too large to merge: " + epubPath_ + " (stopped before " + page + ")");
      break;
    }
    if (later)
      result += u"<body>\n" + copy + u"\n</body>";
    else
      result += copy;
    later = true;
  }
  result += u"</html>";
  return result;
}

std::optional<StyledText> EPUBParser::richTextContents() {
  if (hasDRM()) return std::nullopt;
  std::optional<TextString> html = htmlContents();
  if (!html || html->empty()) return std::nullopt;
  return styledTextFromHtml(*html);
}

}  // namespace ulvek
