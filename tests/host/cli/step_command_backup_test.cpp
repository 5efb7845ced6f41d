// "arvl-host step --backup": one step on the data of an existing backup.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "host/support/job_support.h"

namespace fs = std::filesystem;

namespace arvl_test {
namespace {

using Arguments = std::vector<std::string>;

class StepOnBackup : public JobFolder {
 protected:
  // Makes a backup of one file, "/file".
  fs::path backUpFile(const Arguments &more = {}) const {
    script("export", {{"upload", "file", dir_.makeFile("local/file", "contents"), "/file"}});
    return mustBackUp(more);
  }

  ProcessResult step(const std::string &name, const std::string &folder,
                     const Arguments &more = {}) const {
    Arguments words = {ARVL_HOST, "step", name, "--plugin", UNRULY_PLUGIN, "--backup", folder};
    words.insert(words.end(), more.begin(), more.end());
    return run(words, variables());
  }

  // Expects that the step is refused before it starts.
  void expectRefusal(const std::string &folder, const std::string &error) const {
    const ProcessResult result = step("import", folder);
    EXPECT_EQ(result.status, 2) << folder;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "arvl-host: " + error + "\n");
  }
};

TEST_F(StepOnBackup, ReceivesTheSameDataAsInARestore) {
  makeOddTree(at("local/source"));
  dir_.makeDir("target");
  const Arguments variables = {"MINIMAL_DIRS=" + at("local/source"),
                               "MINIMAL_TARGET=" + at("target")};
  ASSERT_EQ(run(storeCommand("backup", {"--plugin", MINIMAL_PLUGIN}), variables).status, 0);
  const fs::path folder = latest("minimal");
  const auto before = treeOf(folder);
  for (const char *name : {"can_import", "import"}) {
    const ProcessResult result = run(
        {ARVL_HOST, "step", name, "--plugin", MINIMAL_PLUGIN, "--backup", folder.string() + "/"},
        variables);
    EXPECT_EQ(result.status, 0) << result.out << result.err;
  }
  EXPECT_EQ(treeOf(at("target/source")), treeOf(at("local/source")));
  EXPECT_EQ(treeOf(folder), before);
}

TEST_F(StepOnBackup, ReceivesTheResultsOfExternalHandlers) {
  const std::string results = R"([{"handler":"mail","handler_type":"server","result":[1]}])";
  const fs::path folder =
      backUpFile({"--external-handler-result", dir_.makeFile("results.json", results)});
  for (const char *name : {"can_import", "import"}) {
    script(name, {{"show external results"}});
    const ProcessResult result = step(name, folder);
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_TRUE(holds(result.out, "\n[stdout] mail server [1]\n"));
  }
}

TEST_F(StepOnBackup, AcceptsARelativePath) {
  backUpFile();
  const std::string id = latest().filename();
  const Arguments words = {
      "/bin/sh", "-ec",         "cd \"$2\"; exec \"$0\" step import --plugin \"$1\" --backup .",
      ARVL_HOST, UNRULY_PLUGIN, latest().string()};
  const ProcessResult result = run(words, variables());
  EXPECT_EQ(result.status, 0) << result.err;
}

TEST_F(StepOnBackup, LeavesTheBackupUnchanged) {
  const fs::path folder = backUpFile();
  const auto before = treeOf(folder);
  script("import", {{"move", "file", at("local/file"), "/another"}, {"create", "/folder"}});
  const ProcessResult result = step("import", folder);
  EXPECT_EQ(result.status, 0);
  for (const char *request : {"UPLOAD_REQUEST", "PACKET_CREATE_DIR_REQUEST"}) {
    EXPECT_TRUE(holds(result.out, std::string("\n[host] ") + request +
                                      " was denied: the store is read-only during a restore\n"));
  }
  EXPECT_EQ(treeOf(folder), before);
  const ProcessResult exported = step("export", folder);
  EXPECT_EQ(exported.status, 2);
  EXPECT_TRUE(
      holds(exported.err,
            "--backup: an export cannot write to a finished backup: use --store instead\n"));
}

TEST_F(StepOnBackup, DoesNotDeliverDamagedFiles) {
  const fs::path folder = backUpFile();
  damage(folder / "data/file", "cont", "CONT");
  script("import", {{"download", "file", "/file", at("local/back")}});
  const ProcessResult result = step("import", folder);
  EXPECT_TRUE(
      holds(result.out, "\n[host] DOWNLOAD_REQUEST was denied: \"/file\" is damaged: its "));
  EXPECT_FALSE(fs::exists(at("local/back")));
}

TEST_F(StepOnBackup, RefusesADamagedManifest) {
  const fs::path folder = backUpFile();
  damage(folder / "manifest.json", "a short return", "a small return");
  expectRefusal(folder, "\"" + (folder / "manifest.json").string() +
                            "\" is not the file that SHA256SUMS has the checksum of: one of the "
                            "two is damaged");
  fs::remove(folder / "manifest.json");
  expectRefusal(folder, "cannot open \"" + (folder / "manifest.json").string() +
                            "\": No such file or directory");
}

TEST_F(StepOnBackup, RefusesADirectoryThatIsNotAFinishedBackup) {
  const fs::path folder = backUpFile();
  for (const fs::path &path : {folder / "data", folder.parent_path(), fs::path(at("store"))}) {
    expectRefusal(path,
                  "\"" + path.string() +
                      "\" is not the directory of a backup: give STORE/APPLICATION/ID as list "
                      "shows them");
  }
  const std::string partial = folder.string() + ".partial";
  fs::rename(folder, partial);
  expectRefusal(partial, "\"" + partial + "\" is a backup that did not finish, or that runs now");
  const ProcessResult missing = step("import", folder);
  EXPECT_EQ(missing.status, 2);
  EXPECT_TRUE(holds(missing.err, "--backup: Directory does not exist: " + folder.string()));
}

TEST_F(StepOnBackup, RefusesAStoreOrAnExportResultInAddition) {
  const fs::path folder = backUpFile();
  for (const Arguments &more : {Arguments{"--store", at("store")},
                                Arguments{"--export-result", dir_.makeFile("result.json")}}) {
    const ProcessResult result = step("import", folder, more);
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(holds(result.err, more[0] + " excludes --backup\n"));
  }
}

}  // namespace
}  // namespace arvl_test
