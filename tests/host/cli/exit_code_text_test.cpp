// The exit codes in the help of each command.

#include "cli/exit_code_text.h"

#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "cli/command_line.h"

namespace {

const std::vector<std::string> kRows = {
    "  0    success\n",
    "  1    the plug-in reported failure; or verify found a problem, or no backup\n",
    "  2    wrong usage, or a step, store or file that cannot be used\n",
    "  3    the plug-in broke the protocol; the rule-book lines are shown\n",
    "  4    timeout of a step, also if the plug-in completes but does not exit\n",
    "  5    the plug-in crashed, even after its completion, or sent no completion\n",
    "  130  interrupted by Ctrl-C, SIGTERM or a hang-up of the terminal\n"};

TEST(ExitCodeText, IsOneLineForEachCode) {
  EXPECT_EQ(arvl_host::exitCodeHelp({arvl_host::kExitHostError, arvl_host::kExitInterrupted}),
            "Exit codes:\n" + kRows[2] + kRows[6]);
}

TEST(ExitCodeText, IsInTheHelpOfEachCommandThatReturnsTheCode) {
  const std::string all =
      kRows[0] + kRows[1] + kRows[2] + kRows[3] + kRows[4] + kRows[5] + kRows[6];
  const struct {
    const char *command;
    std::string rows;
  } cases[] = {
      {"backup", all},
      {"restore", all},
      {"list", kRows[0] + kRows[2]},
      {"verify", kRows[0] + kRows[1] + kRows[2] + kRows[6]},
      {"prune", kRows[0] + kRows[2]},
      {"step", all},
      {"trace", kRows[0] + kRows[2]},
  };
  arvl_host::CommandLine commandLine;
  for (const auto &row : cases) {
    const std::string footer = commandLine.app().get_subcommand(row.command)->get_footer();
    EXPECT_EQ(footer.rfind("Exit codes:\n" + row.rows, 0), 0u) << row.command << ":\n" << footer;
  }
}

}  // namespace
