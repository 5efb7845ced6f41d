// "arvl-host backup" and "arvl-host restore", end to end.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>

#include "host/support/job_support.h"
#include "support/json.h"
#include "support/small_file_system.h"

namespace fs = std::filesystem;

namespace arvl_test {
namespace {

using Names = std::set<std::string>;
using Arguments = std::vector<std::string>;

class Job : public JobFolder {
 protected:
  // Creates a plug-in that has only these steps.
  std::string pluginOf(const Names &steps) const {
    const std::string folder = dir_.makeDir("plugin");
    for (const std::string &step : steps) {
      fs::create_symlink(fs::canonical(UNRULY_PLUGIN "/" + step), folder + "/" + step);
    }
    return folder;
  }

  // Backs up a single file with this content and returns the directory of the backup.
  fs::path backUpFile(const std::string &content) const {
    const std::string file = dir_.makeFile("local/file", content);
    script("export", {{"upload", "file", file, "/file"}});
    return mustBackUp();
  }

  void expectNothingLeft() const { EXPECT_EQ(backups(), Names{}); }
};

// ---- A restore returns what was backed up.

class MinimalJob : public JobFolder {
 protected:
  MinimalJob() {
    makeOddTree(at("local/source"));
    dir_.makeDir("target");
  }

  ProcessResult runMinimal(const std::string &command, const Arguments &more = {}) const {
    Arguments words = storeCommand(command, {"--plugin", MINIMAL_PLUGIN});
    words.insert(words.end(), more.begin(), more.end());
    return run(words, {"MINIMAL_DIRS=" + at("local/source"), "MINIMAL_TARGET=" + at("target")});
  }
};

TEST_F(MinimalJob, RestoresEveryByteNameModeAndTime) {
  const auto before = treeOf(at("local/source"));
  ASSERT_EQ(before.size(), 16u);
  const ProcessResult backup = runMinimal("backup");
  ASSERT_EQ(backup.status, 0) << backup.out;
  EXPECT_EQ(treeOf(latest("minimal") / "data/documents/source"), before);
  fs::remove_all(at("local/source"));
  const ProcessResult restore = runMinimal("restore", {"--list-page", "1"});
  ASSERT_EQ(restore.status, 0) << restore.out;
  EXPECT_EQ(treeOf(at("target/source")), before);
  EXPECT_EQ(onStore("verify").status, 0);
}

TEST_F(MinimalJob, WritesChecksumsThatSha256sumAccepts) {
  ASSERT_EQ(runMinimal("backup").status, 0);
  const std::string check = "cd \"$0\" && exec sha256sum -c --strict SHA256SUMS";
  const ProcessResult sound =
      run({"/bin/sh", "-c", check, latest("minimal").string()}, {"LC_ALL=C"});
  EXPECT_EQ(sound.status, 0) << sound.out << sound.err;
  EXPECT_EQ(countOf(sound.out, ": OK\n"), 12u) << sound.out;  // eleven files and the manifest
  EXPECT_EQ(sound.err, "");

  damage(latest("minimal") / "data/documents/source/back\\slash\nand line feed", "both", "bath");
  EXPECT_EQ(run({"/bin/sh", "-c", check, latest("minimal").string()}).status, 1);
}

TEST_F(MinimalJob, ReportsEachStepAndWhatWasBackedUp) {
  const ProcessResult backup = runMinimal("backup", {"--language", "ger"});
  const std::string id = latest("minimal").filename();
  EXPECT_EQ(backup.out.substr(0, 31), "backup of minimal\nstep summary\n");
  EXPECT_TRUE(holds(backup.out, "\nDokumente\nAlle Dokumente mit ihren Ordnern.\n"));
  EXPECT_TRUE(holds(backup.out, "\n[progress] 100 % Exporting documents\n"));
  EXPECT_TRUE(holds(backup.out, "\nbacked up minimal as " + id + "\n  path      " +
                                    latest("minimal").string() +
                                    "\n  data      version 1.0\n  estimate  13 files, 3.0 MiB\n"
                                    "  came      11 files, 5 folders, 2 links, 3.0 MiB\n  time "));
  EXPECT_EQ(backup.err, "");
  const ProcessResult restore = runMinimal("restore");
  EXPECT_TRUE(holds(restore.out, "restore of minimal\nfrom backup " + id +
                                     ", data version 1.0\nDokumente\nDie Dokumente kommen "));
  EXPECT_TRUE(holds(restore.out,
                    "\nrestored minimal from " + id + "\n  served    11 files, 3.0 MiB\n  time "));
}

TEST_F(MinimalJob, RestoresTheNamedBackup) {
  writeBytes(at("local/source/plain"), "the first");
  ASSERT_EQ(runMinimal("backup").status, 0);
  const std::string first = latest("minimal").filename();
  writeBytes(at("local/source/plain"), "the second");
  ASSERT_EQ(runMinimal("backup").status, 0);
  const std::string second = latest("minimal").filename();
  ASSERT_NE(first, second);
  ASSERT_EQ(runMinimal("restore", {"--backup", first}).status, 0);
  EXPECT_EQ(bytesOf(at("target/source/plain")), "the first");
  ASSERT_EQ(runMinimal("restore").status, 0);
  EXPECT_EQ(bytesOf(at("target/source/plain")), "the second");

  const ProcessResult unknown = runMinimal("restore", {"--backup", "yesterday"});
  EXPECT_EQ(unknown.status, 2);
  EXPECT_EQ(lastLine(unknown.err),
            "error: there is no backup yesterday of minimal; there are " + first + ", " + second);
  EXPECT_EQ(
      lastLine(runMinimal("restore", {"--name", "other"}).err),
      "error: the store \"" + at("store") + "\" has no backup of other; it has backups of minimal");
}

// ---- The manifest.

Json::Value recordOf(const fs::path &data, const std::string &path, const std::string &type) {
  struct stat status;
  EXPECT_EQ(lstat((data.string() + path).c_str(), &status), 0);
  char mode[16];
  snprintf(mode, sizeof mode, "%04o", status.st_mode & 07777);
  Json::Value record;
  record["path"] = path;
  record["type"] = type;
  record["size"] = Json::Int64(type == "dir" ? 0 : status.st_size);
  record["mode"] = mode;
  record["mtime"] = Json::Int64(status.st_mtim.tv_sec);
  record["mtime_nsec"] = Json::Int64(status.st_mtim.tv_nsec);
  return record;
}

TEST_F(Job, WritesACompleteManifest) {
  const std::string results =
      R"([{"handler":"mail","handler_type":"server","result":{"boxes":[1,2]}}])";
  dir_.makeFile("local/a file", "contents");
  fs::create_symlink("a file", at("local/link"));
  script("export", {{"create", "/folder"},
                    {"upload", "file", at("local/a file"), "/folder/a file"},
                    {"upload", "symlink", at("local/link"), "/link"}});
  const fs::path folder = mustBackUp(
      {"--external-handler-result", dir_.makeFile("results.json", results), "--name", "unruly"});
  const Json::Value manifest = parseJson(bytesOf(folder / "manifest.json"));
  Json::Value expected = parseJson(R"({
      "format": "arvl-backup", "version": 1, "application": "unruly", "framework_version": "2.3",
      "app_data_version": "1.0", "estimate_refused": false,
      "summary": {"success": true, "backup_short": "a short text", "backup_long": "a long text",
                  "restore_short": "a short return", "restore_long": "a long return"},
      "estimate": {"success": true, "file_count": 0, "dir_count": 0, "size": 0, "block_size": 0},
      "actual": {"file_count": 1, "dir_count": 1, "symlink_count": 1, "size": 8},
      "export_result": {"success": true, "app_data_version": "1.0"}})");
  expected["backup"] = folder.filename().string();
  expected["external_handler_result"] = parseJson(results);
  expected["denials"] = Json::Value(Json::arrayValue);
  expected["denial_count"] = 0;
  expected["changed"] = Json::Value(Json::arrayValue);
  expected["changed_count"] = 0;
  expected["skipped"] = Json::Value(Json::arrayValue);
  expected["skipped_count"] = 0;
  expected["tool"] = replaced(run({ARVL_HOST, "--version"}).out, "\n", "");
  expected["started"] = manifest["started"];
  expected["finished"] = manifest["finished"];
  Json::Value &files = expected["files"] = Json::Value(Json::arrayValue);
  files.append(recordOf(folder / "data", "/folder", "dir"));
  files.append(recordOf(folder / "data", "/link", "symlink"));
  files[1]["target"] = "a file";
  files[1]["sha256"] = sha256Sum(dir_.makeFile("local/target", "a file"));
  files.append(recordOf(folder / "data", "/folder/a file", "file"));
  files[2]["sha256"] = sha256Sum(at("local/a file"));
  EXPECT_EQ(manifest, expected);
  for (const char *time : {"started", "finished"}) {
    EXPECT_TRUE(std::regex_match(manifest[time].asString(),
                                 std::regex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}Z")));
  }

  script("import", {{"show external results"}});
  const ProcessResult restore = this->restore();
  EXPECT_EQ(restore.status, 0);
  EXPECT_TRUE(holds(restore.out, "\n[stdout] mail server {\"boxes\":[1,2]}\n"));
}

TEST_F(Job, ServesNoExternalResultIfNoneWasGiven) {
  mustBackUp();
  script("import", {{"show external results"}});
  const ProcessResult result = restore();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(countOf(result.out, "[stdout]"), 0u) << result.out;
}

TEST_F(Job, RefusesAnExternalResultThatBreaksTheRules) {
  const std::string file = dir_.makeFile("results.json", R"([{"handler":1}])");
  const ProcessResult result = backup({"--external-handler-result", file});
  EXPECT_EQ(result.status, 2);
  EXPECT_TRUE(holds(result.err, file + ": the rule book refuses the export result:\n"));
  EXPECT_EQ(namesIn(at("store")), Names{});
}

// ---- Steps that are missing or fail.

TEST_F(Job, FailsWithoutAnExportOrImportExecutable) {
  const std::string plugin = pluginOf({"summary", "can_export", "can_import"});
  for (const auto &[command, step] :
       {std::pair("backup", "export"), std::pair("restore", "import")}) {
    const ProcessResult result = run(storeCommand(command, {"--plugin", plugin}), variables());
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, std::string(command) + " of plugin\n");
    EXPECT_EQ(result.err, "error: the plug-in in " + plugin + " has no executable \"" + step +
                              "\": there is no " + command + " without it\n");
  }
  EXPECT_EQ(namesIn(at("store")), Names{});
}

// A copy of the plug-in may have lost the file modes: to skip its steps would hide that.
TEST_F(Job, ReportsANonExecutableStepAsAnError) {
  const std::string plugin = pluginOf({"export", "import"});
  for (const auto &[command, step] :
       {std::pair("backup", "can_export"), std::pair("restore", "can_import")}) {
    ASSERT_EQ(backup().status, 0);
    const std::string path = plugin + "/" + step;
    const auto expectRefusal = [&, command = command](const std::string &name) {
      const ProcessResult result =
          run(storeCommand(command, {"--plugin", plugin, "--name", "unruly"}), variables());
      EXPECT_EQ(result.status, 2);
      EXPECT_EQ(result.err, "error: " + path + " is not an executable file\n") << name;
    };
    std::ofstream(path) << "#!/bin/sh\n";
    expectRefusal("a file without its mode");
    fs::remove(path);
    fs::create_directory(path);
    expectRefusal("a folder");
    fs::remove(path);
    fs::create_symlink("nowhere", path);
    expectRefusal("a link to nothing");
    fs::remove(path);
  }
}

TEST_F(Job, SkipsTheStepsThatThePluginDoesNotHave) {
  const std::string plugin = pluginOf({"export", "import"});
  const ProcessResult backup = run(storeCommand("backup", {"--plugin", plugin}), variables());
  EXPECT_EQ(backup.status, 0);
  for (const char *step : {"summary", "estimate_exportion", "can_export"}) {
    EXPECT_TRUE(holds(backup.out, std::string("\nthe plug-in has no executable \"") + step +
                                      "\": the step is left out\n"));
  }
  EXPECT_TRUE(holds(backup.out, "\n  estimate  none\n"));
  const Json::Value manifest = parseJson(bytesOf(latest("plugin") / "manifest.json"));
  EXPECT_TRUE(manifest["summary"].isNull());
  EXPECT_TRUE(manifest["estimate"].isNull());

  const ProcessResult restore =
      run(storeCommand("restore", {"--plugin", plugin, "--json"}), variables());
  EXPECT_EQ(restore.status, 0);
  EXPECT_EQ(parseJson(restore.out)["missing_steps"], parseJson(R"(["can_import"])"));
}

TEST_F(Job, ContinuesAfterAnEstimateBeyond32Bits) {
  script("estimate_exportion", {{"be", "an estimate of 3 GB"}});
  const ProcessResult result = backup();
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(holds(result.err,
                    "warning: the estimate is refused: its size of 3000000000 does not fit the "
                    "32 bits that the protocol has for it; the backup goes on\n"));
  EXPECT_TRUE(holds(result.out,
                    "\n  estimate  1 file, 2.8 GiB (refused: beyond the protocol's 32 bits)\n"
                    "  came      0 files, 0 B\n"));
  const Json::Value manifest = parseJson(bytesOf(latest() / "manifest.json"));
  EXPECT_EQ(manifest["estimate_refused"], true);
  EXPECT_EQ(manifest["estimate"]["size"].asInt64(), 3000000000);
}

TEST_F(Job, FailsIfTheExportResultIsTooLargeForAnImportPacket) {
  script("export", {{"be", "exports a result for no packet"}});
  const ProcessResult result = backup();
  EXPECT_EQ(result.status, 2);
  EXPECT_TRUE(holds(result.err,
                    "error: the completion of export cannot be handed to an import: this makes an "
                    "answer of 33554491 bytes, more than a packet carries\n"));
  EXPECT_EQ(backups(), std::set<std::string>{});
}

// Returns the largest peak memory of a child so far, in KiB.
long peakMemoryOfChildren() {
  rusage usage = {};
  getrusage(RUSAGE_CHILDREN, &usage);
  return usage.ru_maxrss;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kHasSanitizer = true;
#else
constexpr bool kHasSanitizer = false;
#endif

TEST_F(Job, UsesBoundedMemoryForTheLargestManifest) {
  if (kHasSanitizer) {
    GTEST_SKIP() << "a sanitizer takes memory of its own";
  }
  script("summary", {{"be", "a summary that JSON makes longer"}});
  EXPECT_EQ(backup().status, 0);
  EXPECT_GT(fs::file_size(latest() / "manifest.json"), 200000000u);
  for (const char *command : {"backup", "restore"}) {
    Arguments toFile = {"/bin/sh", "-c", R"(out=$1; shift; exec "$@" >"$out")", "sh", at("report")};
    const Arguments words = job(command, {"--json"});
    toFile.insert(toFile.end(), words.begin(), words.end());
    EXPECT_EQ(run(toFile, variables()).status, 0);
    EXPECT_GT(fs::file_size(at("report")), 200000000u);
  }
  EXPECT_EQ(onStore("list").status, 0);
  EXPECT_EQ(onStore("verify").status, 0);
  EXPECT_LT(peakMemoryOfChildren(), 512 * 1024);
}

struct Failure {
  std::string step;
  Arguments line;
  int status;
  std::string error;
  Arguments more = {};
};

TEST_F(Job, StopsAtAFailedStepAndLeavesNothing) {
  const Failure cases[] = {
      {"summary", {"be", "no JSON"}, 3, "the step summary ended with protocol violation"},
      {"estimate_exportion",
       {"fail", "sizes", "unknown"},
       1,
       "the step estimate_exportion ended with failure, section \"sizes\", key \"unknown\""},
      {"estimate_exportion",
       {"be", "exits with 3"},
       5,
       "the step estimate_exportion ended with no completion: the plug-in ended with status 3 and "
       "without a completion"},
      {"can_export",
       {"fail", "a section", "a \x1b key"},
       1,
       "the step can_export ended with failure, section \"a section\", key \"a \\x1b key\""},
      {"export",
       {"be", "garbage"},
       3,
       "the step export ended with protocol violation: the plug-in sent bytes that are no packet: "
       "the check code is wrong"},
      {"export",
       {"be", "hangs"},
       4,
       "the step export ended with time-out",
       {"--timeout", "2", "--grace", "0.1"}},
      {"export",
       {"be", "closes and lives on"},
       5,
       "the step export ended with no completion: the plug-in closed its connection before its "
       "completion and did not end",
       {"--grace", "0.1"}},
      {"export",
       {"be", "crashes"},
       5,
       "the step export ended with no completion: the plug-in crashed: SIGSEGV"},
  };
  for (const Failure &row : cases) {
    script(row.step, {row.line});
    const ProcessResult result = backup(row.more);
    EXPECT_EQ(result.status, row.status) << row.error;
    EXPECT_EQ(lastLine(result.err).substr(0, row.error.size() + 7), "error: " + row.error);
    expectNothingLeft();
    fs::remove(at("script/" + row.step));
  }
}

TEST_F(Job, StopsARestoreAtAFailedStep) {
  mustBackUp();
  script("can_import", {{"fail", "versions", "unknown"}});
  const ProcessResult result = restore();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(lastLine(result.err),
            "error: the step can_import ended with failure, section \"versions\", key \"unknown\"");
  EXPECT_EQ(countOf(result.out, "step import"), 0u);  // the import step does not run
}

TEST_F(Job, ShowsRuleBookWarnings) {
  script("export", {{"be", "an unknown type"}});
  const ProcessResult result = backup();
  EXPECT_EQ(result.status, 3);
  EXPECT_TRUE(holds(result.err, "warning: rule book: invalid packet type 99\n"));
}

TEST_F(Job, LeavesNothingWhenInterrupted) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    script("export", {{"be", "waits for a cancel"}});
    Command command(job("backup"), variables());
    ASSERT_TRUE(command.waitFor("[stdout] waiting\n"));
    command.signal(number);
    const ProcessResult result = command.finish();
    EXPECT_EQ(result.status, 130);
    EXPECT_TRUE(holds(result.out, "\ncanceling the plug-in; another Ctrl-C kills it\n"));
    EXPECT_TRUE(holds(result.out, "\n[stdout] canceled\n"));
    EXPECT_TRUE(holds(lastLine(result.err), "error: interrupted in the step export"));
    expectNothingLeft();
  }
}

