// "arvl-host verify".

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <string>
#include <vector>

#include "host/support/tree_backup.h"
#include "support/json.h"

namespace fs = std::filesystem;

namespace arvl_test {
namespace {

class VerifyCommand : public TreeBackup {
 protected:
  // Returns the output of verify for the latest backup, without the name of the backup.
  std::string verify(int status) const {
    const ProcessResult result = onStore("verify", {"--name", "unruly"});
    EXPECT_EQ(result.status, status) << result.out;
    std::string text = result.out + result.err;
    const std::string name = "unruly " + latest().filename().string() + ": ";
    for (std::size_t at = 0; (at = text.find(name, at)) != std::string::npos;) {
      text.erase(at, name.size());
    }
    return text;
  }

  // Changes the manifest of a backup together with its checksum, as only its author could.
  static void forge(const fs::path &folder, const std::string &part, const std::string &by) {
    const std::string before = sha256Sum(folder / "manifest.json");
    damage(folder / "manifest.json", part, by);
    damage(folder / "SHA256SUMS", before, sha256Sum(folder / "manifest.json"));
  }
};

TEST_F(VerifyCommand, ReportsASoundBackup) {
  mustBackUp();
  EXPECT_EQ(verify(0), "sound, 2 files, 2 folders, 1 link, 8 B\n");
  EXPECT_EQ(onStore("verify", {"--quiet"}).out, "");
}

struct Damage {
  std::string how;  // in a shell, within the backup
  std::string lines;
};

TEST_F(VerifyCommand, NamesEachDifference) {
  const fs::path folder = mustBackUp();
  const std::string manifest = (folder / "manifest.json").string();
  const std::string lastManifestLine = std::to_string(countOf(bytesOf(manifest), "\n"));
  const std::string sums = (folder / "SHA256SUMS").string();
  const std::string sha256 = sha256Sum(folder / "data/tree/folder/file");
  const std::string damaged = sha256Sum(dir_.makeFile("local/damaged", "Contents"));
  const std::string mismatch = "error: manifest.json: \"" + manifest +
                               "\" is not the file that SHA256SUMS has the checksum of: one of "
                               "the two is damaged\n";
  const std::string name = "data/tree/folder/file";
  const Damage cases[] = {
      {"time=$(stat -c %y " + name + "); printf Contents > " + name + "; touch -d \"$time\" " +
           name,
       "error: " + name + ": damaged: its SHA-256 is " + damaged + ", and was " + sha256 + "\n"},
      {"touch -d @0 " + name, "error: " + name + ": has another time of modification\n"},
      {"chmod 600 " + name, "error: " + name + ": has another mode\n"},
      {"chmod 700 data/tree", "error: data/tree: has another mode\n"},
      {"rm " + name, "error: " + name + ": missing\n"},
      {"rm -r data/tree/folder",
       "error: data/tree/folder: missing\nerror: " + name + ": missing\n"},
      {"mv " + name + " data/tree/new",
       "error: " + name + ": missing\nerror: data/tree/new: is not in the manifest\n"},
      {"touch stray", "error: stray: does not belong to the backup\n"},
      {"ln -sfn folder data/tree/link", "error: data/tree/link: leads elsewhere\n"},
      {"rm data/tree/link; touch data/tree/link",
       "error: data/tree/link: is no longer of type symlink\n"},
      {"rm data/tree/odd*; mkfifo \"$(printf 'data/tree/odd\\nname')\"",
       "error: data/tree/odd\\nname: is no longer of type file\n"},
      {"sed -i s/" + sha256 + "/" + damaged + "/ SHA256SUMS",
       "error: SHA256SUMS: has another checksum of " + name + " than the manifest\n"},
      {"line=$(grep folder/file SHA256SUMS); last=$(tail -n 1 SHA256SUMS); "
       "printf '%s\\n' \"$line\" \"$line\" \"$last\" > SHA256SUMS",
       "error: SHA256SUMS: names this file again, or out of its order: " + name + "\n"},
      {"rm manifest.json; mkfifo manifest.json",
       "error: manifest.json: \"" + manifest + "\" is not a file\n"},
      {"mv data ../../../moved; ln -s ../../../moved data",
       "error: data: is no longer of type dir\n"},
      {"sed -i /folder/d SHA256SUMS", "error: SHA256SUMS: has 1 files, and the manifest 2\n"},
      {"sed -i s/folder/folded/ SHA256SUMS",
       "error: SHA256SUMS: names a file that the manifest does not know: "
       "data/tree/folded/file\n"},
      {"sed -i s/" + sha256 + "/broken/ SHA256SUMS",
       "error: manifest.json: \"" + sums +
           "\", line 2: invalid line: it is not a checksum and a name\n" + "error: SHA256SUMS: \"" +
           sums + "\", line 2: invalid line: it is not a checksum and a name\n"},
      {"sed -i 's/^.\\(.*  manifest\\)/z\\1/;s/^z/0/;s/^0\\(.*  manifest\\)/f\\1/' SHA256SUMS; "
       "sed -i 's/^f\\(.\\)\\(.*  manifest\\)/f0\\2/' SHA256SUMS",
       mismatch},
      {"sed -i /manifest/d SHA256SUMS",
       "error: manifest.json: \"" + sums + "\" has no checksum of manifest.json\n"},
      {"rm SHA256SUMS", "error: manifest.json: cannot open \"" + sums +
                            "\": No such file or directory\nerror: SHA256SUMS: cannot open \"" +
                            sums + "\": No such file or directory\n"},
      {"sed -i s/a.short.text/another/ manifest.json", mismatch},
      {"truncate -s -3 manifest.json", mismatch + "error: manifest.json: \"" + manifest +
                                           "\", line " + lastManifestLine +
                                           ": the manifest ends too early\n"},
      {": > manifest.json", mismatch + "error: manifest.json: \"" + manifest +
                                "\", line 1: this is not the manifest of a backup\n"},
      {"rm manifest.json",
       "error: manifest.json: cannot open \"" + manifest + "\": No such file or directory\n"},
      {"mv data ../../../damaged; ln -s ../../../damaged data; rm -r data/tree",
       "error: data: is no longer of type dir\n"},
      {"mv data/tree/folder ../../../outside; ln -s ../../../../../outside data/tree/folder",
       "error: data/tree/folder: is no longer of type dir\nerror: " + name + ": missing\n"},
      {"mv data/tree/folder data/tree/other; ln -s other data/tree/folder",
       "error: data/tree/folder: is no longer of type dir\nerror: " + name +
           ": missing\nerror: data/tree/other: is not in the manifest\n"
           "error: data/tree/other/file: is not in the manifest\n"},
      {"rm -r data", "error: data: missing\n"},
  };
  fs::rename(folder, at("sound"));
  for (const Damage &row : cases) {
    run({"/bin/cp", "-a", at("sound"), folder.string()});
    const ProcessResult shell = run({"/bin/sh", "-ec", "cd \"$0\"; " + row.how, folder.string()});
    ASSERT_EQ(shell.status, 0) << row.how << shell.err;
    EXPECT_EQ(verify(1), row.lines) << row.how;
    fs::remove_all(folder);
  }
}

TEST_F(VerifyCommand, FollowsNoPathOutOfTheBackup) {
  const fs::path folder = mustBackUp();
  const std::string outside = "/../../../../local/tree/folder/file";
  ASSERT_TRUE(fs::exists(folder.string() + "/data" + outside));
  const std::string problem = ": invalid path \"" + outside + "\": it has a component \"..\"\n";
  forge(folder, "/tree/folder/file", outside);
  EXPECT_TRUE(holds(verify(1), problem));
  const ProcessResult restored = restore();
  EXPECT_EQ(restored.status, 2);
  EXPECT_TRUE(holds(restored.err, problem));

  damage(folder / "SHA256SUMS", "data/tree/folder/file", "data" + outside);
  EXPECT_TRUE(holds(verify(1), "SHA256SUMS\", line 2: invalid path \"data" + outside + "\""));
}

// The checksums match, so only the value itself is wrong.
TEST_F(VerifyCommand, FindsEachManifestValueThatARestoreRefuses) {
  const std::string results = R"([{"handler":"h","handler_type":"t","result":1}])";
  const fs::path folder =
      mustBackUp({"--external-handler-result", dir_.makeFile("results.json", results)});
  const std::string manifest = "\"" + (folder / "manifest.json").string() + "\"";
  const std::string refused = manifest + ": the rule book refuses the export result:\\n  ";
  const struct {
    std::string part;
    std::string by;
    std::string problem;
  } cases[] = {
      {"\"file\",\"size\":8", "\"file\",\"size\":9",
       "data/tree/folder/file: has 8 bytes, and had 9"},
      {"{\"app_data_version\":\"1.0\",", "{\"app_data_version\":\"one\",",
       "manifest.json: " + refused + "invalid app_data_version format [one]"},
      {"{\"app_data_version\":\"1.0\",\"success\":true}", "null", "manifest.json: " + refused},
      {results, "[]", "manifest.json: " + refused},
      {"\"handler\":\"h\"", "\"handler\":1", "manifest.json: " + refused},
      {"\"a short return\"", "{}", "is not convertible to string"},
      {"\"mtime_nsec\":", "\"mtime_nsec\":1000000000", "it is not from 0 to 999999999"},
  };
  script("import", {{"download", "dir", "/tree", at("local/back")}});
  fs::rename(folder, at("sound"));
  for (const auto &row : cases) {
    run({"/bin/cp", "-a", at("sound"), folder.string()});
    forge(folder, row.part, row.by);
    EXPECT_TRUE(holds(verify(1), "error: ")) << row.by;
    EXPECT_TRUE(holds(verify(1), row.problem)) << row.by;
    const ProcessResult restored = restore();
    EXPECT_TRUE(restored.status == 2 || countOf(restored.err, " was denied: ") == 1u) << row.by;
    fs::remove_all(folder);
  }
}

TEST_F(VerifyCommand, ReportsTheProblemsOfEveryBackupInJson) {
  mustBackUp();
  fs::remove(latest() / "data/tree/link");
  const std::string first = latest().filename();
  const std::string second = mustBackUp().filename();
  const ProcessResult result = onStore("verify", {"--json"});
  EXPECT_EQ(result.status, 1);
  const Json::Value actual =
      parseJson(R"({"file_count": 2, "dir_count": 2, "symlink_count": 1, "size": 8})");
  Json::Value expected = parseJson(R"({
      "command": "verify", "success": false, "exit_code": 1, "error": "found 1 problem", "backups": [
          {"application": "unruly", "problem_count": 1,
           "problems": [{"path": "data/tree/link", "problem": "missing"}]},
          {"application": "unruly", "problem_count": 0, "problems": []}]})");
  expected["backups"][0]["backup"] = first;
  expected["backups"][1]["backup"] = second;
  expected["backups"][0]["actual"] = expected["backups"][1]["actual"] = actual;
  EXPECT_EQ(parseJson(result.out), expected);
  EXPECT_EQ(result.err, "error: unruly " + first + ": data/tree/link: missing\nunruly " + second +
                            ": sound, 2 files, 2 folders, 1 link, 8 B\n");

