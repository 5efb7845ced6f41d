#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "examples/notes_support.h"

namespace fs = std::filesystem;
using namespace ZARN::ARVLAPP;

namespace arvl_test {
namespace {

using Names = std::set<std::string>;
using Types = std::vector<PACKET_TYPE>;

Json::Value withoutAttachments() {
  Json::Value config;
  config["attachments"] = false;
  return config;
}

// Owns the live notes and the framework's directory of uploaded files.
class NotesPlugin : public testing::Test {
 protected:
  NotesPlugin() {
    fs::create_directory(temp_.path() / "store");
    script_.data = temp_.path() / "store";
    setenv("NOTES_DIR", notes_.dir().c_str(), 1);
  }
  ~NotesPlugin() override { unsetenv("NOTES_DIR"); }

  void fill(const std::string &notes, const std::string &attachments) {
    notes_.output({"init"});
    notes_.output({"fill", "--notes", notes, "--attachments", attachments});
  }

  StepOutcome run(const std::string &step) const {
    return runStep(fs::path(NOTES_PLUGIN_DIR) / step, script_);
  }

  void mustExport() const {
    const StepOutcome outcome = run("export");
    ASSERT_TRUE(outcome.succeeded()) << outcome.errors;
  }

  void mustImport() const {
    const StepOutcome outcome = run("import");
    ASSERT_TRUE(outcome.succeeded()) << outcome.errors;
  }

  // Expects the step to fail for this reason and to write one line about it.
  void expectFailure(const std::string &step, const std::string &key,
                     const std::string &reason) const {
    const StepOutcome outcome = run(step);
    EXPECT_FALSE(outcome.succeeded());
    EXPECT_EQ(outcome.errorKey(), "notes." + key) << outcome.errors;
    EXPECT_EQ(outcome.errors, "notes: " + reason + "\n");
  }

  fs::path stored(const std::string &name) const { return script_.data / "notes" / name; }

  // Returns the journal mode that the file's header records: a log next to the database, or none.
  static std::string journalOf(const fs::path &database) {
    const std::string versions = bytesOf(database).substr(18, 2);
    return versions == "\2\2" ? "wal" : versions == "\1\1" ? "delete" : versions;
  }

  // Expects no temporary file of a step, in the data directory or next to it.
  void expectNoLeftovers() const {
    Names live = namesIn(notes_.dir());
    live.erase("notes.db-wal");
    live.erase("notes.db-shm");
    EXPECT_EQ(live, (Names{"attachments", "notes.db"}));
    EXPECT_EQ(namesIn(temp_.path()), (Names{"notes", "store"}));
  }

