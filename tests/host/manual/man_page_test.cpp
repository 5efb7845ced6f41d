// The man pages of the command and of apps whose definitions are hard to format.

#include "manual/man_page.h"

#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "cli/command_line.h"
#include "host/support/command.h"
#include "support/temp_dir.h"

namespace {

using namespace arvl_test;

std::string pageOf(const CLI::App &app, const std::string &version = "1.2") {
  std::ostringstream page;
  arvl_host::writeManPage(app, version, page);
  return page.str();
}

ProcessResult groff(const std::string &page, const std::string &options) {
  const TempDir dir;
  const std::string file = dir.makeFile("page.1", page);
  return run({"/bin/sh", "-c", "groff -man -ww -Tascii -P-cbou " + options + " \"$0\"", file});
}

std::string hyphensEscaped(const std::string &text) {
  std::string roff;
  for (const char c : text) {
    roff += c == '-' ? "\\-" : std::string(1, c);
  }
  return roff;
}

// Returns the text from a heading to the next one.
std::string section(const std::string &page, const std::string &heading) {
  const std::size_t begin = page.find('\n' + heading + '\n');
  if (begin == std::string::npos) {
    return "";
  }
  return page.substr(begin, page.find("\n.S", begin + 1) - begin);
}

std::string tagOf(const CLI::Option &option) {
  if (option.get_positional()) {
    return "\n.TP\n\\fI" + hyphensEscaped(option.get_name(true)) + "\\fR";
  }
  return "\\fB" + hyphensEscaped(option.get_name()) + "\\fR";
}

void expectEveryOption(const CLI::App &app, const std::string &text) {
  for (const CLI::Option *option : app.get_options()) {
    EXPECT_NE(text.find(tagOf(*option)), std::string::npos)
        << app.get_name() << ' ' << option->get_name() << " is not in:" << text;
  }
}

TEST(ManPage, HoldsEverySubcommandAndOptionOfTheCommand) {
  arvl_host::CommandLine commandLine;
  const CLI::App &app = commandLine.app();
  const std::string page = pageOf(app);
  expectEveryOption(app, section(page, ".SH OPTIONS"));
  const auto commands = app.get_subcommands([](const CLI::App *) { return true; });
  EXPECT_GE(commands.size(), 7u);
  for (const CLI::App *command : commands) {
    expectEveryOption(*command, section(page, ".SS " + hyphensEscaped(command->get_name())));
    EXPECT_NE(page.find("\n\\fBarvl\\-host " + hyphensEscaped(command->get_name()) + "\\fR "),
              std::string::npos);
  }
}

TEST(ManPage, IsInstalledInItsCurrentForm) {
  arvl_host::CommandLine commandLine;
  std::ostringstream built;
  built << std::ifstream(ARVL_MANUAL_DIR "/arvl-host.1").rdbuf();
  EXPECT_EQ(built.str(), pageOf(commandLine.app(), ARVL_VERSION));
}

TEST(ManPage, OfTheCommandCausesNoGroffWarning) {
  arvl_host::CommandLine commandLine;
  const ProcessResult result = groff(pageOf(commandLine.app()), "-z");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
}

TEST(ManPage, ShowsEveryDefinition) {
  CLI::App app("Does things.", "a-b");
  app.footer("Of all.\n");
  CLI::App *command = app.add_subcommand("go", "Go there");
  command->footer("Codes:\n  0  fine\n.\n");
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
  command->add_option("--in", text, "Where to be")->required()->check(CLI::ExistingDirectory);
  command->add_option("--also", list, "More");
  command->add_flag("--now", flag, "At once");
  command->add_option("--hidden", text, "Not to be seen")->group("");

  EXPECT_EQ(pageOf(app),
            ".TH \"a\\-b\" 1 \"\" \"a\\-b 1.2\" \"User Commands\"\n"
            ".nh\n"
            ".ad l\n"
            ".SH NAME\n"
            "a\\-b \\- does things\n"
            ".SH SYNOPSIS\n"
            ".nf\n"
            "\\fBa\\-b go\\fR \\fB\\-\\-in\\fR \\fIDIR\\fR [\\fIOPTION\\fR]... \\fIwhere\\fR "
            "[\\fIrest\\fR...]\n"
            ".fi\n"
            ".SH DESCRIPTION\n"
            "Does things.\n"
            ".PP\n"
            ".nf\n"
            "Of all.\n"
            ".fi\n"
            ".SH OPTIONS\n"
            ".TP\n"
            "\\fB\\-h\\fR, \\fB\\-\\-help\\fR\n"
            "Print this help message and exit\n"
            ".SH COMMANDS\n"
            ".SS go\n"
            "Go there\n"
            ".TP\n"
            "\\fIwhere\\fR\n"
            "The place (one of x, y; required)\n"
            ".TP\n"
            "\\fIrest\\fR...\n"
            "Further places\n"
            ".TP\n"
            "\\fB\\-h\\fR, \\fB\\-\\-help\\fR\n"
            "Print this help message and exit\n"
            ".TP\n"
            "\\fB\\-n\\fR \\fIN\\fR, \\fB\\-\\-number\\fR \\fIN\\fR\n"
            "How many (INT in [1 \\- 9]; default: 5)\n"
            ".TP\n"
            "\\fB\\-\\-in\\fR \\fIDIR\\fR\n"
            "Where to be (required)\n"
            ".TP\n"
            "\\fB\\-\\-also\\fR \\fITEXT\\fR ...\n"
            "More\n"
            ".TP\n"
            "\\fB\\-\\-now\\fR\n"
            "At once\n"
            ".PP\n"
            ".nf\n"
            "Codes:\n"
            "  0  fine\n"
            "\\&.\n"
            ".fi\n"
            ".SH SEE ALSO\n"
            "\\fBsocketpair\\fR(2), \\fBsyslog\\fR(3)\n");
}

TEST(ManPage, EscapesRoffRequests) {
  CLI::App app("Does things.", "program");
  CLI::App *command = app.add_subcommand("go", ".so \\fBno\\fR \\n \"q\" -z `a` ^ ~");
  command->footer("'br one\n.br two\n...");
  const ProcessResult result = groff(pageOf(app), "");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  for (const char *line : {".so \\fBno\\fR \\n \"q\" -z `a` ^ ~", "'br one", ".br two", "..."}) {
    EXPECT_NE(result.out.find("\n       " + std::string(line) + '\n'), std::string::npos)
        << line << " is not in:\n"
        << result.out;
  }
}

}  // namespace