TEST_F(Job, KillsThePluginOnTheSecondCtrlC) {
  script("export", {{"be", "hangs and ignores TERM"}});
  Command command(job("backup", {"--grace", "1000"}), variables());
  ASSERT_TRUE(command.waitFor("[stdout] hanging\n"));
  command.signal(SIGINT);
  ASSERT_TRUE(command.waitFor("canceling the plug-in; another Ctrl-C kills it\n"));
  command.signal(SIGINT);
  EXPECT_EQ(command.finish().status, 130);
  expectNothingLeft();
}

TEST_F(Job, CanBeInterruptedWhileItReadsAMovedFile) {
  dir_.makeFile("local/endless");
  fs::resize_file(at("local/endless"), std::uintmax_t(1) << 38);  // a sparse file, slow to read
  script("export", {{"move", "file", at("local/endless"), "/endless"}});
  Command command(job("backup"), variables());
  ASSERT_TRUE(command.waitFor("\nstep export: success"));
  command.signal(SIGINT);
  const ProcessResult result = command.finish();
  EXPECT_EQ(result.status, 130);
  EXPECT_EQ(lastLine(result.err), "error: interrupted");
  expectNothingLeft();
}

// ---- Transfers.

TEST_F(Job, BacksUpAWholeTreeCopiedOrMoved) {
  makeOddTree(at("local/copied"));
  makeOddTree(at("local/moved"));
  const auto copied = treeOf(at("local/copied"));
  const auto moved = treeOf(at("local/moved"));
  script("export", {{"upload", "dir", at("local/copied"), "/copied"},
                    {"move", "dir", at("local/moved"), "/moved"}});
  const fs::path folder = mustBackUp();
  EXPECT_EQ(treeOf(folder / "data/copied"), copied);
  EXPECT_EQ(treeOf(folder / "data/moved"), moved);
  EXPECT_EQ(namesIn(at("local")), Names{"copied"});
  EXPECT_EQ(onStore("verify").status, 0);

  script("import", {{"download", "dir", "/moved", at("local/back")}});
  EXPECT_EQ(restore().status, 0);
  EXPECT_EQ(treeOf(at("local/back")), moved);
}

