// The ulvekbot command line, run as a real program.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include "fork_test_files.h"
#include "metadata/metadata_store.h"
#include "platform/formats.h"
#include "service_fixture.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

struct Row {
  std::vector<std::string> arguments;
  int status;
  std::string out;        // exact standard output
  const char* errorPart;  // fragment of standard error; null: must be empty
};

// A tagged file, a tagged folder, a dangling link and a tree to walk, named relative to the
// folder the program runs in.
class CommandLineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string tagged = folder_.write("tagged.txt", "text");
    std::string folder = (folder_.path() / "Folder").string();
    fs::create_directory(folder);
    const std::tuple<std::string, std::string_view, PropertyValue> stored[] = {
        {tagged, MetaDataKey::UserTags, PropertyArray{u"Red\n6", u"Blue"}},
        {tagged, MetaDataKey::WhereFroms, PropertyArray{u"https://example.com/x"}},
        {tagged, MetaDataKey::FinderComment, u"Note \"1\""},
        {folder, MetaDataKey::UserTags, PropertyArray{u"\u00C9t\u00E9"}},
    };
    for (const auto& [path, key, value] : stored)
      ASSERT_TRUE(OVMetaDataStore::setObject(value, key, path, false));
    fs::create_symlink("nowhere", folder_.path() / "dangling");
    folder_.write("bad \xFF name", "x");
    folder_.write("tree/a.txt", "alpha");
    // Finder info only, so a.txt keeps its size: the companion itself is never listed.
    folder_.write("tree/._a.txt", testing::appleDouble({{9, testing::finderInfo("TEXT")}}));
    folder_.write("tree/sub/b.csv", "x,y\n");
    folder_.write("tree/sub/deeper/c.html", "<title>C</title><p>gamma</p>");
    folder_.write("tree/empty.txt", "");
    folder_.write("outside/secret.txt", "must not be imported");
    fs::create_directory_symlink("../outside", folder_.path() / "tree/linked-folder");
    fs::create_symlink("../outside/secret.txt", folder_.path() / "tree/linked-file.txt");
    // A circle, which -L must not walk forever.
    fs::create_directory_symlink("..", folder_.path() / "tree/sub/up");
  }

  testing::ProgramOutput run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), testing::builtProgram("ulvekbot"));
    return testing::runProgram(arguments, folder_.path());
  }

  // The status and standard output exactly; standard error holds `errorPart`, or is empty.
  static void expectOutput(const testing::ProgramOutput& output, int status, const std::string& out,
                           const char* errorPart) {
    EXPECT_EQ(output.status, status) << output.err;
    EXPECT_EQ(output.out, out);
    if (errorPart) {
      EXPECT_NE(output.err.find(errorPart), std::string::npos) << output.err;
    } else {
      EXPECT_EQ(output.err, "");
    }
  }

  void check(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
      SCOPED_TRACE(row.arguments.empty() ? "(none)"
                                         : row.arguments[0] + " " + row.arguments.back());
      expectOutput(run(row.arguments), row.status, row.out, row.errorPart);
    }
  }

  testing::TemporaryFolder folder_;
};

// The lines' "path" values in order.
std::vector<std::string> pathsOf(const std::string& lines) {
  std::vector<std::string> paths;
  std::istringstream stream(lines);
  for (std::string line; std::getline(stream, line);) {
    constexpr std::string_view kStart = "{\"path\":\"";
    if (!line.starts_with(kStart)) continue;
    paths.push_back(line.substr(kStart.size(), line.find('"', kStart.size()) - kStart.size()));
  }
  return paths;
}

const std::string kTaggedJson =
    R"({"path":"tagged.txt","URL":"https://example.com/x","Tags":["Red","Blue"],)"
    R"("SpotlightComment":"Note \"1\""})"
    "\n";
const std::string kFolderTags = "\"Tags\":[\"\xC3\x89t\xC3\xA9\"]}\n";

