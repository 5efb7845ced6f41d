// Output of the commands on a store: --json, --quiet, a terminal, and an output that cannot be written.

#include <gtest/gtest.h>
#include <json/reader.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "host/support/job_support.h"
#include "support/json.h"

namespace fs = std::filesystem;

namespace arvl_test {
namespace {

using Arguments = std::vector<std::string>;

const char *const kStoreCommands[] = {"list", "verify", "prune"};

class Output : public JobFolder {
 protected:
  // Parses standard output, which must hold exactly one object.
  static Json::Value reportOf(const ProcessResult &result) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value value;
    std::string errors;
    EXPECT_TRUE(
        reader->parse(result.out.data(), result.out.data() + result.out.size(), &value, &errors))
        << errors << result.out;
    EXPECT_EQ(value["exit_code"], result.status);
    EXPECT_EQ(value["success"], result.status == 0);
    return value;
  }

  ProcessResult intoFull(const Arguments &command) const {
    Arguments words = {"/bin/sh", "-c", "exec \"$0\" \"$@\" > /dev/full"};
    words.insert(words.end(), command.begin(), command.end());
    return run(words, variables());
  }
};

TEST_F(Output, IsOneReportOfAJobThatSucceeds) {
  dir_.makeFile("local/file", "contents");
  script("export", {{"upload", "file", at("local/file"), "/file"}});
  const ProcessResult result = backup({"--json"});
  Json::Value report = reportOf(result);
  ASSERT_EQ(report["steps"].size(), 4u);
  const char *const steps[] = {"summary", "estimate_exportion", "can_export", "export"};
  for (Json::ArrayIndex i = 0; i < 4; ++i) {
    EXPECT_EQ(report["steps"][i]["step"], steps[i]);
    EXPECT_EQ(report["steps"][i]["outcome"], "success");
  }
  EXPECT_GT(report["seconds"].asDouble(), 0);
  report.removeMember("steps");
  report.removeMember("seconds");
  Json::Value expected = parseJson(R"({
      "command": "backup", "success": true, "exit_code": 0, "error": null, "application": "unruly",
      "framework_version": "2.3", "app_data_version": "1.0", "estimate_refused": false,
      "missing_steps": [], "denials": [], "denial_count": 0, "changed": [], "changed_count": 0, "skipped": [], "skipped_count": 0, "files": 1, "bytes": 8,
      "summary": {"success": true, "backup_short": "a short text", "backup_long": "a long text",
                  "restore_short": "a short return", "restore_long": "a long return"},
      "estimate": {"success": true, "file_count": 0, "dir_count": 0, "size": 0, "block_size": 0},
      "actual": {"file_count": 1, "dir_count": 0, "symlink_count": 0, "size": 8}})");
  expected["backup"] = latest().filename().string();
  expected["path"] = latest().string();
  EXPECT_EQ(report, expected);
  EXPECT_TRUE(holds(result.err, "backup of unruly\nstep summary\n"));

  const ProcessResult restored = restore({"--json"});
  EXPECT_EQ(reportOf(restored)["command"], "restore");
  EXPECT_TRUE(holds(restored.err, "\nstep import: success ("));
}

TEST_F(Output, IsOneReportOfAJobThatFails) {
  script("export", {{"list", "/none"}, {"fail", "a section", "a key"}});
  const ProcessResult failed = backup({"--json"});
  EXPECT_EQ(failed.status, 1);
  const Json::Value report = reportOf(failed);
  const std::string error =
      "the step export ended with failure, section \"a section\", key \"a key\"";
  EXPECT_EQ(report["error"], error);
  EXPECT_EQ(lastLine(failed.err), "error: " + error);
  EXPECT_EQ(report["path"], Json::Value());
  ASSERT_EQ(report["denials"].size(), 1u);
  EXPECT_EQ(
      report["denials"][0],
      "LIST_DIR_REQUEST was denied: \"/none\" is not in the store: No such file or directory");
  EXPECT_EQ(report["steps"][3]["completion"]["err_msg"]["key"], "a key");

  script("export", {{"be", "breaks the rule"}});
  const ProcessResult broken = backup({"--json"});
  EXPECT_EQ(broken.status, 3);
  EXPECT_EQ(reportOf(broken)["steps"][3]["outcome"], "protocol violation");
  const ProcessResult none = restore({"--json"});
  EXPECT_EQ(none.status, 2);
  EXPECT_EQ(reportOf(none)["error"],
            "the store \"" + at("store") + "\" has no finished backup of unruly");
}