  TempDir temp_;
  const Notes notes_{temp_.path() / "notes"};
  FrameworkScript script_;
};

using NotesSummary = NotesPlugin;
using NotesEstimate = NotesPlugin;
using NotesCanExport = NotesPlugin;
using NotesExport = NotesPlugin;
using NotesCanImport = NotesPlugin;

// ---- summary

std::string backupShort(const StepOutcome &outcome) {
  return outcome.completion ? outcome.completion->payload["backup_short"].asString() : "";
}

TEST_F(NotesSummary, SpeaksTheLanguageOfTheUserAndEnglishOtherwise) {
  script_.language = "ger";
  StepOutcome outcome = run("summary");
  EXPECT_TRUE(outcome.succeeded());
  EXPECT_EQ(outcome.requestTypes(), Types{PACKET_LANGUAGE_REQUEST});
  EXPECT_EQ(backupShort(outcome), "Notizen und Anhänge");
  for (const std::string language : {"enu", "jpn", ""}) {
    script_.language = language;
    EXPECT_EQ(backupShort(run("summary")), "Notes and attachments") << language;
  }
}

TEST_F(NotesSummary, SpeaksEnglishToAFrameworkThatKnowsNoLanguage) {
  script_.version = "2.2";
  const StepOutcome outcome = run("summary");
  EXPECT_TRUE(outcome.succeeded());
  EXPECT_EQ(outcome.requestTypes(), Types{});
  EXPECT_EQ(outcome.errors, "");
  EXPECT_EQ(backupShort(outcome), "Notes and attachments");
}

TEST_F(NotesSummary, SpeaksEnglishWhenTheLanguageIsRefused) {
  script_.refusals[PACKET_LANGUAGE_REQUEST] = "not ready";
  EXPECT_EQ(backupShort(run("summary")), "Notes and attachments");
}

// ---- estimate_exportion

std::uintmax_t totalSize(const fs::path &directory) {
  std::uintmax_t total = 0;
  for (const fs::directory_entry &entry : fs::directory_iterator(directory)) {
    total += entry.file_size();
  }
  return total;
}

TEST_F(NotesEstimate, CountsTheDatabaseAndItsAttachments) {
  fill("10", "4");
  const StepOutcome outcome = run("estimate_exportion");
  ASSERT_TRUE(outcome.succeeded()) << outcome.errors;
  EXPECT_EQ(outcome.completion->payload["file_count"].asInt(), 5);
  EXPECT_EQ(outcome.completion->payload["dir_count"].asInt(), 0);
  EXPECT_EQ(outcome.completion->payload["size"].asUInt64(),
            fs::file_size(notes_.database()) + totalSize(notes_.attachments()));
}

TEST_F(NotesEstimate, CountsOnlyTheSelectedNotebooks) {
  fill("6", "6");  // two attachments in each of three notebooks
  script_.folders = {"work", "/home"};
  EXPECT_EQ(run("estimate_exportion").completion->payload["file_count"].asInt(), 5);
  script_.exportConfig = withoutAttachments();
  EXPECT_EQ(run("estimate_exportion").completion->payload["file_count"].asInt(), 1);
}

TEST_F(NotesEstimate, FailsWithoutADatabase) {
  expectFailure("estimate_exportion", "database_missing",
                notes_.database().string() + " does not exist");
}

TEST_F(NotesEstimate, FailsWithoutNotesDir) {
  unsetenv("NOTES_DIR");
  expectFailure("estimate_exportion", "directory_unset",
                "NOTES_DIR does not say where the notes are");
}

// ---- can_export

TEST_F(NotesCanExport, AgreesToSoundData) {
  fill("10", "4");
  const StepOutcome outcome = run("can_export");
  EXPECT_TRUE(outcome.succeeded()) << outcome.errors;
  EXPECT_EQ(outcome.requestTypes(),
            (Types{PACKET_EXPORT_CONFIG_REQUEST, PACKET_SELECTED_SOURCE_REQUEST}));
}

TEST_F(NotesCanExport, RefusesAMissingDatabase) {
  expectFailure("can_export", "database_missing", notes_.database().string() + " does not exist");
}

TEST_F(NotesCanExport, RefusesADatabaseThatFailsTheIntegrityCheck) {
  fill("2000", "0");
  std::string content = bytesOf(notes_.database());
  content.replace(content.size() / 2, 4096, 4096, '\xff');  // a page in the middle
  writeBytes(notes_.database(), content);
  const StepOutcome outcome = run("can_export");
  EXPECT_EQ(outcome.errorKey(), "notes.database_damaged");
  EXPECT_EQ(outcome.errors.rfind("notes: the database is damaged: ", 0), 0U) << outcome.errors;
}

TEST_F(NotesCanExport, RefusesAFileThatIsNotADatabase) {
  fill("1", "0");
  writeBytes(notes_.database(), std::string(8192, 'x'));
  EXPECT_EQ(run("can_export").errorKey(), "notes.database_damaged");
}

TEST_F(NotesCanExport, RefusesABrokenReference) {
  fill("3", "0");
  notes_.tamper("UPDATE notes SET notebook_id = 77 WHERE id = 2");
  expectFailure(
      "can_export", "database_damaged",
      "the database is damaged: table notes, row 2: refers to a missing row of notebooks");
}

TEST_F(NotesCanExport, RefusesDataOfANewerRelease) {
  fill("1", "0");
  notes_.tamper("PRAGMA user_version = 102");
  expectFailure("can_export", "database_newer",
                "the database holds data version 1.2, this plug-in knows up to 1.1");
}

TEST_F(NotesCanExport, RefusesAMissingAttachmentUnlessItIsLeftOut) {
  fill("1", "1");
  const fs::path file = fs::directory_iterator(notes_.attachments())->path();
  fs::resize_file(file, 1);
  expectFailure("can_export", "attachment_damaged", file.string() + " has not the recorded size");
  fs::remove(file);
  expectFailure("can_export", "attachment_damaged", file.string() + ": No such file or directory");
  script_.exportConfig = withoutAttachments();
  EXPECT_TRUE(run("can_export").succeeded());
}

TEST_F(NotesCanExport, RefusesASelectedDirectoryThatIsNotANotebook) {
  fill("3", "0");
  script_.folders = {"work", "/garage"};
  expectFailure("can_export", "notebook_unknown", "there is no notebook [garage]");
}

TEST_F(NotesCanExport, RefusesAnInvalidConfiguration) {
  fill("1", "0");
  script_.exportConfig["attachments"] = "no";
  expectFailure("can_export", "config_invalid",
                "export_config: attachments is neither true nor false");
}

TEST_F(NotesCanExport, SaysWhichQueryTheFrameworkRefused) {
  fill("1", "0");
  script_.refusals[PACKET_EXPORT_CONFIG_REQUEST] = "not ready";
  expectFailure("can_export", "framework_failed", "the export's configuration: not ready");
}

// ---- export

TEST_F(NotesExport, UploadsTheDatabaseAsATemporaryFileAndThenTheAttachments) {
  fill("10", "2");
  const StepOutcome outcome = run("export");
  ASSERT_TRUE(outcome.succeeded()) << outcome.errors;
  EXPECT_EQ(outcome.completion->payload["app_data_version"].asString(), "1.1");
  EXPECT_EQ(outcome.errors, "");
  ASSERT_EQ(
      outcome.requestTypes(),
      (Types{PACKET_EXPORT_CONFIG_REQUEST, PACKET_SELECTED_SOURCE_REQUEST, PACKET_LANGUAGE_REQUEST,
             PACKET_SET_PROGRESS_REQUEST, PACKET_SET_PROGRESS_REQUEST, PACKET_CREATE_DIR_REQUEST,
             PACKET_CREATE_DIR_REQUEST, PACKET_UPLOAD_REQUEST, PACKET_UPLOAD_REQUEST,
             PACKET_UPLOAD_REQUEST}));
  EXPECT_EQ(outcome.requests[5].payload["path"].asString(), "/notes");
  EXPECT_EQ(outcome.requests[6].payload["path"].asString(), "/notes/attachments");
  const Json::Value database = outcome.requests[7].payload["data"][0];
  EXPECT_TRUE(database["source"]["is_temp"].asBool());
  EXPECT_EQ(database["source"]["path"].asString(), (notes_.dir() / ".export/notes.db").string());
  EXPECT_EQ(database["destination"]["path"].asString(), "/notes/notes.db");
  const Json::Value attachment = outcome.requests[9].payload["data"][0];
  const std::string name = fs::path(attachment["source"]["path"].asString()).filename();
  EXPECT_FALSE(attachment["source"]["is_temp"].asBool());
  EXPECT_EQ(attachment["source"]["path"].asString(), (notes_.attachments() / name).string());
  EXPECT_EQ(attachment["destination"]["path"].asString(), "/notes/attachments/" + name);
  EXPECT_EQ(attachment["progress_percentage"].asInt(), 100);

  EXPECT_EQ(namesIn(script_.data / "notes"), (Names{"attachments", "notes.db"}));
  EXPECT_EQ(namesIn(stored("attachments")), namesIn(notes_.attachments()));
  EXPECT_EQ(journalOf(stored("notes.db")), "delete");
  expectNoLeftovers();
}

TEST_F(NotesExport, ShowsRisingProgressInTheLanguageOfTheUser) {
  fill("2000", "20");
  script_.language = "ger";
  const StepOutcome outcome = run("export");
  ASSERT_TRUE(outcome.succeeded()) << outcome.errors;
  int reached = 0;
  std::set<std::string> stages;
  for (const Packet &request : outcome.requests) {
    const Json::Value &item =
        request.type == PACKET_UPLOAD_REQUEST ? request.payload["data"][0] : request.payload;
    if (item.isMember("progress_percentage")) {
      EXPECT_GE(item["progress_percentage"].asInt(), reached);
      reached = item["progress_percentage"].asInt();
    }
    if (item.isMember("progress_stage")) {
      stages.insert(item["progress_stage"].asString());
    }
  }
  EXPECT_EQ(reached, 100);
  EXPECT_EQ(stages, (Names{"Daten werden gesichert", "Datenbank wird kopiert"}));
}

TEST_F(NotesExport, SendsNoUnknownRequestToAnOlderFramework) {
  fill("3", "1");
  script_.version = "2.2";
  const StepOutcome outcome = run("export");
  EXPECT_TRUE(outcome.succeeded());
  EXPECT_EQ(outcome.errors, "");
  EXPECT_EQ(outcome.requestTypes(), (Types{PACKET_CREATE_DIR_REQUEST, PACKET_CREATE_DIR_REQUEST,
                                           PACKET_UPLOAD_REQUEST, PACKET_UPLOAD_REQUEST}));
}

TEST_F(NotesExport, UploadsAConsistentSnapshotOfADatabaseInUse) {
  fill("500", "5");
  BackgroundProgram writer(notes_.command({"write"}));
  int requests = 0;
  script_.onRequest = [&](const Packet &) {  // writes another note during each request
    EXPECT_NE(writer.readLine(), "");
    ++requests;
  };
  const StepOutcome outcome = run("export");
  ASSERT_TRUE(outcome.succeeded()) << outcome.errors;
  EXPECT_GT(requests, 10);
  const std::string grown = notes_.dump();

  script_.onRequest = nullptr;
  setenv("NOTES_DIR", (temp_.path() / "restored").c_str(), 1);
  mustImport();
  const Notes restored(temp_.path() / "restored");
  EXPECT_EQ(restored.check(), "ok\n");
  const std::string dump = restored.dump();
  EXPECT_LT(dump.size(), grown.size());
  EXPECT_EQ(grown.compare(0, dump.size(), dump), 0) << "the copy is no prefix";
}

TEST_F(NotesExport, SkipsTheAttachmentsIfSoConfigured) {
  fill("10", "4");
  script_.exportConfig = withoutAttachments();
  mustExport();
  EXPECT_EQ(namesIn(script_.data / "notes"), Names{"notes.db"});

  fs::remove_all(notes_.dir());
  mustImport();
  EXPECT_EQ(notes_.check(), "ok\n");
  EXPECT_EQ(notes_.output({"count"}), "notes 10\nnotebooks 3\nattachments 0\n");
}

TEST_F(NotesExport, UploadsTheSelectedNotebooksAndNoTraceOfOthers) {
  notes_.output({"init"});
  writeBytes(temp_.path() / "letters.txt", "abc");
  notes_.output({"add", "--notebook", "work", "Plan", "harmless"});
  constexpr std::size_t kDiarySize = 1000000;
  notes_.output(
      {"add", "--notebook", "home", "Diary", "-", "--attach", temp_.path() / "letters.txt"},
      "unspeakable " + std::string(kDiarySize, 'x'));
  fs::remove(temp_.path() / "letters.txt");
  script_.folders = {"/work"};
  mustExport();
  EXPECT_EQ(namesIn(script_.data / "notes"), Names{"notes.db"});
  EXPECT_EQ(bytesOf(stored("notes.db")).find("unspeakable"), std::string::npos);
  EXPECT_LT(fs::file_size(stored("notes.db")), kDiarySize);

  fs::remove_all(notes_.dir());
  mustImport();
  EXPECT_EQ(notes_.check(), "ok\n");
  EXPECT_EQ(notes_.output({"list"}), "1\twork\tPlan\n");
}

TEST_F(NotesExport, FailsOnASelectedDirectoryThatIsNotANotebook) {
  fill("3", "0");
  script_.folders = {"garage"};
  expectFailure("export", "notebook_unknown", "there is no notebook [garage]");
  expectNoLeftovers();
}

TEST_F(NotesExport, LeavesNoSnapshotWhenTheUploadIsRefused) {
  fill("3", "0");
  script_.refusals[PACKET_CREATE_DIR_REQUEST] = "disk full";
  expectFailure("export", "upload_failed", "/notes: disk full");
  script_.refusals.clear();
  script_.refusals[PACKET_UPLOAD_REQUEST] = "disk full";
  expectFailure("export", "upload_failed",
                (notes_.dir() / ".export/notes.db").string() + ": disk full");
  expectNoLeftovers();
}

TEST_F(NotesExport, DoesNotUploadADamagedAttachment) {
  fill("3", "1");
  const fs::path file = fs::directory_iterator(notes_.attachments())->path();
  flipByte(file);
  expectFailure("export", "attachment_damaged",
                "attachment " + file.filename().string() + " has another content");
}

TEST_F(NotesExport, RunsOnceAtATime) {
  fill("3", "0");
  bool tried = false;
  script_.onRequest = [&](const Packet &request) {
    if (request.type == PACKET_UPLOAD_REQUEST && !tried) {
      tried = true;
      FrameworkScript other = script_;
      other.onRequest = nullptr;
      EXPECT_EQ(runStep(fs::path(NOTES_PLUGIN_DIR) / "export", other).errorKey(),
                "notes.export_running");
    }
  };
  mustExport();
  EXPECT_TRUE(tried);
}

TEST_F(NotesExport, LeavesNothingWhenCanceledOrKilledAtAnyRequest) {
  fill("10", "2");
  const std::string before = notes_.dump();
  const std::size_t requests = run("export").requests.size();
  ASSERT_GT(requests, 5U);
  for (std::size_t at = 0; at < requests; ++at) {
    script_.closeAt = at;
    const StepOutcome canceled = run("export");
    EXPECT_FALSE(canceled.completion.has_value()) << at;
    EXPECT_EQ(canceled.exitCode, 0) << at;
    expectNoLeftovers();

    script_.closeAt.reset();
    script_.killAt = at;
    EXPECT_EQ(run("export").signal, SIGKILL) << at;
    script_.killAt.reset();
    EXPECT_EQ(notes_.check(), "ok\n") << at;  // the next command removes leftovers
    expectNoLeftovers();
  }
  EXPECT_EQ(notes_.dump(), before);
  mustExport();
}

TEST_F(NotesExport, UploadsDataOfRelease10Unchanged) {
  notes_.make10(5, 7);
  const StepOutcome outcome = run("export");
  ASSERT_TRUE(outcome.succeeded()) << outcome.errors;
  EXPECT_EQ(outcome.completion->payload["app_data_version"].asString(), "1.0");
  EXPECT_EQ(namesIn(stored("attachments")), (Names{"1", "2", "3", "4", "5", "6", "7"}));
}

// ---- can_import

TEST_F(NotesCanImport, AgreesToEveryKnownVersionOfTheData) {
  for (const std::string version : {"1.0", "1.1"}) {
    script_.appDataVersion = version;
    const StepOutcome outcome = run("can_import");
    EXPECT_TRUE(outcome.succeeded()) << version;
    EXPECT_EQ(outcome.requestTypes(), Types{PACKET_EXPORT_RESULT_REQUEST}) << version;
  }
}

TEST_F(NotesCanImport, RefusesOtherVersions) {
  for (const std::string version : {"0.9", "1.2", "2.0"}) {
    script_.appDataVersion = version;
    expectFailure("can_import", "version_unsupported",
                  "the backup holds data version " + version + ", this release knows 1.0 to 1.1");
  }
}

TEST_F(NotesCanImport, RefusesToReplaceADirectoryThatHoldsOtherFiles) {
  fs::create_directory(notes_.dir());
  writeBytes(notes_.dir() / "thesis.tex", "years of work");
  expectFailure("can_import", "directory_foreign",
                (notes_.dir() / "thesis.tex").string() + " does not belong to notes");
}

TEST_F(NotesCanImport, RefusesADirectoryThatCannotBeReplaced) {
  if (geteuid() == 0) {
    GTEST_SKIP() << "root may write everywhere";
  }
  ASSERT_EQ(chmod(temp_.path().c_str(), 0500), 0);
  expectFailure("can_import", "directory_unwritable",
                temp_.path().string() + " cannot be written to");
  ASSERT_EQ(chmod(temp_.path().c_str(), 0700), 0);
}

// ---- import

// A backup, and live notes that have changed since.
class NotesImport : public NotesPlugin {
 protected:
  void SetUp() override {
    fill("20", "5");
    backedUp_ = notes_.dump();
    ASSERT_NO_FATAL_FAILURE(mustExport());
    fs::remove_all(notes_.dir());
    notes_.output({"init"});
    notes_.output({"fill", "--notes", "3", "--attachments", "1"});
    live_ = notes_.dump();
  }