TEST_F(CommandLineTest, InProcessCommands) {
  testing::ProgramOutput help = run({"--help"});
  EXPECT_EQ(help.status, 0);
  for (const char* command : {"attributes", "directory", "import"})
    EXPECT_NE(help.out.find(std::string("\n  ") + command + " "), std::string::npos) << help.out;
  check({
      {{}, 2, "", "Usage: ulvekbot [OPTIONS] COMMAND"},
      {{"frobnicate"}, 2, "", "unknown command \"frobnicate\""},
      {{"attributes", "tagged.txt", "Folder"},
       0,
       kTaggedJson + "{\"path\":\"Folder\"," + kFolderTags,
       nullptr},
      {{"attributes", "dangling"}, 0, "{\"path\":\"dangling\"}\n", nullptr},
      // A missing item fails the command, the rest goes on.
      {{"attributes", "missing", "Folder"},
       1,
       "{\"path\":\"Folder\"," + kFolderTags,
       "ulvekbot: attributes: missing: No such file or directory"},
      {{"attributes"}, 2, "", "ulvekbot attributes: PATH is required"},
      {{"directory", "Folder"},
       0,
       "{\"path\":\"Folder\",\"Title\":\"Folder\"," + kFolderTags,
       nullptr},
      {{"directory", "bad \xFF name"},
       0,
       "{\"path\":\"bad \xEF\xBF\xBD name\",\"Title\":\"bad \xEF\xBF\xBD name\"}\n",
       nullptr},
      {{"import", "tree/a.txt", "missing", "tree/sub/b.csv"},
       1,
       "{\"path\":\"tree/a.txt\",\"Title\":\"a.txt\",\"Text\":\"alpha\",\"FileSize\":5,"
       "\"ContentType\":\"public.plain-text\",\"MIMEType\":\"text/plain\"}\n"
       "{\"path\":\"missing\",\"Error\":{\"kind\":\"not-found\",\"message\":\"No such file or "
       "directory\"}}\n"
       "{\"path\":\"tree/sub/b.csv\",\"Title\":\"b.csv\",\"Text\":\"x,y\\n\",\"FileSize\":4,"
       "\"ContentType\":\"public.comma-separated-values-text\",\"MIMEType\":\"text/csv\"}\n",
       "missing: not-found: No such file or directory"},
      {{"import"}, 2, "", "expects at least one path, - or --files-from FILE"},
  });
}

