// The bash completion, run by bash as on a key press.

#include "manual/bash_completion.h"

#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "cli/command_line.h"
#include "host/support/command.h"
#include "support/temp_dir.h"

namespace {

using namespace arvl_test;

using Arguments = std::vector<std::string>;

Arguments linesOf(const std::string &text) {
  std::istringstream stream(text);
  Arguments lines;
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

// Completes arvl-host unless use() sets an app. Works in a directory that holds the files "data one",
// "done" and "deep/x=y" and the directory "deep/inner".
class BashCompletion : public testing::Test {
 protected:
  BashCompletion() {
    dir_.makeDir("work/deep/inner");
    dir_.makeFile("work/data one");
    dir_.makeFile("work/done");
    dir_.makeFile("work/deep/x=y");
    use(commandLine_.app());
  }

  void use(const CLI::App &app) {
    std::ofstream stream(script());
    arvl_host::writeBashCompletion(app, stream);
  }

  std::string script() const { return dir_.at("completion"); }

  // Sources the completion in that directory, runs the commands and returns the lines of their output.
  Arguments bash(const std::string &commands, const Arguments &arguments = {}) {
    Arguments words = {"/bin/bash", "--norc", "-uc", "cd \"$0\" && . ../completion && " + commands,
                       dir_.at("work")};
    words.insert(words.end(), arguments.begin(), arguments.end());
    const ProcessResult result = run(words);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    return linesOf(result.out);
  }

  // Returns the completions of the last of the words. `after`: the words behind the cursor.
  Arguments offered(Arguments words, const Arguments &after = {}) {
    words.insert(words.begin(), {std::to_string(words.size()), "arvl-host"});
    words.insert(words.end(), after.begin(), after.end());
    Arguments replies = bash(
        "COMP_CWORD=$1 COMP_WORDS=(\"${@:2}\") && _arvl_host && "
        "for reply in \"${COMPREPLY[@]}\"; do echo \"$reply\"; done",
        words);
    std::sort(replies.begin(), replies.end());
    return replies;
  }

 private:
  arvl_host::CommandLine commandLine_;
  TempDir dir_;
};

bool has(const Arguments &words, const std::string &word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

TEST_F(BashCompletion, BelongsToTheCommand) {
  EXPECT_EQ(bash("complete -p arvl-host"), Arguments({"complete -F _arvl_host arvl-host"}));
}

TEST_F(BashCompletion, IsInstalledInItsCurrentForm) {
  EXPECT_EQ(run({"/usr/bin/cmp", script(), ARVL_MANUAL_DIR "/arvl-host.bash"}).status, 0);
}

TEST_F(BashCompletion, OffersEverySubcommandAndOption) {
  arvl_host::CommandLine commandLine;
  const auto commands = commandLine.app().get_subcommands([](const CLI::App *) { return true; });
  EXPECT_GE(commands.size(), 7u);
  for (const CLI::App *command : commands) {
    EXPECT_TRUE(has(offered({""}), command->get_name()));
    const Arguments options = offered({command->get_name(), "-"});
    for (const CLI::Option *option : command->get_options()) {
      EXPECT_TRUE(option->get_positional() || has(options, option->get_name()))
          << command->get_name() << ' ' << option->get_name();
    }
  }
}

TEST_F(BashCompletion, OffersTheSubcommandsFirst) {
  EXPECT_EQ(offered({"tra"}), Arguments({"trace"}));
  EXPECT_EQ(offered({"-"}), Arguments({"--help", "--version", "-h"}));
  EXPECT_EQ(offered({"nonsense", ""}), Arguments());
}

TEST_F(BashCompletion, OffersTheStepsThenTheOptions) {
  const Arguments steps = {"can_export", "can_import", "estimate_exportion",
                           "export",     "import",     "summary"};
  EXPECT_EQ(offered({"step", ""}), steps);
  EXPECT_EQ(offered({"step", "--plugin", "deep", ""}), steps);
  EXPECT_EQ(offered({"step", "can_"}), Arguments({"can_export", "can_import"}));
  EXPECT_EQ(offered({"step", "export", "--t"}),
            Arguments({"--timeout", "--trace", "--trace-full"}));
  EXPECT_TRUE(has(offered({"step", "export", ""}), "--plugin"));
}

TEST_F(BashCompletion, OffersFilesAndDirectories) {
  EXPECT_EQ(offered({"trace", "d"}), Arguments({"data one", "deep", "done"}));
  EXPECT_EQ(offered({"trace", "deep/"}), Arguments({"deep/inner", "deep/x=y"}));
  EXPECT_EQ(offered({"step", "--export-config", "da"}), Arguments({"data one"}));
  EXPECT_EQ(offered({"step", "--plugin", ""}), Arguments({"deep"}));
  EXPECT_EQ(offered({"step", "--store", "deep/"}), Arguments({"deep/inner"}));
}

TEST_F(BashCompletion, OffersNothingForAFreeValue) {
  EXPECT_EQ(offered({"step", "--timeout", ""}), Arguments());
  EXPECT_EQ(offered({"step", "--timeout", "-"}), Arguments());
  EXPECT_EQ(offered({"step", "--language="}), Arguments());
}

TEST_F(BashCompletion, OffersAnOptionOnceUnlessItMayBeRepeated) {
  EXPECT_EQ(offered({"step", "--trace", "x", "--tr"}), Arguments({"--trace-full"}));
  EXPECT_EQ(offered({"step", "--trace", "=", "x", "--tr"}), Arguments({"--trace-full"}));
  EXPECT_EQ(offered({"step", "--tr"}, {"--trace", "x"}), Arguments({"--trace-full"}));
  EXPECT_EQ(offered({"step", "--folder", "x", "--fo"}), Arguments({"--folder"}));
  EXPECT_EQ(offered({"step", "--folder", "--trace", "--tr"}),
            Arguments({"--trace", "--trace-full"}));
  EXPECT_EQ(offered({"-h", "--"}), Arguments({"--version"}));
}

TEST_F(BashCompletion, CompletesAValueJoinedByAnEqualsSign) {
  EXPECT_EQ(offered({"step", "--plugin", "="}), Arguments({"deep"}));
  EXPECT_EQ(offered({"step", "--plugin", "=", "de"}), Arguments({"deep"}));
  EXPECT_EQ(offered({"step", "--trace", "=", "deep/x", "=", ""}), Arguments({"y"}));
  EXPECT_EQ(offered({"step", "--plugin", "=", "deep", "exp"}), Arguments({"export"}));
}

TEST_F(BashCompletion, CompletesAJoinedValueIfTheSignBreaksNoWord) {
  EXPECT_EQ(offered({"step", "--plugin="}), Arguments({"--plugin=deep"}));
  EXPECT_EQ(offered({"step", "--export-config=da"}), Arguments({"--export-config=data one"}));
  EXPECT_EQ(offered({"step", "--plugin=deep", "exp"}), Arguments({"export"}));
}

TEST_F(BashCompletion, OffersArgumentsAndChoicesOfTheDefinitions) {
  CLI::App app("Does things.", "arvl-host");
  CLI::App *command = app.add_subcommand("go", "Go there");
  std::string text;
  std::vector<std::string> list;
  command->add_option("name", text, "Anything");
  command->add_option("rest", list, "Further places")->check(CLI::IsMember({"left", "right"}));
  command->add_option("-c,--colour", text, "A colour")->check(CLI::IsMember({"red", "green"}));
  command->add_option("-t,--tag", list, "A tag");
  command->add_option("--hidden", text, "Not to be seen")->group("");
  use(app);

  EXPECT_EQ(offered({"go", ""}), Arguments({"--colour", "--help", "--tag", "-c", "-h", "-t"}));
  EXPECT_EQ(offered({"go", "-c", "r"}), Arguments({"red"}));
  EXPECT_EQ(offered({"go", "-c", "red", "-t", "x", "--"}), Arguments({"--help", "--tag"}));
  EXPECT_EQ(offered({"go", "x", ""}), Arguments({"left", "right"}));
  EXPECT_EQ(offered({"go", "x", "left", "right", "le"}), Arguments({"left"}));
}

}  // namespace