TEST_F(Job, KeepsTheLastOfTwoUploadsToOnePath) {
  const std::string first = dir_.makeFile("local/first", "the first");
  const std::string second = dir_.makeFile("local/second", "the second one");
  const std::string third = dir_.makeFile("local/third", "the third");
  script("export", {{"upload", "file", first, "/copied twice"},
                    {"upload", "file", second, "/copied twice"},
                    {"upload", "file", second, "/then moved"},
                    {"move", "file", third, "/then moved"}});
  const fs::path folder = mustBackUp();
  EXPECT_EQ(bytesOf(folder / "data/copied twice"), "the second one");
  EXPECT_EQ(bytesOf(folder / "data/then moved"), "the third");
  const ProcessResult verified = onStore("verify");
  EXPECT_EQ(verified.status, 0) << verified.out;
  EXPECT_EQ(parseJson(bytesOf(folder / "manifest.json"))["actual"]["size"], 14 + 9);
}

TEST_F(Job, CopiesInsteadOfMovingAFileThatIsOpenForWriting) {
  const std::string file = dir_.makeFile("local/file", "contents");
  const std::string fifo = makeFifo();
  script("export", {{"move", "file", file, "/file"}, {"wait", fifo}});
  std::ofstream writer(file, std::ios::app);
  Command command(job("backup"), variables());
  ASSERT_TRUE(command.waitFor("[stdout] waiting\n"));
  writer << " and more" << std::flush;
  release(fifo);
  const ProcessResult result = command.finish();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(bytesOf(latest() / "data/file"), "contents");
  EXPECT_EQ(onStore("verify").status, 0);
  if (result.err.empty()) {
    GTEST_SKIP() << "the file system has no leases";
  }
  EXPECT_EQ(result.err,
            "warning: \"" + file +
                "\" was open for writing when it was to be moved: it was copied, and the "
                "copy may not hold all that is written\n");
  EXPECT_EQ(parseJson(bytesOf(latest() / "manifest.json"))["changed"][0], file);
}