// Read, without text by nature and failed files are told apart by the JSON alone, and by the
// exit status. Run as an ordinary user where the tests run as root, who reads any file.
TEST_F(CommandLineTest, ImportTellsFailuresApart) {
  fs::permissions(folder_.path(), fs::perms::all);
  folder_.write("mixed/page.html", "<title>Tide</title><p>Low water.</p>");
  fs::copy_file(testing::dataPath() / "image/dusk.png", folder_.path() / "mixed/dusk.png");
  folder_.write("mixed/cut.wpd", std::string("\xffWPC\x10\x00", 6));
  folder_.write("mixed/empty.docx", "");
  fs::permissions(folder_.write("mixed/locked.html", "<p>secret</p>"), fs::perms::none);
  fs::create_directory(folder_.path() / "mixed/closed");
  fs::permissions(folder_.path() / "mixed/closed", fs::perms::none);
  std::vector<std::string> arguments = {testing::builtProgram("ulvekbot"), "import", "mixed",
                                        "gone.pdf"};
  if (::geteuid() == 0)
    arguments.insert(arguments.begin(),
                     {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
  testing::ProgramOutput output = testing::runProgram(arguments, folder_.path());
  EXPECT_EQ(output.status, 1) << output.err;
  const std::map<std::string, std::string> expected = {{"mixed/closed", "permission"},
                                                       {"mixed/cut.wpd", "damaged"},
                                                       {"mixed/dusk.png", "-"},
                                                       {"mixed/empty.docx", "damaged"},
                                                       {"mixed/locked.html", "permission"},
                                                       {"mixed/page.html", "-"},
                                                       {"gone.pdf", "not-found"}};
  std::map<std::string, std::string> found;
  std::istringstream lines(output.out);
  for (std::string line; std::getline(lines, line);) {
    nlohmann::json item = nlohmann::json::parse(line);
    found[item["path"]] = item.contains("Error") ? item["Error"]["kind"] : "-";
  }
  EXPECT_EQ(found, expected) << output.out;
  EXPECT_NE(output.err.find(": 1 read, 1 without text by nature, 5 failed\n"), std::string::npos)
      << output.err;
}

// Out of reading time, a file answers the text read so far and counts as failed; with time to
// spare it is read whole.
TEST_F(CommandLineTest, ImportTimeLimitCutsASlowFile) {
  std::string page = "<html><body>";
  for (int i = 0; i < 400000; ++i) page += "<div><p>w" + std::to_string(i) + "</p></div>\n";
  page += "<p>END</p></body></html>";
  folder_.write("slow.html", page);
  struct LimitRow {
    const char* limit;
    bool cut;
  };
  for (const LimitRow& row : {LimitRow{"0.001", true}, LimitRow{"600", false}}) {
    SCOPED_TRACE(row.limit);
    auto started = std::chrono::steady_clock::now();
    testing::ProgramOutput output = run({"import", "--time-limit", row.limit, "slow.html"});
    std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
    nlohmann::json item = nlohmann::json::parse(output.out);
    std::string text = item.value("Text", "");
    bool logged =
        output.err.find("Time limit reached, answered the text read so far: ") != std::string::npos;
    EXPECT_EQ(logged, row.cut) << output.err;
    EXPECT_EQ(output.status, row.cut ? 1 : 0);
    EXPECT_EQ(text.find("END") == std::string::npos, row.cut);
    if (row.cut) {
      EXPECT_EQ(item["Error"]["kind"], "timed-out");
      EXPECT_LT(seconds.count(), 5);
    } else {
      EXPECT_FALSE(item.contains("Error"));
    }
  }
}

// Scans are read in the sandboxed worker, with a time budget of their own beyond --timeout.
TEST_F(CommandLineTest, ImportReadsScansByOCR) {
  const fs::path data = testing::dataPath() / "ocr";
  const std::string scan = (data / "scan-150dpi.pdf").string();
  struct OCRRow {
    const char* name;
    std::vector<std::string> arguments;
    const char* word;    // in the text; null: no text
    const char* source;  // TextSource; null: none
    const char* logged;  // in standard error; null: no OCR line
  };
  const std::vector<OCRRow> rows = {
      {"a scan, past the importer's time limit",
       {"--timeout", "1", "--ocr-lang", "eng", scan},
       "lighthouse",
       "ocr",
       "OCR: "},
      {"--no-ocr", {"--no-ocr", scan}, nullptr, nullptr, nullptr},
      {"--ocr after --no-ocr",
       {"--no-ocr", "--ocr", "--ocr-lang=eng", scan},
       "lighthouse",
       "ocr",
       "(1 page, language eng)"},
      {"a text layer", {(data / "text-layer.pdf").string()}, "marigold", nullptr, nullptr},
      // Each costs its own file only, quickly.
      {"a picture declaring 100000 by 100000 pixels",
       {(data / "hostile-huge.png").string()},
       nullptr,
       nullptr,
       "too big to read"},
      {"a cut TIFF", {(data / "hostile-truncated.tif").string()}, nullptr, nullptr, nullptr},
      {"a language not installed",
       {"--ocr-lang", "xyz", scan},
       nullptr,
       nullptr,
       "OCR: no model for xyz"},
  };
  for (const OCRRow& row : rows) {
    SCOPED_TRACE(row.name);
    std::vector<std::string> arguments = {"import", "-j1"};
    arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
    testing::ProgramOutput output = run(arguments);
    EXPECT_EQ(output.status, 0) << output.err;
    nlohmann::json item = nlohmann::json::parse(output.out);
    std::string text = item.value("Text", "");
    std::transform(text.begin(), text.end(), text.begin(), ::tolower);
    if (row.word)
      EXPECT_NE(text.find(row.word), std::string::npos) << text;
    else
      EXPECT_FALSE(item.contains("Text")) << text;
    EXPECT_EQ(item.value("TextSource", ""), row.source ? row.source : "");
    if (row.logged)
      EXPECT_NE(output.err.find(row.logged), std::string::npos) << output.err;
    else
      EXPECT_EQ(output.err.find("OCR"), std::string::npos) << output.err;
  }
}

// What `classify` names for a document folder is the reader `import` reads it with, and a walk
// takes each such folder, an unpacked book among them, as one item.
TEST_F(CommandLineTest, DocumentFoldersAreOneItemOfTheirReader) {
  folder_.write("docs/Plan.oo3/contents.xml", "<?xml version=\"1.0\"?><outline>Buy</outline>");
  folder_.write("docs/Talk.chatlog/log.xml", "<chat>Hi</chat>");
  folder_.write("docs/Book.epub/mimetype", "application/epub+zip");
  folder_.write("docs/Book.epub/META-INF/container.xml", "<container/>");
  folder_.write("docs/Book.epub/OEBPS/one.xhtml", "<html/>");
  folder_.write("docs/Notes.textbundle/text.md", "Notes");
  folder_.write("docs/Notes.rtfd/TXT.rtf", "{\\rtf1 notes}");
  folder_.write("docs/loose/a.txt", "a");
  struct Row {
    std::string name;
    std::string decision;  // the end of its line of `classify`
    std::string imported;  // a part of its line of `import`
  };
  const Row rows[] = {
      {"Plan.oo3", "→ registered reader [reader: outline package]", R"("Text":"Buy")"},
      {"Talk.chatlog", "→ registered reader [reader: chat log]", R"("Text":"Hi")"},
      {"Book.epub", "→ EPUB [reader: epub]", R"("ContentType":"org.idpf.epub-folder")"},
      {"Notes.textbundle", "→ text bundle [reader: text bundle]", R"("Text":"Notes")"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    testing::ProgramOutput classified = run({"classify", "docs/" + row.name});
    EXPECT_EQ(classified.status, 0) << classified.err;
    EXPECT_NE(classified.out.find(row.decision + "\n"), std::string::npos) << classified.out;
    testing::ProgramOutput imported = run({"import", "docs/" + row.name});
    EXPECT_EQ(imported.status, 0) << imported.err;
    EXPECT_NE(imported.out.find(row.imported), std::string::npos) << imported.out;
  }
  testing::ProgramOutput walked = run({"import", "docs"});
  EXPECT_EQ(walked.status, 0) << walked.err;
  std::vector<std::string> paths = pathsOf(walked.out);
  std::sort(paths.begin(), paths.end());
  EXPECT_EQ(paths,
            (std::vector<std::string>{"docs/Book.epub", "docs/Notes.rtfd", "docs/Notes.textbundle",
                                      "docs/Plan.oo3", "docs/Talk.chatlog", "docs/loose/a.txt"}));
}

// Every registry row, as a table and as JSON lines.
TEST_F(CommandLineTest, FormatsListsTheRegistry) {
  testing::ProgramOutput table = run({"formats"});
  EXPECT_EQ(table.status, 0) << table.err;
  EXPECT_TRUE(table.out.starts_with("IDENTIFIER")) << table.out;
  for (const char* row : {"org.openxmlformats.wordprocessingml.document", "attributed document",
                          "public.jpeg", "importer: Image.mdimporter", "abstract", "package"})
    EXPECT_NE(table.out.find(row), std::string::npos) << row;
  testing::ProgramOutput json = run({"formats", "--json"});
  EXPECT_EQ(json.status, 0);
  EXPECT_EQ(static_cast<std::size_t>(std::count(json.out.begin(), json.out.end(), '\n')),
            formats().size());
  EXPECT_NE(json.out.find(R"("signatures":["^%PDF-"])"), std::string::npos);
  EXPECT_EQ(run({"formats", "--bogus"}).status, 2);
}

// Whatever is wrong with the command line is said on standard error, with nothing on standard
// output, and the exit status 2; nothing is imported or asked of the bus first.
TEST_F(CommandLineTest, UsageErrorsExitTwo) {
  struct UsageRow {
    const char* name;
    std::vector<std::string> arguments;
    const char* errorPart;
  };
  const UsageRow rows[] = {
      {"unknown option", {"import", "--bogus", "tree/a.txt"}, "not expected: --bogus"},
      {"unknown short option", {"classify", "-z", "tree/a.txt"}, "not expected: -z"},
      {"trailing --timeout", {"import", "tree/a.txt", "--timeout"}, "--timeout: 1 required"},
      {"missing value", {"import", "--max-depth"}, "--max-depth: 1 required N missing"},
      {"no number", {"import", "--max-text", "many", "tree/a.txt"}, "--max-text"},
      {"no time", {"import", "--timeout=0", "tree/a.txt"}, "takes a number of seconds above 0"},
      {"no reading time",
       {"import", "--time-limit", "0", "tree/a.txt"},
       "takes a number of seconds above 0"},
      {"-0 without a list", {"import", "-0", "tree/a.txt"}, "-0 goes with - or --files-from"},
      {"no paths", {"classify", "--json"}, "PATH is required"},
      {"argument too many", {"formats", "tree"}, "not expected: tree"},
      {"data without a file", {"call", "data"}, "ulvekbot call data: FILE is required"},
      {"data with four", {"call", "data", "a", "b", "c", "d"}, "not expected: d"},
      {"no operation", {"call"}, "expects a command (ping, terminate,"},
      {"sheet rows", {"sheet", "--max-rows", "x", "tree/sub/b.csv"}, "--max-rows"},
      {"help names the command", {"import", "--bogus"}, "Run 'ulvekbot import --help'"},
      {"no threads", {"import", "-j", "0", "tree/a.txt"}, "--jobs"},
  };
  for (const UsageRow& row : rows) {
    SCOPED_TRACE(row.name);
    testing::ProgramOutput output = run(row.arguments);
    EXPECT_EQ(output.status, 2);
    EXPECT_EQ(output.out, "");
    EXPECT_NE(output.err.find(row.errorPart), std::string::npos) << output.err;
  }
}

// The spellings GNU tools accept: --opt=value, -- before paths that look like options, and help
// or the version before anything is run.
TEST_F(CommandLineTest, OptionSpellings) {
  folder_.write("-dash.txt", "dash");
  const std::string aLine =
      "{\"path\":\"tree/a.txt\",\"Title\":\"a.txt\",\"Text\":\"alpha\",\"FileSize\":5,"
      "\"ContentType\":\"public.plain-text\",\"MIMEType\":\"text/plain\"}\n";
  check({
      {{"import", "-q", "--timeout=5", "tree/a.txt"}, 0, aLine, nullptr},
      {{"import", "-q", "--timeout", "5", "tree/a.txt"}, 0, aLine, nullptr},
      {{"import", "-q", "--time-limit=5", "tree/a.txt"}, 0, aLine, nullptr},
      {{"import", "-q", "--", "-dash.txt"},
       0,
       "{\"path\":\"-dash.txt\",\"Title\":\"-dash.txt\",\"Text\":\"dash\",\"FileSize\":4,"
       "\"ContentType\":\"public.plain-text\",\"MIMEType\":\"text/plain\"}\n",
       nullptr},
      {{"--version"}, 0, std::string("ulvekbot ") + ULVEK_VERSION + "\n", nullptr},
  });
  // Help wins over the paths beside it.
  testing::ProgramOutput help = run({"import", "--help", "tree/a.txt"});
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("Usage: ulvekbot import [OPTIONS] [PATH...]"), std::string::npos);
  EXPECT_EQ(help.err, "");
  EXPECT_EQ(run({"help", "import"}).out, help.out);
}

// Every command answers --help on standard output within 80 columns, and its long options are
// in the bash completion and the manual page.
TEST_F(CommandLineTest, HelpOfEveryCommand) {
  const std::string completion =
      testing::readFile(fs::path(ULVEK_SOURCE_DIR) / "packaging/completion/ulvekbot.bash");
  const std::string manual =
      testing::readFile(fs::path(ULVEK_SOURCE_DIR) / "packaging/man/ulvekbot.1.scd");
  ASSERT_FALSE(completion.empty());
  ASSERT_FALSE(manual.empty());
  const std::vector<std::vector<std::string>> commands = {
      {},
      {"import"},
      {"classify"},
      {"formats"},
      {"importers"},
      {"attributes"},
      {"directory"},
      {"sheet"},
      {"bibtex"},
      {"epub"},
      {"epub", "toc"},
      {"epub", "text"},
      {"epub", "cover"},
      {"call"},
      {"call", "data"},
      {"call", "import"},
  };
  for (std::vector<std::string> command : commands) {
    std::string name = "ulvekbot";
    for (const std::string& word : command) name += " " + word;
    SCOPED_TRACE(name);
    command.push_back("--help");
    testing::ProgramOutput output = run(command);
    EXPECT_EQ(output.status, 0);
    EXPECT_EQ(output.err, "");
    EXPECT_NE(output.out.find("Usage: " + name + " "), std::string::npos) << output.out;
    std::istringstream lines(output.out);
    for (std::string line; std::getline(lines, line);) {
      EXPECT_LE(std::count_if(line.begin(), line.end(), [](char c) { return (c & 0xC0) != 0x80; }),
                80)
          << line;
      // "  -o,--output FILE   Write ...": the options the command takes.
      if (!line.starts_with("  -")) continue;
      std::string option = line.substr(line.find("--"));
      option = option.substr(0, option.find_first_of(" ="));
      if (option == "--help" || option == "--version") continue;
      EXPECT_NE(completion.find(option), std::string::npos) << option << " not completed";
      EXPECT_NE(manual.find("*" + option + "*"), std::string::npos) << option << " not in man";
    }
  }
}

// A small import starts fast: libraries that only some files or commands need are loaded when
// first used (sd-bus by `call`, libmagic to look into a file, ICU's charset detector for text
// without a name for its encoding), and then work.
TEST_F(CommandLineTest, LoadsWhatOnlySomeRunsNeedWhenFirstUsed) {
  testing::ProgramOutput loaded = testing::runProgram(
      {"/bin/sh", "-c", "LD_TRACE_LOADED_OBJECTS=1 exec \"$0\"", testing::builtProgram("ulvekbot")},
      folder_.path());
  ASSERT_NE(loaded.out.find("libc.so"), std::string::npos) << loaded.out << loaded.err;
  for (const char* library : {"libsystemd", "libmagic", "libicui18n", "libgsf"})
    EXPECT_EQ(loaded.out.find(library), std::string::npos) << library << " is loaded at start";

  std::string wide;
  for (char c : std::string("Plain words in a wide text without a mark.\n")) wide += {c, '\0'};
  folder_.write("wide.txt", wide);
  folder_.write("noname", "%PDF-1.4\n1 0 obj << >> endobj\n");
  testing::ProgramOutput text = run({"import", "-q", "wide.txt"});
  EXPECT_NE(text.out.find("Plain words in a wide text without a mark."), std::string::npos)
      << text.out << text.err;
  testing::ProgramOutput sniffed = run({"classify", "--json", "noname"});
  EXPECT_NE(sniffed.out.find("com.adobe.pdf"), std::string::npos) << sniffed.out << sniffed.err;
}

// Paths to import from standard input or a file, one a line or NUL-terminated, in order, among
// the paths named.
TEST_F(CommandLineTest, PathLists) {
  folder_.write("lines.txt", "tree/a.txt\n\ntree/sub/b.csv\n");
  folder_.write("nul.list", std::string("tree/a.txt\0tree/sub/deeper/c.html\0", 35));
  struct ListRow {
    const char* name;
    std::string arguments;  // after "ulvekbot import -q", as the shell reads them
    std::vector<std::string> paths;
    int status = 0;
  };
  const ListRow rows[] = {
      {"lines from standard input", "- < lines.txt", {"tree/a.txt", "tree/sub/b.csv"}},
      {"NUL from standard input", "-0 - < nul.list", {"tree/a.txt", "tree/sub/deeper/c.html"}},
      {"among named paths",
       "tree/empty.txt - Folder/../tree/a.txt < lines.txt",
       {"tree/empty.txt", "tree/a.txt", "tree/sub/b.csv", "Folder/../tree/a.txt"}},
      {"from a file", "--files-from lines.txt", {"tree/a.txt", "tree/sub/b.csv"}},
      {"NUL from a file", "-0 --files-from=nul.list", {"tree/a.txt", "tree/sub/deeper/c.html"}},
      {"file list from standard input",
       "--files-from - < lines.txt",
       {"tree/a.txt", "tree/sub/b.csv"}},
      {"a listed path that is missing",
       "- < nul.list",
       {"tree/a.txt\\u0000tree/sub/deeper/c.html\\u0000\\u0000"},
       1},
      {"a list that is missing", "--files-from nothing.txt", {}, 1},
  };
  for (const ListRow& row : rows) {
    SCOPED_TRACE(row.name);
    testing::ProgramOutput output =
        testing::runProgram({"/bin/sh", "-c", "exec \"$0\" import -q " + row.arguments,
                             testing::builtProgram("ulvekbot")},
                            folder_.path());
    EXPECT_EQ(output.status, row.status) << output.err;
    EXPECT_EQ(pathsOf(output.out), row.paths);
  }
}

// --text prints texts as pdftotext prints pages, -o writes the answer to a file, --max-text cuts
// texts without splitting a character, -q leaves only errors on standard error.
TEST_F(CommandLineTest, WhatImportPrints) {
  folder_.write("summer.txt", "\xC3\xA9t\xC3\xA9");  // "été"
  // The type each line names is the one the content decides where the name lies.
  folder_.write("letter.txt", "{\\rtf1\\ansi Dear reader}");
  folder_.write("page", "<!DOCTYPE html><title>Page</title><p>Body</p>");
  // A book the reader logs a line about.
  const std::string damaged = (testing::dataPath() / "epub/damaged-missing-opf.epub").string();
  struct OutputRow {
    const char* name;
    std::vector<std::string> arguments;
    int status;
    std::string out;
    const char* errorPart;  // null: standard error is empty
    std::string file = "";  // what -o wrote to out.txt
  };
  const OutputRow rows[] = {
      {"texts with form feeds",
       {"--text", "-q", "tree/a.txt", "tree/empty.txt", "tree/sub/b.csv"},
       0,
       "alpha\f\fx,y\n\f",
       nullptr},
      {"cut texts",
       {"--text", "-q", "--max-text=3", "tree/a.txt", "summer.txt"},
       0,
       "alp\f\xC3\xA9t\f",
       nullptr},
      {"cut inside a character",
       {"--text", "-q", "--max-text", "4", "summer.txt"},
       0,
       "\xC3\xA9t\f",
       nullptr},
      {"cut JSON",
       {"-q", "--max-text", "1", "tree/a.txt"},
       0,
       "{\"path\":\"tree/a.txt\",\"Title\":\"a.txt\",\"Text\":\"a\",\"FileSize\":5,"
       "\"ContentType\":\"public.plain-text\",\"MIMEType\":\"text/plain\"}\n",
       nullptr},
      {"to a file", {"--text", "-o", "out.txt", "tree/a.txt"}, 0, "", "1 file, 5 bytes", "alpha\f"},
      {"quiet", {"-q", "--text", "tree"}, 0, "alpha\f\fx,y\n\fC\n\ngamma\n\n\f", nullptr},
      {"log lines", {"--text", damaged}, 1, "\f", "Damaged book: "},
      {"quiet log", {"-q", "--text", damaged}, 1, "\f", ": damaged: Damaged book: "},
      // A file that failed still has its page, so pages and files stay in step.
      {"quiet but errors",
       {"-q", "--text", "missing", "tree/a.txt"},
       1,
       "\falpha\f",
       "ulvekbot: import: missing: not-found: No such file or directory\n"},
      {"unwritable file", {"-o", "nowhere/out.txt", "tree/a.txt"}, 1, "", "nowhere/out.txt"},
      {"content types by content",
       {"letter.txt", "page"},
       0,
       "{\"path\":\"letter.txt\",\"Title\":\"letter.txt\",\"Text\":\"Dear reader\","
       "\"FileSize\":24,\"ContentType\":\"public.rtf\",\"MIMEType\":\"text/rtf\"}\n"
       "{\"path\":\"page\",\"Title\":\"Page\",\"Text\":\"Page\\n\\nBody\\n\\n\",\"FileSize\":45,"
       "\"ContentType\":\"public.html\",\"MIMEType\":\"text/html\"}\n",
       "ulvekbot: import: 2 files"},
  };
  for (const OutputRow& row : rows) {
    SCOPED_TRACE(row.name);
    std::vector<std::string> arguments = row.arguments;
    arguments.insert(arguments.begin(), "import");
    expectOutput(run(arguments), row.status, row.out, row.errorPart);
    if (!row.file.empty()) {
      EXPECT_EQ(testing::readFile(folder_.path() / "out.txt"), row.file);
    }
  }
}

// The summary line without its time.
std::string summaryCounts(const std::string& err) {
  std::smatch match;
  static const std::regex summary(R"(ulvekbot: import: (\d+ files?, \d+ bytes), [0-9.]+ s: (.*))");
  if (!std::regex_search(err, match, summary)) return "no summary in: " + err;
  return match[1].str() + ": " + match[2].str();
}

// Files imported on several threads come out as on one, byte for byte and in the same order,
// for folders, path lists and texts; the summary counts the same and the exit status agrees.
TEST_F(CommandLineTest, ImportOnSeveralThreadsPrintsWhatOneThreadPrints) {
  const std::string data = testing::dataPath().string();
  // PostScript is read through a PDF that Ghostscript makes and dates by the clock, so its dates
  // differ from one run to the next whatever the threads; it is left out.
  auto postScript = [](const fs::path& path) {
    return path.extension() == ".ps" || path.extension() == ".eps";
  };
  std::string listed;
  for (const auto& entry : fs::recursive_directory_iterator(testing::dataPath()))
    if (entry.is_regular_file() && !postScript(entry.path()))
      listed = entry.path().string() + "\n" + listed;
  folder_.write("fixtures.list", listed);
  struct JobsRow {
    const char* name;
    std::vector<std::string> arguments;
  };
  const JobsRow rows[] = {
      {"a folder as JSON", {data}},
      {"a folder's texts", {"--text", "--max-text=200", data}},
      {"a list of paths", {"--files-from", "fixtures.list", "missing", "tree"}},
  };
  for (const JobsRow& row : rows) {
    SCOPED_TRACE(row.name);
    std::vector<std::string> arguments = row.arguments;
    // A generous limit, so that no importer call times out on one run and not on the other;
    // OCR, tested on its own, would only make the runs long.
    arguments.insert(arguments.begin(), {"import", "--timeout=120", "--exclude=*.ps",
                                         "--exclude=*.eps", "-j", "1", "--no-ocr"});
    testing::ProgramOutput one = run(arguments);
    arguments[5] = "4";
    testing::ProgramOutput four = run(arguments);
    EXPECT_GT(
        std::count(one.out.begin(), one.out.end(), row.arguments[0] == "--text" ? '\f' : '\n'),
        100);
    EXPECT_EQ(four.status, one.status);
    EXPECT_TRUE(four.out == one.out) << "one thread:\n" << one.out << "\nfour:\n" << four.out;
    EXPECT_EQ(summaryCounts(four.err), summaryCounts(one.err));
  }
}

// Which files a folder walk takes: depth, exclusions by name and by path, and links.
TEST_F(CommandLineTest, FolderWalkOptions) {
  const std::vector<std::string> all = {"tree/a.txt", "tree/empty.txt", "tree/sub/b.csv",
                                        "tree/sub/deeper/c.html"};
  struct WalkRow {
    const char* name;
    std::vector<std::string> arguments;
    std::vector<std::string> paths;
    const char* errorPart;
    const char* summary = nullptr;  // the summary's counts
  };
  const WalkRow rows[] = {
      {"everything",
       {"tree"},
       all,
       "ulvekbot: import: 3 links in folders skipped (-L follows them)\n",
       "4 files, 37 bytes: 4 read, 0 without text by nature, 0 failed"},
      {"not recursive", {"--no-recursive", "tree"}, {"tree/a.txt", "tree/empty.txt"}, "2 links"},
      {"depth 0", {"--max-depth=0", "tree"}, {"tree/a.txt", "tree/empty.txt"}, "2 links"},
      {"depth 1",
       {"--max-depth", "1", "tree"},
       {"tree/a.txt", "tree/empty.txt", "tree/sub/b.csv"},
       "3 links"},
      {"excluded by name",
       {"--exclude", "*.txt", "tree"},
       {"tree/sub/b.csv", "tree/sub/deeper/c.html"},
       "2 links"},
      {"a folder excluded by its path",
       {"--exclude=sub/deeper", "tree"},
       {"tree/a.txt", "tree/empty.txt", "tree/sub/b.csv"},
       "3 links"},
      {"excluded twice",
       {"--exclude", "sub", "--exclude", "a.*", "tree"},
       {"tree/empty.txt"},
       "2 links"},
      {"links followed once",
       {"-L", "tree"},
       {"tree/a.txt", "tree/empty.txt", "tree/linked-file.txt", "tree/linked-folder/secret.txt",
        "tree/sub/b.csv", "tree/sub/deeper/c.html"},
       nullptr},
      {"named files are never walked", {"--exclude", "*", "tree/a.txt"}, {"tree/a.txt"}, nullptr},
  };
  for (const WalkRow& row : rows) {
    SCOPED_TRACE(row.name);
    std::vector<std::string> arguments = row.arguments;
    arguments.insert(arguments.begin(), {"import", "-q"});
    if (row.errorPart) arguments.erase(arguments.begin() + 1);  // the link count is no error
    testing::ProgramOutput output = run(arguments);
    EXPECT_EQ(output.status, 0) << output.err;
    EXPECT_EQ(pathsOf(output.out), row.paths);
    if (row.errorPart) {
      EXPECT_NE(output.err.find(row.errorPart), std::string::npos) << output.err;
    } else {
      EXPECT_EQ(output.err, "");
    }
    if (row.summary) EXPECT_EQ(summaryCounts(output.err), row.summary);
  }
}

// Lists the result keeps joined by line feeds are arrays in the JSON lines.
TEST_F(CommandLineTest, ListsAreArrays) {
  struct ListRow {
    const char* file;
    const char* member;
  };
  const ListRow rows[] = {
      {"epub/field-notes-epub2.epub",
       "\"Author\":[\"\xC3\x85sa Lindqvist\",\"\xC3\x93 Briain, Tom\xC3\xA1s\"]"},
      {"vcf/v21-quoted-printable.vcf", "\"Phone\":[\"+45 33 55 01 10\",\"+45 33 55 01 11\","},
      // From an importer: a Word 6 document, which the built-in Word reader passes on.
      {"word6/letter.doc", "\"Author\":[\"\xC3\x85sa Berg\"]"},
  };
  for (const ListRow& row : rows) {
    SCOPED_TRACE(row.file);
    testing::ProgramOutput output =
        run({"import", "-q", (testing::dataPath() / row.file).string()});
    EXPECT_EQ(output.status, 0) << output.err;
    EXPECT_NE(output.out.find(row.member), std::string::npos) << output.out;
  }
}

TEST_F(CommandLineTest, CallsReachTheDaemon) {
  testing::PrivateBus bus;
  testing::ChildProcess daemon = testing::startDaemon((folder_.path() / "daemon.log").string());
  auto client = testing::ServiceClient::connect(nullptr);
  ASSERT_TRUE(client && client->waitForService(10s));
  check({
      {{"call", "ping"}, 0, "", nullptr},
      {{"call", "attributes", "tagged.txt"}, 0, kTaggedJson, nullptr},
      {{"call", "directory", "Folder"},
       0,
       "{\"path\":\"Folder\",\"Title\":\"Folder\"," + kFolderTags,
       nullptr},
      // Text is no PDF: the service answers an empty result.
      {{"call", "data", "tagged.txt", "", "application/pdf"}, 0, "{\"path\":\"tagged.txt\"}\n", ""},
      {{"call", "stillBusy"}, 2, "", "unknown command \"stillBusy\""},
      {{"call", "ping", "x"}, 2, "", "not expected: x"},
      // A name that is not UTF-8 goes as bytes and answers as in-process.
      {{"call", "directory", "bad \xFF name"},
       0,
       "{\"path\":\"bad \xEF\xBF\xBD name\",\"Title\":\"bad \xEF\xBF\xBD name\"}\n",
       nullptr},
      {{"call", "terminate"}, 0, "", nullptr},
  });
  EXPECT_EQ(daemon.waitForExit(10s), 0);
  check({{{"call", "terminate"}, 1, "", "the service is not running"}});
  setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/ulvekbot-test-bus", 1);
  check({{{"call", "ping"}, 1, "", "Cannot connect to the session bus"}});
}

}  // namespace
}  // namespace ulvek
