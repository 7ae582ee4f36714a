// ulvekbot: runs imports in-process (or through the daemon) and prints results as JSON.
#include <malloc.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "cli/command.h"

namespace {

using ulvek::cli::Command;

constexpr std::size_t kHelpWidth = 80;
constexpr std::size_t kNameColumn = 26;

// Greedy word wrap of each paragraph (line) of `text` to `width` columns.
std::string wrapped(const std::string& text, std::size_t width) {
  std::string out;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (!out.empty()) out += '\n';
    std::size_t column = 0;
    std::istringstream words(line);
    for (std::string word; words >> word;) {
      if (column > 0 && column + 1 + word.size() > width) {
        out += '\n';
        column = 0;
      } else if (column > 0) {
        out += ' ';
        ++column;
      }
      out += word;
      column += word.size();
    }
  }
  return out;
}

// CLI11's help with descriptions wrapped to the terminal's customary 80 columns; footers are
// written ready to print (examples keep their indentation).
class HelpFormatter : public CLI::Formatter {
 public:
  HelpFormatter() {
    column_width(kNameColumn);
    label("Positionals", "Arguments");
    label("SUBCOMMAND", "COMMAND");
  }

  // Arguments are listed by name alone; the usage line shows which repeat.
  std::string make_option_opts(const CLI::Option* option) const override {
    if (option->get_positional()) return {};
    // Repeated options take one value each time, whatever CLI11 says of lists.
    std::string opts = Formatter::make_option_opts(option);
    if (!option->get_allow_extra_args() && opts.ends_with(" ...")) opts.resize(opts.size() - 4);
    return opts;
  }
  std::string make_option_desc(const CLI::Option* option) const override {
    return wrapped(Formatter::make_option_desc(option), kHelpWidth - kNameColumn);
  }
  // Commands of commands are commands too (epub text, call ping).
  std::string make_subcommands(const CLI::App* app, CLI::AppFormatMode mode) const override {
    std::string text = Formatter::make_subcommands(app, mode);
    constexpr std::string_view kHeading = "\nSubcommands:\n";
    if (std::size_t at = text.find(kHeading); at != std::string::npos)
      text.replace(at, kHeading.size(), "\nCommands:\n");
    return text;
  }
  std::string make_subcommand(const CLI::App* command) const override {
    std::ostringstream out;
    CLI::detail::format_help(out, command->get_display_name(),
                             wrapped(command->get_description(), kHelpWidth - kNameColumn),
                             kNameColumn);
    return out.str();
  }
  std::string make_footer(const CLI::App* app) const override {
    std::string footer = app->get_footer();
    footer.erase(0, footer.find_first_not_of('\n'));
    return footer.empty() ? footer : footer + "\n";
  }
  std::string make_description(const CLI::App* app) const override {
    std::string text = Formatter::make_description(app);
    return text.empty() ? text : wrapped(text, kHelpWidth) + "\n\n";
  }
};

constexpr std::string_view kProgramFooter = R"(
Results are printed one JSON object per line: "path" names the item, the
result's keys (Title, Text, URL, Tags, Author, FileSize, ...) follow; lists
such as Tags and Author are arrays. Diagnostics go to standard error.

Exit status: 0 when every item was read, 1 when any failed, 2 for a wrong
command line.

Examples:
  ulvekbot import ~/Documents/report.docx
  find ~/Mail -name '*.eml' -print0 | ulvekbot import -q -0 - > mail.jsonl
  ulvekbot import --text -o report.txt report.pdf
  ulvekbot classify --json mystery.bin
  ulvekbot epub toc book.epub
  ulvekbot import --help)";

// The deepest command that was named, for messages and help.
const CLI::App* namedCommand(const CLI::App& app) {
  const CLI::App* command = &app;
  while (!command->get_subcommands().empty()) command = command->get_subcommands().front();
  return command;
}

// "ulvekbot", "ulvekbot import", "ulvekbot epub text": how the command was named.
std::string fullName(const CLI::App* command) {
  std::string words = command->get_name();
  for (command = command->get_parent(); command; command = command->get_parent())
    words = command->get_name() + " " + words;
  return words;
}