  EXPECT_EQ(onStore("verify", {"--name", "unruly", "--backup", second}).status, 0);
  const ProcessResult none = onStore("verify", {"--name", "unruly", "--backup", "none"});
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.err, "error: there is no backup none of unruly; there are " + first + ", " +
                          second + ": nothing was verified\n");
  EXPECT_EQ(onStore("verify", {"--backup", second}).status, 2);  // the application is missing
}

TEST_F(VerifyCommand, SkipsTheBackupOfANewerHostAndChecksTheOthers) {
  const fs::path folder = mustBackUp();
  const std::string sound = mustBackUp().filename();
  damage(folder / "manifest.json", "\"version\":1", "\"version\":2");
  const std::string error = "\"" + (folder / "manifest.json").string() +
                            "\" is of version 2, this arvl-host reads up to version 1: use the "
                            "newer one";
  const ProcessResult result = onStore("verify");
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(lastLine(result.err), "error: " + error);
  EXPECT_TRUE(holds(result.out, "unruly " + sound + ": sound, "));
  const Json::Value report = parseJson(onStore("verify", {"--json"}).out);
  EXPECT_EQ(report["error"], error);
  EXPECT_EQ(report["backups"].size(), 1u);
}

TEST_F(VerifyCommand, StopsWhenInterrupted) {
  const fs::path folder = mustBackUp();
  fs::resize_file(folder / "data/tree/folder/file", std::uintmax_t(1) << 38);  // slow to read
  Arguments words = {"/bin/sh", "-c", "exec \"$0\" \"$@\" 2>&1"};
  for (const std::string &word : storeCommand("verify")) {
    words.push_back(word);
  }
  Command verify(words);
  ASSERT_TRUE(verify.waitFor("folder/file: has another time of modification\n"));
  verify.signal(SIGINT);
  const ProcessResult result = verify.finish();
  EXPECT_EQ(result.status, 130);
  EXPECT_EQ(lastLine(result.out), "error: interrupted");
}

}  // namespace
}  // namespace arvl_test