  // Expects the old state, unchanged.
  void expectUntouched() const {
    EXPECT_EQ(notes_.dump(), live_);
    EXPECT_EQ(notes_.check(), "ok\n");
    expectNoLeftovers();
  }

  void expectRestored() const {
    EXPECT_EQ(notes_.dump(), backedUp_);
    EXPECT_EQ(notes_.check(), "ok\n");
    EXPECT_EQ(journalOf(notes_.database()), "wal");
    expectNoLeftovers();
  }

  void expectRefused(const std::string &key, const std::string &reason) const {
    expectFailure("import", key, reason);
    expectUntouched();
  }

  fs::path anyStoredAttachment() const {
    return fs::directory_iterator(stored("attachments"))->path();
  }

  static constexpr std::size_t kRequests = 13;  // of an import of five attachments

  std::string backedUp_;
  std::string live_;
};

TEST_F(NotesImport, ReplacesTheLiveDataWithTheBackup) {
  const StepOutcome outcome = run("import");
  EXPECT_TRUE(outcome.succeeded());
  EXPECT_EQ(outcome.errors, "");
  EXPECT_EQ(outcome.requests.size(), kRequests);
  EXPECT_EQ(outcome.requestTypes(),
            (Types{PACKET_EXPORT_RESULT_REQUEST, PACKET_LANGUAGE_REQUEST,
                   PACKET_SET_PROGRESS_REQUEST, PACKET_LIST_DIR_REQUEST, PACKET_DOWNLOAD_REQUEST,
                   PACKET_LIST_DIR_REQUEST, PACKET_DOWNLOAD_REQUEST, PACKET_DOWNLOAD_REQUEST,
                   PACKET_DOWNLOAD_REQUEST, PACKET_DOWNLOAD_REQUEST, PACKET_DOWNLOAD_REQUEST,
                   PACKET_SET_PROGRESS_REQUEST, PACKET_EXPORT_RESULT_REQUEST}));
  expectRestored();
  for (const std::string &name : namesIn(notes_.attachments())) {
    EXPECT_EQ(bytesOf(notes_.attachments() / name), bytesOf(stored("attachments") / name));
  }
}

TEST_F(NotesImport, CreatesAMissingDirectory) {
  fs::remove_all(notes_.dir());
  mustImport();
  expectRestored();
}

TEST_F(NotesImport, RestoresNotesThatCanBeWritten) {
  mustImport();
  EXPECT_EQ(notes_.output({"add", "--notebook", "work", "Milk", "quintessence"}), "21\n");
  EXPECT_EQ(notes_.output({"search", "quintessence"}), "21\twork\tMilk\n");
  EXPECT_EQ(notes_.check(), "ok\n");
}

TEST_F(NotesImport, ReadsAListingPageByPage) {
  script_.pageSize = 1;
  mustImport();
  expectRestored();
}

TEST_F(NotesImport, WorksWithAnOlderFramework) {
  script_.version = "2.2";
  mustImport();
  expectRestored();
}

TEST_F(NotesImport, RefusesAnUnknownVersionOfTheData) {
  script_.appDataVersion = "1.2";
  expectRefused("version_unsupported",
                "the backup holds data version 1.2, this release knows 1.0 to 1.1");
}

TEST_F(NotesImport, RefusesADatabaseOfAnotherVersionThanTheExportRecorded) {
  script_.appDataVersion = "1.0";
  expectRefused("data_damaged", "the restored database holds data version 1.1 instead of 1.0");
}

TEST_F(NotesImport, RefusesABackupWithoutDatabase) {
  fs::remove(stored("notes.db"));
  expectRefused("data_incomplete", "the backup holds no notes.db");
}

TEST_F(NotesImport, RefusesABackupThatLacksAnAttachment) {
  const fs::path file = anyStoredAttachment();
  fs::remove(file);
  expectRefused("data_incomplete", "the backup holds no attachment " + file.filename().string() +
                                       " of the recorded size");
}

TEST_F(NotesImport, RefusesADamagedAttachment) {
  const fs::path file = anyStoredAttachment();
  flipByte(file);
  expectRefused("data_damaged",
                "restored attachment " + file.filename().string() + " has another content");
}

TEST_F(NotesImport, RefusesADamagedDatabase) {
  std::string content = bytesOf(stored("notes.db"));
  content.replace(content.size() / 2, 4096, 4096, '\xff');
  writeBytes(stored("notes.db"), content);
  const StepOutcome outcome = run("import");
  EXPECT_EQ(outcome.errorKey(), "notes.data_damaged");
  expectUntouched();
  writeBytes(stored("notes.db"), "no database at all");
  EXPECT_EQ(run("import").errorKey(), "notes.data_damaged");
  expectUntouched();
}

TEST_F(NotesImport, RefusesAnAttachmentPathOutsideTheDirectory) {
  fs::create_directories(temp_.path() / "forged");
  fs::copy_file(stored("notes.db"), temp_.path() / "forged/notes.db");
  Notes(temp_.path() / "forged").tamper("UPDATE attachments SET sha256 = '../x' WHERE id = 1");
  fs::rename(temp_.path() / "forged/notes.db", stored("notes.db"));
  fs::remove_all(temp_.path() / "forged");
  expectRefused("data_damaged", "the attachment name [../x] is not acceptable");
}

TEST_F(NotesImport, KeepsTheOldStateWhenADownloadIsRefused) {
  script_.refusals[PACKET_DOWNLOAD_REQUEST] = "damaged";
  expectRefused("download_failed", "/notes/notes.db: damaged");
}

TEST_F(NotesImport, KeepsTheOldStateWhenAListingIsRefused) {
  script_.refusals[PACKET_LIST_DIR_REQUEST] = "gone";
  expectRefused("download_failed", "the listing of /notes: gone");
}

TEST_F(NotesImport, RefusesToReplaceADirectoryThatHoldsOtherFiles) {
  writeBytes(notes_.dir() / "thesis.tex", "years of work");
  expectFailure("import", "directory_foreign",
                (notes_.dir() / "thesis.tex").string() + " does not belong to notes");
  EXPECT_EQ(bytesOf(notes_.dir() / "thesis.tex"), "years of work");
  EXPECT_EQ(notes_.dump(), live_);
}

TEST_F(NotesImport, RunsOnceAtATime) {
  bool tried = false;
  script_.onRequest = [&](const Packet &request) {
    if (request.type == PACKET_DOWNLOAD_REQUEST && !tried) {
      tried = true;
      FrameworkScript other = script_;
      other.onRequest = nullptr;
      EXPECT_EQ(runStep(fs::path(NOTES_PLUGIN_DIR) / "import", other).errorKey(),
                "notes.import_running");
    }
  };
  mustImport();
  EXPECT_TRUE(tried);
  expectRestored();
}

TEST_F(NotesImport, DoesNotReplaceDataThatACommandIsWorkingWith) {
  const int directory = open(notes_.dir().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(flock(directory, LOCK_SH), 0);
  expectRefused("application_busy", notes_.dir().string() + " is in use by another process");
  close(directory);
}

TEST_F(NotesImport, ReplacesDataBetweenTwoCommandsOfAWriter) {
  BackgroundProgram writer(notes_.command({"write", "--pause", "1"}));
  EXPECT_NE(writer.readLine(), "");
  mustImport();
  // Buffered lines may belong to the old notes; then the numbers continue from the restored ones.
  std::string line = writer.readLine();
  while (line.size() < 2 || std::stoi(line) < 21) {
    ASSERT_NE(line, "");
    line = writer.readLine();
  }
  const std::string dump = notes_.dump();
  EXPECT_EQ(dump.compare(0, backedUp_.size(), backedUp_), 0);
  EXPECT_EQ(notes_.check(), "ok\n");
}

TEST_F(NotesImport, KeepsTheOldStateWhenCanceledAtAnyRequest) {
  for (std::size_t at = 0; at < kRequests; ++at) {
    script_.closeAt = at;
    const StepOutcome outcome = run("import");
    ASSERT_EQ(outcome.requests.size(), at + 1);
    EXPECT_FALSE(outcome.completion.has_value()) << at;
    EXPECT_EQ(outcome.exitCode, 0) << at;
    expectUntouched();
  }
}

TEST_F(NotesImport, KeepsTheOldStateWhenKilledBeforeTheEnd) {
  for (std::size_t at = 0; at < kRequests; ++at) {
    script_.killAt = at;
    const StepOutcome outcome = run("import");
    ASSERT_EQ(outcome.requests.size(), at + 1);
    EXPECT_EQ(outcome.signal, SIGKILL) << at;
    expectUntouched();
  }
}

TEST_F(NotesImport, HasTheNewStateOnlyAfterTheExchange) {
  for (const long call : {SYS_syncfs, SYS_renameat2}) {
    script_.fault = SystemCallFault::killAt(call);
    EXPECT_EQ(run("import").signal, SIGSYS) << call;
    expectUntouched();
  }
  script_.fault = SystemCallFault::killAt(SYS_unlinkat);  // the first file of the old state
  EXPECT_EQ(run("import").signal, SIGSYS);
  EXPECT_TRUE(fs::exists(temp_.path() / ".notes.import/notes.db"));
  expectRestored();
}

TEST_F(NotesImport, RenamesTwiceIfDirectoriesCannotBeExchanged) {
  script_.fault = SystemCallFault::refuseExchange();
  mustImport();
  expectRestored();
}

TEST_F(NotesImport, BringsDataOfRelease10UpToDate) {
  fs::remove_all(script_.data / "notes");
  const Notes old(temp_.path() / "old");
  old.make10(5, 7);
  setenv("NOTES_DIR", old.dir().c_str(), 1);
  mustExport();
  old.output({"upgrade"});
  backedUp_ = old.dump();
  fs::remove_all(old.dir());

  setenv("NOTES_DIR", notes_.dir().c_str(), 1);
  script_.appDataVersion = "1.0";
  mustImport();
  expectRestored();
}

// The uploaded files have the layout of release 1.0.
TEST_F(NotesImport, RefusesInconsistentDataOfRelease10) {
  fs::remove_all(script_.data / "notes");
  const Notes old(temp_.path() / "old");
  old.make10(2, 2);
  fs::rename(old.dir(), script_.data / "notes");
  fs::resize_file(stored("attachments") / "2", 1);
  script_.appDataVersion = "1.0";
  expectRefused("data_incomplete", "the backup holds no attachment 2 of the recorded size");
}

}  // namespace
}  // namespace arvl_test