// A lease permits descriptors for reading. Through one, the moved file can be opened for writing.
TEST_F(Job, FailsIfAMovedFileIsWrittenLater) {
  const std::string file = dir_.makeFile("local/file", "contents");
  const std::string fifo = makeFifo();
  script("export", {{"move", "file", file, "/file"}, {"wait", fifo}});
  const int reader = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  Command command(job("backup"), variables());
  ASSERT_TRUE(command.waitFor("[stdout] waiting\n"));
  struct stat status;
  ASSERT_EQ(fstat(reader, &status), 0);
  const bool isMoved = status.st_nlink == 1;
  std::ofstream("/proc/self/fd/" + std::to_string(reader), std::ios::app) << " and more";
  close(reader);
  release(fifo);
  const ProcessResult result = command.finish();
  if (!isMoved) {
    GTEST_SKIP() << "the file system has no leases";
  }
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err,
            "error: \"/file\" was changed after it was moved into the backup: no process may use a "
            "temporary file once it is uploaded\n");
  expectNothingLeft();
}

TEST_F(Job, WritesNothingOutsideTheBackup) {
  const std::string file = dir_.makeFile("local/file", "contents");
  script("export",
         {{"upload", "file", file, "/../../../outside"}, {"upload", "file", file, "/folder/.."}});
  const ProcessResult result = backup();
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(holds(result.err,
                    "warning: UPLOAD_REQUEST was denied: \"/folder/..\" does not end in a "
                    "name\n"));
  EXPECT_EQ(namesIn(latest() / "data"), Names{"outside"});
  EXPECT_EQ(namesIn(at("store")), Names{"unruly"});
  EXPECT_EQ(backups().size(), 1u);
}