std::size_t depthOf(const CLI::App* command) {
  std::size_t depth = 0;
  for (command = command->get_parent(); command; command = command->get_parent()) ++depth;
  return depth;
}

// A command of commands (epub, call) named without one of them, or with one it does not have.
std::optional<std::string> missingCommand(const CLI::App* command,
                                          const std::vector<std::string>& arguments) {
  std::vector<const CLI::App*> choices =
      command->get_subcommands([](const CLI::App*) { return true; });
  if (choices.empty() || !command->get_subcommands().empty()) return std::nullopt;
  std::string names;
  for (const CLI::App* choice : choices) names += (names.empty() ? "" : ", ") + choice->get_name();
  std::size_t depth = depthOf(command);
  if (depth < arguments.size() && !arguments[depth].starts_with("-"))
    return "unknown command \"" + arguments[depth] + "\" (" + names + ")";
  return "expects a command (" + names + ")";
}

}  // namespace

int main(int argc, char** argv) {
  // A large document passes through a few buffers of its size (bytes, UTF-16 text, plain text,
  // JSON). Served from the heap and kept there when freed, each buffer reuses pages the last one
  // already faulted in instead of mapping and zeroing fresh ones. A short-lived command can
  // afford to keep its peak.
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);

  CLI::App app(
      "Imports documents as plain text and metadata, as the ulvekbotd64 service does, "
      "and prints each result as JSON.",
      "ulvekbot");
  app.formatter(std::make_shared<HelpFormatter>());
  app.set_version_flag("--version", std::string("ulvekbot ") + ULVEK_VERSION);
  app.require_subcommand(1);
  app.footer(std::string(kProgramFooter));
  std::vector<std::string> arguments(argv + 1, argv + argc);
  // `ulvekbot help [COMMAND]`, as git and go have it.
  if (!arguments.empty() && arguments[0] == "help") {
    arguments.erase(arguments.begin());
    arguments.push_back("--help");
  }
  const Command* named = nullptr;
  if (!arguments.empty() && !arguments[0].starts_with("-")) {
    named = ulvek::cli::findCommand(arguments[0]);
    if (!named) {
      std::cerr << "ulvekbot: unknown command \"" << arguments[0] << "\" (see ulvekbot --help)\n";
      return ulvek::cli::kExitUsage;
    }
  }
  // Only the named command is parsed, so only it is declared: CLI11 spends more building every
  // command's options than a small import takes. The program's own help lists them all.
  std::vector<std::pair<CLI::App*, ulvek::cli::CommandAction>> actions;
  for (const Command& command : ulvek::cli::registeredCommands()) {
    if (named && command.name != named->name) continue;
    CLI::App* parser = app.add_subcommand(std::string(command.name), std::string(command.summary));
    actions.emplace_back(parser, command.define(*parser));
  }
  if (arguments.empty()) {
    std::cerr << app.help();
    return ulvek::cli::kExitUsage;
  }
  try {
    // CLI11 takes the arguments last first.
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    app.parse(reversed);
  } catch (const CLI::CallForHelp&) {
    const CLI::App* command = namedCommand(app);
    std::string parent = command->get_parent() ? fullName(command->get_parent()) : "";
    std::cout << command->help(parent);
    return ulvek::cli::kExitSuccess;
  } catch (const CLI::CallForVersion& version) {
    std::cout << version.what() << '\n';
    return ulvek::cli::kExitSuccess;
  } catch (const CLI::ParseError& error) {
    const CLI::App* command = namedCommand(app);
    std::string name = fullName(command);
    std::cerr << name << ": " << missingCommand(command, arguments).value_or(error.what())
              << "\nRun '" << name << " --help' for more information.\n";
    return ulvek::cli::kExitUsage;
  }
  ulvek::cli::CommandIO io{std::cout, std::cerr};
  int status = ulvek::cli::kExitUsage;
  for (auto& [parser, action] : actions) {
    if (parser->parsed()) status = action(io);
  }
  std::cout.flush();
  return status;
}
