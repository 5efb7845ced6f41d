// The texts of --help.

#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "cli/command_line.h"
#include "cli/help_formatter.h"
#include "host/support/command.h"

namespace {

using namespace arvl_test;

constexpr std::size_t kTerminalColumns = 80;

std::size_t longestLine(const std::string &text) {
  std::istringstream lines(text);
  std::size_t longest = 0;
  for (std::string line; std::getline(lines, line);) {
    longest = std::max(longest, line.size());
  }
  return longest;
}

// The description of an option "-x" of some app, as its help shows it.
std::string shownDescription(const std::string &description) {
  CLI::App app("Does things.", "program");
  app.formatter(std::make_shared<arvl_host::HelpFormatter>());
  app.set_help_flag();
  bool flag = false;
  app.add_flag("-x", flag, description);
  const std::string help = app.help();
  const std::string begin = "\nOptions:\n  -x";
  const std::size_t at = help.find(begin) + begin.size();
  return help.substr(at);
}

TEST(Help, OfTheCommandAndEverySubcommandFitsATerminal) {
  const ProcessResult help = run({ARVL_HOST, "--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_LT(longestLine(help.out), kTerminalColumns) << help.out;
  arvl_host::CommandLine commandLine;
  const auto commands = commandLine.app().get_subcommands([](const CLI::App *) { return true; });
  EXPECT_GE(commands.size(), 7u);
  for (const CLI::App *command : commands) {
    const ProcessResult result = run({ARVL_HOST, command->get_name(), "--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_LT(longestLine(result.out), kTerminalColumns) << result.out;
    EXPECT_TRUE(holds(help.out, "\n  " + command->get_name() + " "));
  }
}

TEST(Help, ShowsEveryDefinition) {
  CLI::App app("Does things.", "program");
  app.formatter(std::make_shared<arvl_host::HelpFormatter>());
  app.set_version_flag("--version", "1.2");
  app.require_subcommand(1);
  CLI::App *command = app.add_subcommand("go", "Go there");
  command->group("Commands");
  command->footer("Codes:\n  0  fine\n");
  std::string text;
  int number = 5;
  bool flag = false;
  std::vector<std::string> list;
  command->add_option("where", text, "The place")->required()->check(CLI::IsMember({"x", "y"}));
  command->add_option("rest", list, "Further places");
  command->add_option("-n,--number", number, "How many")
      ->check(CLI::Range(1, 9))
      ->type_name("N")
      ->capture_default_str();
  CLI::Option *now = command->add_flag("--now", flag, "At once");
  CLI::Option *later = command->add_flag("--later", flag, "Not at once")->excludes(now);
  command->add_option("--a-name-that-is-longer-than-its-column", list, "More")
      ->needs(now)
      ->needs(later);

  EXPECT_EQ(app.help(),
            "Does things.\n"
            "Usage: program [OPTIONS] COMMAND\n"
            "\n"
            "Options:\n"
            "  -h, --help                Print this help message and exit\n"
            "  --version                 Display program version information and exit\n"
            "\n"
            "Commands:\n"
            "  go                        Go there\n");
  EXPECT_EQ(command->help(),
            "Go there\n"
            "Usage: go [OPTIONS] where [rest...]\n"
            "\n"
            "Positionals:\n"
            "  where                     The place (one of x, y; required)\n"
            "  rest ...                  Further places\n"
            "\n"
            "Options:\n"
            "  -h, --help                Print this help message and exit\n"
            "  -n, --number N            How many (INT in [1 - 9]; default: 5)\n"
            "  --now                     At once (not with --later)\n"
            "  --later                   Not at once (not with --now)\n"
            "  --a-name-that-is-longer-than-its-column TEXT ...\n"
            "                            More (needs --later; needs --now)\n"
            "\n"
            "Codes:\n"
            "  0  fine\n"
            "\n");
}

TEST(Help, WrapsADescriptionBetweenWordsOnly) {
  const std::string indent(28, ' ');
  const std::string first = indent.substr(4);
  EXPECT_EQ(shownDescription(std::string(25, 'a') + ' ' + std::string(25, 'b')),
            first + std::string(25, 'a') + ' ' + std::string(25, 'b') + '\n');
  EXPECT_EQ(shownDescription(std::string(25, 'a') + ' ' + std::string(26, 'b')),
            first + std::string(25, 'a') + '\n' + indent + std::string(26, 'b') + '\n');
  EXPECT_EQ(shownDescription("a " + std::string(60, 'b') + " c"),
            first + "a\n" + indent + std::string(60, 'b') + '\n' + indent + "c\n");
}

}  // namespace
