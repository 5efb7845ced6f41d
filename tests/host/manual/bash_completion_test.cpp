// The bash completion, asked by bash itself as it asks while somebody types.

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

using Words = std::vector<std::string>;

Words linesOf(const std::string &text) {
  std::istringstream stream(text);
  Words lines;
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

// Of the command itself, unless an app is given. Files are those of a folder with the files "data one"
// and "done", and the folder "deep", which holds the folder "inner" and the file "x=y".
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

  // The commands run with the completion sourced, in the folder.
  Words bash(const std::string &commands, const Words &arguments = {}) {
    Words words = {"/bin/bash", "--norc", "-uc", "cd \"$0\" && . ../completion && " + commands,
                   dir_.at("work")};
    words.insert(words.end(), arguments.begin(), arguments.end());
    const Ended ended = run(words);
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    return linesOf(ended.out);
  }

  // What is offered for the word at the cursor, the last unless there are words after it.
  Words offered(Words words, const Words &after = {}) {
    words.insert(words.begin(), {std::to_string(words.size()), "arvl-host"});
    words.insert(words.end(), after.begin(), after.end());
    Words replies = bash(
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

bool has(const Words &words, const std::string &word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

TEST_F(BashCompletion, BelongsToTheCommand) {
  EXPECT_EQ(bash("complete -p arvl-host"), Words({"complete -F _arvl_host arvl-host"}));
}

TEST_F(BashCompletion, IsInstalledAsTheDefinitionsAreNow) {
  EXPECT_EQ(run({"/usr/bin/cmp", script(), ARVL_MANUAL_DIR "/arvl-host.bash"}).status, 0);
}

TEST_F(BashCompletion, OffersEverySubcommandAndOption) {
  arvl_host::CommandLine commandLine;
  const auto commands = commandLine.app().get_subcommands([](const CLI::App *) { return true; });
  EXPECT_GE(commands.size(), 7u);
  for (const CLI::App *command : commands) {
    EXPECT_TRUE(has(offered({""}), command->get_name()));
    const Words options = offered({command->get_name(), "-"});
    for (const CLI::Option *option : command->get_options()) {
      EXPECT_TRUE(option->get_positional() || has(options, option->get_name()))
          << command->get_name() << ' ' << option->get_name();
    }
  }
}

TEST_F(BashCompletion, OffersTheSubcommandsFirst) {
  EXPECT_EQ(offered({"tra"}), Words({"trace"}));
  EXPECT_EQ(offered({"-"}), Words({"--help", "--version", "-h"}));
  EXPECT_EQ(offered({"nonsense", ""}), Words());
}

TEST_F(BashCompletion, OffersTheStepsThenTheOptions) {
  const Words steps = {"can_export", "can_import", "estimate_exportion",
                       "export",     "import",     "summary"};
  EXPECT_EQ(offered({"step", ""}), steps);
  EXPECT_EQ(offered({"step", "--plugin", "deep", ""}), steps);
  EXPECT_EQ(offered({"step", "can_"}), Words({"can_export", "can_import"}));
  EXPECT_EQ(offered({"step", "export", "--t"}), Words({"--timeout", "--trace", "--trace-full"}));
  EXPECT_TRUE(has(offered({"step", "export", ""}), "--plugin"));
}

TEST_F(BashCompletion, OffersFilesAndFolders) {
  EXPECT_EQ(offered({"trace", "d"}), Words({"data one", "deep", "done"}));
  EXPECT_EQ(offered({"trace", "deep/"}), Words({"deep/inner", "deep/x=y"}));
  EXPECT_EQ(offered({"step", "--export-config", "da"}), Words({"data one"}));
  EXPECT_EQ(offered({"step", "--plugin", ""}), Words({"deep"}));
  EXPECT_EQ(offered({"step", "--store", "deep/"}), Words({"deep/inner"}));
}

TEST_F(BashCompletion, OffersNothingForAFreeValue) {
  EXPECT_EQ(offered({"step", "--timeout", ""}), Words());
  EXPECT_EQ(offered({"step", "--timeout", "-"}), Words());
  EXPECT_EQ(offered({"step", "--language="}), Words());
}

TEST_F(BashCompletion, OffersAnOptionOnceUnlessItMayBeRepeated) {
  EXPECT_EQ(offered({"step", "--trace", "x", "--tr"}), Words({"--trace-full"}));
  EXPECT_EQ(offered({"step", "--trace", "=", "x", "--tr"}), Words({"--trace-full"}));
  EXPECT_EQ(offered({"step", "--tr"}, {"--trace", "x"}), Words({"--trace-full"}));
  EXPECT_EQ(offered({"step", "--folder", "x", "--fo"}), Words({"--folder"}));
  EXPECT_EQ(offered({"step", "--folder", "--trace", "--tr"}), Words({"--trace", "--trace-full"}));
  EXPECT_EQ(offered({"-h", "--"}), Words({"--version"}));
}

TEST_F(BashCompletion, CompletesAValueJoinedByAnEqualsSign) {
  EXPECT_EQ(offered({"step", "--plugin", "="}), Words({"deep"}));
  EXPECT_EQ(offered({"step", "--plugin", "=", "de"}), Words({"deep"}));
  EXPECT_EQ(offered({"step", "--trace", "=", "deep/x", "=", ""}), Words({"y"}));
  EXPECT_EQ(offered({"step", "--plugin", "=", "deep", "exp"}), Words({"export"}));
}

TEST_F(BashCompletion, CompletesAValueJoinedWhereTheSignBreaksNoWord) {
  EXPECT_EQ(offered({"step", "--plugin="}), Words({"--plugin=deep"}));
  EXPECT_EQ(offered({"step", "--export-config=da"}), Words({"--export-config=data one"}));
  EXPECT_EQ(offered({"step", "--plugin=deep", "exp"}), Words({"export"}));
}

TEST_F(BashCompletion, OffersPlacesAndChoicesByTheDefinitions) {
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

  EXPECT_EQ(offered({"go", ""}), Words({"--colour", "--help", "--tag", "-c", "-h", "-t"}));
  EXPECT_EQ(offered({"go", "-c", "r"}), Words({"red"}));
  EXPECT_EQ(offered({"go", "-c", "red", "-t", "x", "--"}), Words({"--help", "--tag"}));
  EXPECT_EQ(offered({"go", "x", ""}), Words({"left", "right"}));
  EXPECT_EQ(offered({"go", "x", "left", "right", "le"}), Words({"left"}));
}

}  // namespace