TEST_F(Job, ContinuesAfterAHangUpUnderNohup) {
  const std::string fifo = makeFifo();
  script("export", {{"wait", fifo}});
  Arguments words = {"/usr/bin/nohup"};
  const Arguments command = job("backup");
  words.insert(words.end(), command.begin(), command.end());
  Command running(words, variables());
  ASSERT_TRUE(running.waitFor("[stdout] waiting\n"));
  running.signal(SIGHUP);
  release(fifo);
  EXPECT_EQ(running.finish().status, 0);
}

TEST_F(Job, IsReadableByTheOwnerOnly) {
  const fs::path folder = backUpFile("contents");
  for (const fs::path &path : {folder, folder / "manifest.json", folder / "SHA256SUMS"}) {
    EXPECT_EQ(fs::status(path).permissions() & (fs::perms::group_all | fs::perms::others_all),
              fs::perms::none)
        << path;
  }
}

TEST_F(Job, ReportsDenialsAfterASuccess) {
  const std::string file = dir_.makeFile("local/file", "contents");
  script("export", {{"upload", "file", file, "/a"}, {"upload", "file", at("local/none"), "/b"}});
  const ProcessResult result = backup();
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(holds(result.out, "\n  denied    1 request of the plug-in, as the warnings say\n"));
  const std::string denial = "UPLOAD_REQUEST was denied: cannot find \"" + at("local/none") +
                             "\": No such file or directory";
  EXPECT_EQ(result.err, "warning: " + denial + "\n");
  const Json::Value manifest = parseJson(bytesOf(latest() / "manifest.json"));
  ASSERT_EQ(manifest["denials"].size(), 1u);
  EXPECT_EQ(manifest["denials"][0], denial);
}

TEST_F(Job, KeepsNoDirectoryOfADeniedRequest) {
  std::string tooLong;
  while (tooLong.size() < PATH_MAX) {
    tooLong += "/" + std::string(250, 'n');
  }
  script("export", {{"create", tooLong}, {"create", "/a/" + std::string(256, 'n') + "/b"}});
  const ProcessResult result = backup();
  EXPECT_EQ(result.status, 0) << lastLine(result.err);
  EXPECT_TRUE(holds(result.out, "\n  denied    2 requests of the plug-in, as the warnings say\n"));
  EXPECT_EQ(namesIn(latest() / "data"), Names{});
  EXPECT_EQ(onStore("verify").status, 0);
}

TEST_F(Job, IsConsistentAfterAnUploadIsDeniedForALongPath) {
  const std::string data = at("store") + "/unruly/20261121T092532.123Z.partial/data";
  std::string deep;
  while (data.size() + deep.size() < PATH_MAX - 1 - 202) {
    deep += "/" + std::string(100, 'n');
  }
  const std::string tree = dir_.makeDir("local/tree");
  writeBytes(tree + "/" + std::string(250, 'f'), "x");
  script("export", {{"create", deep}, {"upload", "dir", tree, deep}});
  const ProcessResult result = backup();
  EXPECT_EQ(result.status, 0) << lastLine(result.err);
  EXPECT_TRUE(holds(result.err, "with the path of the store it would be longer than 4095 bytes\n"));
  EXPECT_EQ(onStore("verify").status, 0);
}

TEST_F(Job, IsConsistentAfterADeniedMove) {
  const std::string own = dir_.makeDir("local/own");
  writeBytes(own + "/own", "");
  const std::string tree = dir_.makeDir("local/tree");
  writeBytes(tree + "/file", "contents");
  ASSERT_EQ(mkfifo((tree + "/fifo").c_str(), 0600), 0);
  script("export", {{"upload", "dir", own, "/tree"}, {"move", "dir", tree, "/tree"}});
  const ProcessResult result = backup();
  EXPECT_EQ(result.status, 0) << lastLine(result.err);
  EXPECT_EQ(namesIn(latest() / "data/tree"), Names{"own"});
  EXPECT_EQ(namesIn(tree), (Names{"fifo", "file"}));
  EXPECT_EQ(onStore("verify").status, 0);
}

TEST_F(Job, CountsEveryDenialAndSaysWhenItStopsShowingThem) {
  std::string uploads;
  for (int i = 0; i < 150; ++i) {  // the first request is sent twice
    uploads += "upload\tfile\t" + at("local/none") + std::to_string(i % 149) + "\t/x\n";
  }
  writeBytes(at("script/export"), uploads);
  const ProcessResult result = backup();
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(
      holds(result.out, "\n  denied    150 requests of the plug-in, as the warnings say\n"));
  EXPECT_EQ(countOf(result.err, "warning: UPLOAD_REQUEST was denied: "), 100u);
  EXPECT_EQ(countOf(result.err,
                    "warning: 100 different denials have been shown; further ones are counted, not "
                    "shown\n"),
            1u);
  const Json::Value manifest = parseJson(bytesOf(latest() / "manifest.json"));
  EXPECT_EQ(manifest["denials"].size(), 100u);
  EXPECT_EQ(manifest["denial_count"], 150);
  const Json::Value report = parseJson(backup({"--json"}).out);
  EXPECT_EQ(report["denials"].size(), 100u);
  EXPECT_EQ(report["denial_count"], 150);
}

