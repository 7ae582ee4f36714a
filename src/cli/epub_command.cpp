// `ulvekbot epub COMMAND [-o FILE] BOOK`: what a client displaying an EPUB book (a .epub file or
// an unpacked book folder) gets of it.

#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <ostream>
#include <sstream>

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
  std::string output;  // -o FILE: the answer, or the cover image
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
  std::string_view summary;
  int (*run)(EPUBParser& book, const Options& options, CommandIO& io);
  bool json = false;  // takes --json
};

constexpr Subcommand kSubcommands[] = {
    {"info", "Prints the metadata, rights, package files, cover and spine as JSON", info},
    {"toc", "Prints the table of contents as an indented tree of LABEL<tab>FILE lines", toc, true},
    {"text", "Prints the text of the book in reading order", text},
    {"html", "Prints the chapters merged into one HTML document with images inlined", html},
    {"rtf", "Prints the book as RTF", rtf},
    {"first-page", "Prints the member name of the first page", firstPage},
    {"cover", "Writes the cover image to the file given with -o and prints what it wrote", cover},
    {"files", "Prints the member each entry of the table of contents shows", files},
};

constexpr std::string_view kFooter = R"(
Examples:
  ulvekbot epub info book.epub | jq .metadata
  ulvekbot epub toc --json book.epub
  ulvekbot epub text -o book.txt book.epub
  ulvekbot epub cover -o cover.jpg book.epub)";

int run(const Subcommand& subcommand, const Options& options, CommandIO& io) {
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
  if (subcommand.run == cover || options.output.empty()) return subcommand.run(book, options, io);
  // -o: the answer goes to the file, which is written only when there is one.
  std::ostringstream answer;
  CommandIO toFile{answer, io.err};
  int status = subcommand.run(book, options, toFile);
  if (status != kExitSuccess) return status;
  std::ofstream file(options.output, std::ios::binary | std::ios::trunc);
  file << answer.view();
  file.close();
  if (!file) {
    printError(io, kCommand, "cannot write " + options.output);
    return kExitFailure;
  }
  return kExitSuccess;
}

CommandAction define(CLI::App& command) {
  command.require_subcommand(1);
  command.footer(std::string(kFooter));
  auto options = std::make_shared<Options>();
  auto chosen = std::make_shared<const Subcommand*>(nullptr);
  for (const Subcommand& subcommand : kSubcommands) {
    CLI::App* parser =
        command.add_subcommand(std::string(subcommand.name), std::string(subcommand.summary));
    if (subcommand.json) parser->add_flag("--json", options->json, "The same as one line of JSON");
    CLI::Option* output = parser->add_option(
        "-o,--output", options->output,
        subcommand.run == cover ? "The file to write the image to" : "Write to FILE instead");
    output->type_name("FILE");
    if (subcommand.run == cover) output->required();
    parser->add_option("BOOK", options->book, "An .epub file or an unpacked book folder")
        ->required();
    parser->parse_complete_callback([chosen, &subcommand] { *chosen = &subcommand; });
  }
  return [options, chosen](CommandIO& io) { return run(**chosen, *options, io); };
}

const CommandRegistration registration{
    {kCommand,
     "Shows an EPUB book or book folder: metadata, table of contents, text, HTML, RTF, "
     "first page, cover and files",
     define}};

}  // namespace
}  // namespace ulvek::cli
