// Command lines that name no command.

#include "cli/command_line.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/support/command.h"
#include "support/json.h"

namespace {

using namespace arvl_test;

struct WithoutCommand {
  std::vector<std::string> words;
  std::string error;
};

TEST(CommandLine, RejectsAnUnknownFirstWord) {
  const WithoutCommand cases[] = {
      {{}, "a command is required"},
      {{""}, "there is no command \"\""},
      {{"bakup", "--store", "/tmp"}, "there is no command \"bakup\""},
      {{"backup2"}, "there is no command \"backup2\""},
      {{"\x1b[31m"}, "there is no command \"\\x1b[31m\""},
      {{"--stor"}, "there is no option \"--stor\""},
      {{"-j"}, "there is no option \"-j\""},
  };
  for (const WithoutCommand &wrong : cases) {
    std::vector<std::string> words = {ARVL_HOST};
    words.insert(words.end(), wrong.words.begin(), wrong.words.end());
    const ProcessResult result = run(words);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, wrong.error + "\nRun with --help for more information.\n");
  }
}

TEST(CommandLine, ReportsAnUnknownCommandInJson) {
  const ProcessResult result = run({ARVL_HOST, "bakup", "--json"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(parseJson(result.out)["error"], "there is no command \"bakup\"");
}

}  // namespace