TEST_F(Job, SkipsAndNamesAFileThatVanishesFromADirectory) {
  const std::string tree = dir_.makeDir("local/tree");
  const std::string vanishing = tree + "/vanishing";
  const std::string skipped =
      "\"" + vanishing + "\" vanished before it was copied, and is skipped\n";
  Arguments variables = this->variables();
  variables.insert(variables.end(),
                   {"LD_PRELOAD=" VANISHING_PRELOAD, "ASAN_OPTIONS=verify_asan_link_order=0"});
  writeBytes(tree + "/stays", "contents");
  script("export", {{"upload", "dir", tree, "/tree"}});

  writeBytes(vanishing, "");
  const ProcessResult result = run(job("backup"), variables);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "warning: " + skipped);
  EXPECT_TRUE(holds(result.out, "\n  skipped   1 entry that vanished, as the warnings say\n"));
  EXPECT_EQ(countOf(result.out, "denied"), 0u) << result.out;
  EXPECT_EQ(namesIn(latest() / "data/tree"), Names{"stays"});
  const Json::Value manifest = parseJson(bytesOf(latest() / "manifest.json"));
  ASSERT_EQ(manifest["skipped"].size(), 1u);
  EXPECT_EQ(manifest["skipped"][0], vanishing);
  EXPECT_EQ(manifest["skipped_count"], 1);
  EXPECT_EQ(onStore("verify").status, 0);

  writeBytes(vanishing, "");
  const Json::Value report = parseJson(run(job("backup", {"--json"}), variables).out);
  EXPECT_EQ(report["skipped"], manifest["skipped"]);
  EXPECT_EQ(report["skipped_count"], 1);

  writeBytes(vanishing, "");
  const ProcessResult step = run(
      {ARVL_HOST, "step", "export", "--plugin", UNRULY_PLUGIN, "--store", dir_.makeDir("empty")},
      variables);
  EXPECT_EQ(step.status, 0);
  EXPECT_TRUE(holds(step.out, "\n[host] " + skipped));
}

TEST_F(Job, AcceptsUnknownMembersInARequest) {
  backUpFile("contents");
  script("import", {{"be", "asks with more than is read"}});
  const ProcessResult result = restore();
  EXPECT_TRUE(holds(result.out, "\nstep import: ")) << result.err;
  EXPECT_EQ(countOf(result.err, "error: in Json"), 0u) << result.err;
}

TEST_F(Job, RestoresATreeDeeperThanTheDescriptorLimit) {
  const fs::path top = at("local/tree");
  fs::path folder = top;
  for (int level = 0; level < 400; ++level) {
    folder /= "d";
  }
  fs::create_directories(folder);
  writeBytes(folder / "file", "contents");
  script("export", {{"upload", "dir", top.string(), "/tree"}});
  script("import", {{"download", "dir", "/tree", at("back")}});
  Arguments words = {"/bin/sh", "-c", "ulimit -Sn 256; exec \"$0\" \"$@\""};
  const Arguments command = job("backup");
  words.insert(words.end(), command.begin(), command.end());
  const ProcessResult result = run(words, variables());
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(restore().status, 0);
  EXPECT_EQ(treeOf(at("back")), treeOf(top));
}

TEST_F(Job, RestoresModesAndTimesFromTheManifest) {
  const fs::path folder = backUpFile("contents");
  const auto before = treeOf(folder / "data");
  fs::permissions(folder / "data/file", fs::perms::all);
  fs::last_write_time(folder / "data/file", fs::file_time_type::clock::now());
  ASSERT_NE(treeOf(folder / "data"), before);
  script("import", {{"download", "file", "/file", at("back")}});
  fs::create_directory(at("back"));
  EXPECT_EQ(restore().status, 0);
  EXPECT_EQ(treeOf(at("back")), before);
}

TEST_F(Job, IsNotRestoredFromTheDirectoryOfAnotherApplication) {
  const fs::path folder = backUpFile("contents");
  fs::create_directories(at("store/other"));
  run({"/bin/cp", "-a", folder.string(), at("store/other")});
  const std::string id = folder.filename();
  const std::string other = at("store/other/") + id;
  const std::string error =
      "\"" + other + "/manifest.json\" is that of unruly " + id + ", not of other " + id;
  const ProcessResult restored = restore({"--name", "other"});
  EXPECT_EQ(restored.status, 2);
  EXPECT_EQ(restored.err, "error: " + error + "\n");
  const ProcessResult verified = onStore("verify", {"--name", "other"});
  EXPECT_EQ(verified.status, 1);
  EXPECT_EQ(verified.err, "error: other " + id + ": manifest.json: " + error + "\n");
}

TEST_F(Job, DoesNotChangeTheBackupDuringARestore) {
  const fs::path folder = backUpFile("contents");
  const auto before = treeOf(folder);
  script("import", {{"upload", "file", at("local/file"), "/another"},
                    {"move", "file", at("local/file"), "/file"},
                    {"create", "/folder"}});
  const ProcessResult result = restore();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(countOf(result.out, "[stdout] upload: refused\n"), 1u);
  EXPECT_EQ(countOf(result.out, "[stdout] move: refused\n"), 1u);
  EXPECT_EQ(countOf(result.out, "[stdout] create: refused\n"), 1u);
  for (const char *request : {"UPLOAD_REQUEST", "PACKET_CREATE_DIR_REQUEST"}) {
    EXPECT_EQ(countOf(result.err, std::string("warning: ") + request +
                                      " was denied: the store is read-only during a restore\n"),
              1u);
  }
  EXPECT_EQ(treeOf(folder), before);
  EXPECT_EQ(bytesOf(at("local/file")), "contents");
}

TEST_F(Job, DeniesAListingWithATooLargeFileAndNamesTheFile) {
  dir_.makeFile("local/big");
  fs::resize_file(at("local/big"), std::uintmax_t(1) << 31);
  script("export", {{"create", "/folder"},
                    {"move", "file", at("local/big"), "/folder/big"},
                    {"list", "/folder"},
                    {"list", "/folder"},
                    {"fail", "listings", "refused"}});
  const ProcessResult result = backup();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(countOf(result.out, "[stdout] list: refused\n"), 2u);
  EXPECT_EQ(countOf(result.err,
                    "warning: LIST_DIR_REQUEST was denied: \"/folder/big\" has a size or time "
                    "beyond 32 bits (2147483648 bytes), and a listing cannot carry it\n"),
            1u)
      << result.err;
}

