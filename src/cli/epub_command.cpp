// `ulvekbot epub COMMAND [--json] [-o FILE] BOOK`: what a client displaying an EPUB book (a
// .epub file or an unpacked book folder) gets of it.

#include <filesystem>
#include <fstream>
#include <functional>
#include <ostream>

#include "base/file_url.h"
#include "cli/command.h"
#include "readers/epub/epub_parser.h"
#include "readers/epub/epub_paths.h"
#include "service/json.h"

namespace ulvek::cli {
namespace {

constexpr std::string_view kCommand = "epub";

struct Options {
  bool json = false;
  std::string output;  // -o FILE
  std::string book;
};

PropertyValue stringValue(const std::string& text) { return PropertyValue::fromUtf8(text); }

void printTree(std::ostream& out, const NavEntries& entries, int depth) {
  for (const NavEntry& entry : entries) {
    out << std::string(static_cast<std::size_t>(depth) * 2, ' ') << toUtf8(entry.label) << '\t'
        << entry.content << '\n';
    printTree(out, entry.children, depth + 1);
  }
}

PropertyValue treeValue(const NavEntries& entries) {
  PropertyArray list;
  for (const NavEntry& entry : entries) {
    PropertyDictionary item{{"label", PropertyValue(entry.label)},
                            {"content", stringValue(entry.content)}};
    if (entry.hasChildren) item.emplace("children", treeValue(entry.children));
    list.emplace_back(std::move(item));
  }
  return PropertyValue(std::move(list));
}

void forEachEntry(const NavEntries& entries, const std::function<void(const NavEntry&)>& visit) {
  for (const NavEntry& entry : entries) {
    visit(entry);
    forEachEntry(entry.children, visit);
  }
}

int info(EPUBParser& book, const Options& options, CommandIO& io) {
  PropertyArray spine;
  for (const std::string& idref : book.spines()) spine.push_back(stringValue(idref));
  PropertyDictionary fields{
      {"metadata", PropertyValue(book.metaData())}, {"DRM", stringValue(book.DRM())},
      {"hasDRM", PropertyValue(book.hasDRM())},     {"opfFile", stringValue(book.opfFile())},
      {"ncxFile", stringValue(book.ncxFile())},     {"tocFile", stringValue(book.tocFile())},
      {"coverPath", stringValue(book.coverPath())}, {"spine", PropertyValue(std::move(spine))},
  };
  io.out << "{\"path\":" << toJson(stringValue(options.book));
  std::string rest = toJson(PropertyValue(std::move(fields)));
  io.out << ',' << rest.substr(1) << '\n';
  return kExitSuccess;
}

int toc(EPUBParser& book, const Options& options, CommandIO& io) {
  const NavEntries& entries = book.rootChildren();
  if (options.json)
    io.out << "{\"path\":" << toJson(stringValue(options.book))
           << ",\"toc\":" << toJson(treeValue(entries)) << "}\n";
  else
    printTree(io.out, entries, 0);
  return kExitSuccess;
}

// The book's text or merged HTML; books under rights management give neither.
int printContents(const std::optional<TextString>& contents, std::string_view end, EPUBParser& book,
                  const Options& options, CommandIO& io) {
  if (!contents) {
    printError(io, kCommand, "the book is encrypted (" + book.DRM() + "): " + options.book);
    return kExitFailure;
  }
  io.out << toUtf8(*contents) << end;
  return kExitSuccess;
}

int text(EPUBParser& book, const Options& options, CommandIO& io) {
  return printContents(book.textContents(), "", book, options, io);
}

int html(EPUBParser& book, const Options& options, CommandIO& io) {
  return printContents(book.htmlContents(), "\n", book, options, io);
}

int rtf(EPUBParser& book, const Options& options, CommandIO& io) {
  std::optional<StyledText> contents = book.richTextContents();
  if (!contents) {
    printError(io, kCommand, "no text to show: " + options.book);
    return kExitFailure;
  }
  io.out << rtfString(*contents);
  return kExitSuccess;
}

// The first page's member name: the unpacked copy it points into goes away with the book.
int firstPage(EPUBParser& book, const Options& options, CommandIO& io) {
  std::optional<std::string> page = book.firstPage();
  std::optional<std::string> content =
      page ? book.contentForURL(fileURLWithPath(*page)) : std::nullopt;
  if (!content) {
    printError(io, kCommand, "no first page: " + options.book);
    return kExitFailure;
  }
  io.out << joinedPath(book.opfFolder(), *content) << '\n';
  return kExitSuccess;
}

int cover(EPUBParser& book, const Options& options, CommandIO& io) {
  if (options.output.empty()) {
    printError(io, kCommand, "cover needs -o FILE");
    return kExitUsage;
  }
  std::optional<EPUBCover> image = book.cover();
  if (!image) {
    printError(io, kCommand, "no cover: " + options.book);
    return kExitFailure;
  }
  std::ofstream file(options.output, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(image->bytes.data()),
             static_cast<std::streamsize>(image->bytes.size()));
  file.close();
  if (!file) {
    printError(io, kCommand, "cannot write " + options.output);
    return kExitFailure;
  }
  io.out << "{\"path\":" << toJson(stringValue(options.book))
         << ",\"cover\":" << toJson(stringValue(image->member))
         << ",\"MIMEType\":" << toJson(stringValue(image->mimeType))
         << ",\"size\":" << image->bytes.size()
         << ",\"file\":" << toJson(stringValue(options.output)) << "}\n";
  return kExitSuccess;
}

// Every entry with the member it shows, in table-of-contents order.
int files(EPUBParser& book, const Options& options, CommandIO& io) {
  std::string folder = book.opfFolder();
  forEachEntry(book.rootChildren(), [&](const NavEntry& entry) {
    std::optional<std::string> member = normalizedMemberPath(joinedPath(folder, entry.content));
    io.out << (member ? *member : "-") << '\t' << toUtf8(entry.label) << '\n';
  });
  return kExitSuccess;
}

struct Subcommand {
  std::string_view name;
  int (*run)(EPUBParser& book, const Options& options, CommandIO& io);
};

constexpr Subcommand kSubcommands[] = {
    {"info", info},   {"toc", toc},     {"text", text},
    {"html", html},   {"rtf", rtf},     {"first-page", firstPage},
    {"cover", cover}, {"files", files},
};

int run(const std::vector<std::string>& arguments, CommandIO& io) {
  if (arguments.empty()) {
    printError(io, kCommand,
               "no command given (info, toc, text, html, rtf, first-page, cover, files)");
    return kExitUsage;
  }
  const Subcommand* subcommand = nullptr;
  for (const Subcommand& candidate : kSubcommands)
    if (candidate.name == arguments[0]) subcommand = &candidate;
  if (!subcommand) {
    printError(io, kCommand, "unknown command \"" + arguments[0] + "\"");
    return kExitUsage;
  }
  Options options;
  std::vector<std::string> books;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    if (arguments[i] == "--json") {
      options.json = true;
    } else if (arguments[i] == "-o") {
      if (i + 1 == arguments.size()) {
        printError(io, kCommand, "-o needs a file");
        return kExitUsage;
      }
      options.output = arguments[++i];
    } else {
      books.push_back(arguments[i]);
    }
  }
  if (books.size() != 1) {
    printError(io, kCommand, "give one book");
    return kExitUsage;
  }
  options.book = books.front();
  std::error_code error;
  if (!std::filesystem::exists(options.book, error)) {
    printError(io, kCommand, "no such file: " + options.book);
    return kExitFailure;
  }
  EPUBParser book(options.book);
  if (book.opfFile().empty()) {
    printError(io, kCommand, "not an EPUB book: " + options.book);
    return kExitFailure;
  }
  return subcommand->run(book, options, io);
}

const CommandRegistration registration{
    {kCommand, "info|toc|text|html|rtf|first-page|cover|files [--json] [-o FILE] BOOK",
     "Shows an EPUB book or book folder: metadata and rights as JSON (info), the table of "
     "contents as an indented tree or JSON (toc [--json]), its text, merged HTML with inlined "
     "images, RTF, the first page's file, its cover image (cover -o FILE) and the file of each "
     "entry (files)",
     run}};

}  // namespace
}  // namespace ulvek::cli