TEST_F(Output, IsOneReportForAnyOutputOfThePlugin) {
  for (const char *how : {"floods", "a line of a megabyte", "closes its output"}) {
    script("summary", {{"be", how}});
    const ProcessResult result = backup({"--json"});
    const Json::Value report = reportOf(result);
    EXPECT_EQ(report["command"], "backup") << how;
    EXPECT_EQ(report["steps"][0]["step"], "summary") << how;
    EXPECT_EQ(result.status, 0) << how << result.err;
  }
}

TEST_F(Output, IsOneReportForADeeplyNestedCompletion) {
  mustBackUp();
  script("import", {{"be", "completes in depth"}});
  const ProcessResult result = restore({"--json"});
  EXPECT_EQ(result.status, 0);
  const Json::Value report = reportOf(result);
  EXPECT_EQ(report["steps"][1]["completion"]["success"], true);
  EXPECT_TRUE(report["steps"][1]["completion"]["deep"].isArray());
}

TEST_F(Output, IsOneReportForEachCommandOnTheStore) {
  mustBackUp();
  for (const std::string command : kStoreCommands) {
    const ProcessResult result = onStore(command, {"--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(reportOf(result)["command"], command);
  }
}

TEST_F(Output, RefusesValuesThatAreEmpty) {
  mustBackUp();
  for (const Arguments &more :
       {Arguments{"--backup", ""}, Arguments{"--trace", ""}, Arguments{"--trace-full"}}) {
    const ProcessResult result = restore(more);
    EXPECT_EQ(result.status, 2) << more[0];
    EXPECT_TRUE(holds(result.err, more[0]));
  }
  EXPECT_EQ(onStore("verify", {"--name", "unruly", "--backup", ""}).status, 2);
}

// A store whose disk is not mounted is empty. Verify must not report it as sound.
TEST_F(Output, ReportsAFailureIfThereIsNothingToVerify) {
  const std::string store = "the store \"" + at("store") + "\" has no ";
  const auto expectFailure = [&](const Arguments &more, const std::string &what) {
    const ProcessResult result = onStore("verify", more);
    EXPECT_EQ(result.status, 1) << what;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "error: " + store + what + ": nothing was verified\n");
    Arguments json = {"--json"};
    json.insert(json.end(), more.begin(), more.end());
    Json::Value expected =
        parseJson(R"({"command": "verify", "success": false, "exit_code": 1, "backups": []})");
    expected["error"] = store + what + ": nothing was verified";
    EXPECT_EQ(reportOf(onStore("verify", json)), expected);
  };
  const std::string id = "20261121T092532.123Z";
  expectFailure({}, "finished backup");
  expectFailure({"--name", "empty"}, "backup of empty");
  expectFailure({"--name", "empty", "--backup", id}, "backup of empty");
  fs::create_directories(at("store/empty/" + id + ".partial"));
  expectFailure({}, "finished backup");
  expectFailure({"--name", "empty"}, "finished backup of empty");
  expectFailure({"--name", "empty", "--backup", id}, "finished backup of empty");
}

TEST_F(Output, ReportsWrongUsage) {
  const auto reportOfWords = [this](const Arguments &more) {
    Arguments words = {job("list")[0]};
    words.insert(words.end(), more.begin(), more.end());
    const ProcessResult result = run(words);
    EXPECT_EQ(result.status, 2);
    return parseJson(result.out);
  };
  EXPECT_EQ(reportOfWords({"list", "--json"}),
            parseJson(R"({"command": "list", "success": false, "exit_code": 2,
                          "error": "--store is required"})"));
  EXPECT_EQ(reportOfWords({"backup", "--json=true"})["command"], "backup");
  EXPECT_EQ(reportOfWords({"--json"})["command"], "");
}

// Runs as another user, which cannot read every directory.
class OutputForAnotherUser : public Output {
 protected:
  void SetUp() override {
    if (geteuid() != 0) {
      GTEST_SKIP() << "only the superuser can be another user";
    }
    fs::permissions(dir_.path(), fs::perms::all);
    // The build may be in a directory that only its owner can enter.
    fs::create_directory(at("program"));
    for (const fs::path file : {ARVL_HOST, ARVL_LIBRARIES}) {
      fs::copy_file(file, fs::path(at("program")) / file.filename());
    }
  }

  ProcessResult runOnStore(const std::string &command, const Arguments &more) const {
    Arguments words = {"/usr/bin/setpriv", "--reuid=65534", "--clear-groups"};
    for (const std::string &word : storeCommand(command, more)) {
      words.push_back(word == ARVL_HOST ? at("program/arvl-host") : word);
    }
    return run(words, {"LD_LIBRARY_PATH=" + at("program")});
  }
};

TEST_F(OutputForAnotherUser, ShowsTheReadablePartOfAStore) {
  const fs::path folder = mustBackUp();
  const std::string manifest = folder / "manifest.json";  // only its owner can enter the directory
  fs::create_directory(at("store/closed"));
  fs::permissions(at("store/closed"), fs::perms::none);
  for (const std::string command : kStoreCommands) {
    const ProcessResult result = runOnStore(command, {"--json"});
    EXPECT_EQ(result.status, 2) << command << result.err;
    const Json::Value report = reportOf(result);
    const std::string closed = "cannot read the directory \"" + at("store/closed") + "\"";
    EXPECT_EQ(report["error"], (command == "verify" ? "cannot open \"" + manifest + "\"" : closed) +
                                   ": Permission denied");
    EXPECT_TRUE(holds(result.err, "error: " + closed + ": Permission denied\n"));
    if (command == "list") {
      EXPECT_EQ(report["backups"].size(), 1u);
    }
  }
  fs::permissions(at("store/closed"), fs::perms::all);
}

TEST_F(OutputForAnotherUser, OfABackupIgnoresOtherUnreadableDirectories) {
  const fs::path folder = mustBackUp();
  fs::create_directory(at("store/closed"));
  fs::permissions(at("store/closed"), fs::perms::none);
  ASSERT_EQ(run({"/bin/chown", "-R", "65534", folder}).status, 0);
  const ProcessResult result =
      runOnStore("verify", {"--name", "unruly", "--backup", folder.filename()});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(countOf(result.err, "error: "), 0u) << result.err;  // profilers write there, too
  EXPECT_TRUE(holds(result.out, "unruly " + folder.filename().string() + ": sound, "));
  fs::permissions(at("store/closed"), fs::perms::all);
}

TEST_F(Output, IsEmptyOnSuccessIfQuiet) {
  for (const ProcessResult &result : {backup({"--quiet"}), restore({"--quiet"}),
                                      onStore("verify", {"-q"}), onStore("prune", {"-q"})}) {
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
  }
  script("export", {{"fail", "a section", "a key"}});
  const ProcessResult failed = backup({"--quiet"});
  EXPECT_TRUE(holds(failed.out, "step export: failure ("));
  EXPECT_TRUE(holds(failed.err, "error: the step export ended with failure"));
  EXPECT_EQ(countOf(failed.out, "success"), 0u) << failed.out;
}

TEST_F(Output, NamesTheProcessesIfVerbose) {
  EXPECT_TRUE(holds(backup({"--verbose"}).out,
                    std::string("\nrunning ") + UNRULY_PLUGIN + "/export (process "));
}

TEST_F(Output, HasColourOnATerminalUnlessDisabled) {
  if (access("/usr/bin/script", X_OK) != 0) {
    GTEST_SKIP() << "there is no script command to make a terminal";
  }
  std::string command;
  for (const std::string &word : job("backup")) {
    command += "'" + word + "' ";
  }
  const Arguments words = {"/usr/bin/script", "-qec", command, "/dev/null"};
  Arguments environment = variables();
  environment.insert(environment.end(), {"TERM=xterm", "NO_COLOR="});
  EXPECT_TRUE(holds(run(words, environment).out, "\x1b[1mbackup of unruly\x1b[0m\r\n"));
  environment.back() = "NO_COLOR=1";
  const ProcessResult plain = run(words, environment);
  EXPECT_EQ(plain.status, 0);
  EXPECT_TRUE(holds(plain.out, "backup of unruly\r\n"));
  EXPECT_EQ(countOf(plain.out, "\x1b[1m"), 0u);
}

TEST_F(Output, ReportsAnErrorIfItCannotBeWritten) {
  mustBackUp();
  std::vector<Arguments> commands = {job("backup"), job("backup", {"--json"}), job("restore"),
                                     job("restore", {"--json"})};
  for (const char *command : kStoreCommands) {
    commands.push_back(storeCommand(command, {"--json"}));
  }
  commands.push_back(storeCommand("list"));
  commands.push_back(storeCommand("verify"));
  for (const Arguments &command : commands) {
    const ProcessResult result = intoFull(command);
    EXPECT_EQ(result.status, 2) << command[1];
    EXPECT_EQ(lastLine(result.err), "arvl-host: cannot write to standard output") << command[1];
  }
}

}  // namespace
}  // namespace arvl_test