TEST_F(Job, ListsALinkAndDeliversIt) {
  fs::create_symlink("/etc/passwd", at("local/link"));
  script("export", {{"upload", "symlink", at("local/link"), "/link"}});
  mustBackUp();
  script("import", {{"list", "/"}, {"download", "symlink", "/link", at("local/back")}});
  const ProcessResult result = restore({"--trace", at("trace"), "--trace-full"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(countOf(result.out, "denied"), 0u) << result.out;
  // The plug-in's library ignores links in a listing, so the test looks at the packets.
  EXPECT_TRUE(holds(bytesOf(at("trace")), R"("path":"/link","size":11,"type":"symlink")"));
  EXPECT_EQ(fs::read_symlink(at("local/back")), "/etc/passwd");
}

// ---- Restores of damaged backups.

TEST_F(Job, DeliversNothingOfADamagedFile) {
  const fs::path folder = backUpFile("contents");
  damage(folder / "data/file", "cont", "CONT");
  dir_.makeFile("local/back", "the old state");
  script("import", {{"download", "file", "/file", at("local/back")}, {"fail", "files", "damaged"}});
  const ProcessResult result = restore();
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(holds(result.err,
                    "warning: DOWNLOAD_REQUEST was denied: \"/file\" is damaged: its "
                    "SHA-256 is " +
                        sha256Sum(folder / "data/file") + ", and was " +
                        sha256Sum(at("local/file")) + "\n"));
  EXPECT_EQ(bytesOf(at("local/back")), "the old state");
  EXPECT_EQ(namesIn(at("local")), (Names{"back", "file"}));
}

TEST_F(Job, CountsOnlyDeliveredFiles) {
  const std::string tree = dir_.makeDir("local/tree");
  writeBytes(tree + "/file", "contents");
  ASSERT_EQ(mkfifo((tree + "/fifo").c_str(), 0600), 0);
  dir_.makeFile("local/small", "small");
  dir_.makeFile("local/sound", "sound");
  script("export", {{"upload", "dir", tree, "/tree"},
                    {"upload", "file", at("local/small"), "/small"},
                    {"upload", "file", at("local/sound"), "/sound"}});
  const Json::Value backup = parseJson(this->backup({"--json"}).out);
  EXPECT_EQ(backup["denial_count"], 1);
  EXPECT_EQ(backup["files"], 2);
  EXPECT_EQ(backup["bytes"], 10);
  damage(latest() / "data/small", "s", "S");
  script("import", {{"download", "file", "/small", at("local/back")},
                    {"download", "file", "/sound", at("local/back")}});
  const ProcessResult result = restore();
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(holds(result.out, "\n  served    1 file, 5 B\n"));
  const Json::Value report = parseJson(restore({"--json"}).out);
  EXPECT_EQ(report["files"], 1);
  EXPECT_EQ(report["bytes"], 5);
}

struct Damaged {
  const char *how;
  const char *denial;
};

TEST_F(Job, DeniesEntriesThatDifferFromTheManifest) {
  makeOddTree(at("local/tree"));
  script("export", {{"upload", "dir", at("local/tree"), "/tree"}});
  const fs::path folder = mustBackUp();
  const std::string data = folder / "data/tree";
  const Damaged cases[] = {
      {"rm deep/er/secret",
       "the directory \"/tree/deep/er\" is damaged: it has 1 entries, and had 2"},
      {"echo x > new", "\"/tree/new\" was not backed up: the manifest has no such entry"},
      {"ln -sfn elsewhere link", "\"/tree/link\" is damaged: the link leads elsewhere than it did"},
      {"echo x >> plain", "\"/tree/plain\" is damaged: it has 11 bytes, and had 9"},
      {"rm plain; mkdir plain",
       "\"/tree/plain\" is damaged: it is of type dir, and was of type file"},
  };
  script("import", {{"download", "dir", "/tree", at("local/back")},
                    {"list", "/tree/deep/er"},
                    {"list", "/tree"}});
  ASSERT_EQ(rename(data.c_str(), at("sound").c_str()), 0);
  for (const Damaged &row : cases) {
    run({"/bin/cp", "-a", at("sound"), data});
    run({"/bin/sh", "-c", "cd \"$0\" && " + std::string(row.how), data});
    const ProcessResult result = restore();
    EXPECT_TRUE(holds(result.err,
                      std::string("warning: DOWNLOAD_REQUEST was denied: ") + row.denial + "\n"))
        << row.how;
    fs::remove_all(data);
    fs::remove_all(at("local/back"));
  }
}

TEST_F(Job, IsNotRestoredWithADamagedManifest) {
  const fs::path folder = backUpFile("contents");
  const std::string manifest = bytesOf(folder / "manifest.json");
  const std::string checksums = bytesOf(folder / "SHA256SUMS");
  const std::string name = "\"" + (folder / "manifest.json").string() + "\"";
  const std::string mismatch =
      name + " is not the file that SHA256SUMS has the checksum of: one of the two is damaged";
  const auto errorWith = [&](const std::string &newManifest, const std::string &newChecksums) {
    writeBytes(folder / "manifest.json", newManifest);
    writeBytes(folder / "SHA256SUMS", newChecksums);
    const ProcessResult result = restore();
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(countOf(result.out, "step import"), 0u);
    return replaced(lastLine(result.err), "error: ", "");
  };
  EXPECT_EQ(errorWith(replaced(manifest, "\"0644\"", "\"0645\""), checksums), mismatch);
  EXPECT_EQ(errorWith(manifest.substr(0, manifest.rfind("]}")), checksums), mismatch);
  EXPECT_EQ(errorWith(manifest.substr(0, 50), checksums),
            name + ", line 3: the manifest ends too early");
  EXPECT_EQ(errorWith("", checksums), name + ", line 1: this is not the manifest of a backup");
  const std::size_t own = checksums.rfind("  manifest.json") - 64;
  std::string flipped = checksums;
  flipped[own] = flipped[own] == '0' ? '1' : '0';
  EXPECT_EQ(errorWith(manifest, flipped), mismatch);
  EXPECT_EQ(errorWith(manifest, checksums.substr(0, own)),
            "\"" + (folder / "SHA256SUMS").string() + "\" has no checksum of manifest.json");
}

TEST_F(Job, IsNotRestoredIfItsDataDirectoryIsALink) {
  const fs::path folder = backUpFile("contents");
  fs::rename(folder / "data", at("outside"));
  fs::create_symlink(at("outside"), folder / "data");
  const ProcessResult result = restore();
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, "error: cannot open the store \"" + (folder / "data").string() +
                            "\": Not a directory\n");
}

TEST_F(Job, DoesNotRestoreABackupOfANewerVersion) {
  const fs::path folder = mustBackUp();
  damage(folder / "manifest.json", "\"version\":1", "\"version\":2");
  const ProcessResult result = restore();
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(lastLine(result.err), "error: \"" + (folder / "manifest.json").string() +
                                      "\" is of version 2, this arvl-host reads up to version 1: "
                                      "use the newer one");
}

// ---- Concurrent and killed backups.

TEST_F(Job, RefusesASecondBackupOfAnApplicationAndNamesTheHolder) {
  const std::string fifo = makeFifo();
  script("export", {{"wait", fifo}});
  Command first(job("backup"), variables());
  ASSERT_TRUE(first.waitFor("[stdout] waiting\n"));
  script("export", {});  // a backup that gets the lock does not wait
  const ProcessResult second = backup();
  EXPECT_EQ(second.status, 2);
  EXPECT_TRUE(holds(second.err, "error: the backups in \"" + at("store/unruly") +
                                    "\" are in use by process " + std::to_string(first.pid()) +
                                    " on "));
  EXPECT_EQ(backup({"--name", "another"}).status, 0);
  release(fifo);
  EXPECT_EQ(first.finish().status, 0);
  EXPECT_EQ(backup().status, 0);
  EXPECT_EQ(backups().size(), 2u);
}

TEST_F(Job, RemovesTheUnfinishedBackupOfAKilledHost) {
  const std::string fifo = makeFifo();
  script("export", {{"upload", "dir", at("local"), "/local"}, {"wait", fifo}});
  {
    Command killed(job("backup"), variables());
    ASSERT_TRUE(killed.waitFor("[stdout] waiting\n"));
    killed.signal(SIGKILL);
    killed.finish();
    release(fifo);  // lets the plug-in notice that its host has exited
  }
  ASSERT_EQ(backups().size(), 1u);
  const std::string left = *backups().begin();
  EXPECT_TRUE(holds(left, ".partial"));
  EXPECT_EQ(lastLine(restore().err),
            "error: the store \"" + at("store") + "\" has no finished backup of unruly");
  script("export", {});
  const ProcessResult next = backup();
  EXPECT_EQ(next.status, 0);
  EXPECT_TRUE(holds(next.out, "\nremoved " + left + ", a backup that did not finish\n"));
  EXPECT_EQ(backups(), Names{latest().filename()});
}

// ---- Full disks.

TEST_F(Job, DeniesAFileThatFillsTheStoreAndLeavesNothing) {
  const SmallFileSystem disk(at("store"), "size=64k");
  if (!disk.isMounted()) {
    GTEST_SKIP() << "mounting is not permitted here";
  }
  const fs::path older = backUpFile("contents");
  const std::string large = dir_.makeFile("local/large", std::string(1 << 20, 'x'));
  script("export", {{"upload", "file", large, "/large"}, {"fail", "files", "refused"}});
  const ProcessResult result = backup();
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(holds(result.err,
                    "warning: UPLOAD_REQUEST was denied: cannot write \"/large\": No space left "
                    "on device\n"));
  EXPECT_EQ(backups(), Names{older.filename()});
  EXPECT_EQ(onStore("verify").status, 0);
}

TEST_F(Job, LeavesNothingWhenTheManifestDoesNotFit) {
  const SmallFileSystem disk(at("store"), "size=64k");
  if (!disk.isMounted()) {
    GTEST_SKIP() << "mounting is not permitted here";
  }
  const long page = sysconf(_SC_PAGESIZE);
  // The lock file takes the last page.
  const std::string file = dir_.makeFile("local/f", std::string((64 << 10) - page, 'x'));
  script("export", {{"upload", "file", file, "/f"}});
  const ProcessResult result = backup();
  EXPECT_EQ(result.status, 2);
  EXPECT_TRUE(holds(lastLine(result.err), "/manifest.json\": No space left on device"));
  expectNothingLeft();
}

TEST_F(Job, DeniesAFileThatFillsTheRestoreTarget) {
  const std::string large = dir_.makeFile("local/large", std::string(1 << 20, 'x'));
  script("export", {{"upload", "file", large, "/large"}});
  mustBackUp();
  dir_.makeDir("target");
  const SmallFileSystem disk(at("target"), "size=64k");
  if (!disk.isMounted()) {
    GTEST_SKIP() << "mounting is not permitted here";
  }
  script("import", {{"download", "file", "/large", at("target/large")}, {"fail", "files", "full"}});
  const ProcessResult result = restore();
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(holds(result.err, "warning: DOWNLOAD_REQUEST was denied: cannot write \"" +
                                    at("target/large") + "\": No space left on device\n"));
  EXPECT_EQ(namesIn(at("target")), Names{});
}

TEST_F(Job, LeavesNothingWhenItCannotStart) {
  const SmallFileSystem disk(at("store"), "nr_inodes=4");
  if (!disk.isMounted()) {
    GTEST_SKIP() << "mounting is not permitted here";
  }
  // There is an inode for its directory, but none for "data".
  const ProcessResult result = backup();
  EXPECT_EQ(result.status, 2);
  EXPECT_TRUE(holds(lastLine(result.err), "/data\": No space left on device"));
  expectNothingLeft();
}

}  // namespace
}  // namespace arvl_test
