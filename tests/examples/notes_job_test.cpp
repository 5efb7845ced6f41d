// Whole jobs of the notes plug-in, while the application continues to run.

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

#include "examples/notes_support.h"
#include "host/support/job_support.h"

namespace arvl_test {
namespace {

class NotesJob : public JobFolder {
 protected:
  ProcessResult runNotes(const std::string &command, const Notes &notes) const {
    return run({ARVL_HOST, command, "--plugin", NOTES_PLUGIN_DIR, "--store", at("store")},
               {"NOTES_DIR=" + notes.dir().string()});
  }

  const Notes live_{at("live")};
};

TEST_F(NotesJob, HoldsAPrefixOfTheNotesWrittenDuringTheBackup) {
  live_.output({"init"});
  live_.output({"fill", "--notes", "200", "--attachments", "20"});
  BackgroundProgram writer(live_.command({"write", "--pause", "1"}));
  ASSERT_NE(writer.readLine(), "");  // the writer has started
  const std::string before = live_.dump();
  const ProcessResult backup = runNotes("backup", live_);
  ASSERT_EQ(backup.status, 0) << backup.out;
  // Comes from the transfer of the last file: the plug-in itself reports less.
  EXPECT_TRUE(holds(backup.out, "\n[progress] 100 % Backing up\n"));
  const std::string after = live_.dump();
  EXPECT_GT(after.size(), before.size());  // written while it was backed up

  const Notes restored(at("restored"));
  const ProcessResult restore = runNotes("restore", restored);
  ASSERT_EQ(restore.status, 0) << restore.out;
  EXPECT_EQ(restored.check(), "ok\n");
  const std::string dump = restored.dump();
  EXPECT_GE(dump.size(), before.size());
  EXPECT_EQ(dump, after.substr(0, dump.size()));
}

TEST_F(NotesJob, KeepsTheOldStateWhenTheBackupIsDamaged) {
  live_.output({"init"});
  live_.output({"fill", "--notes", "20", "--attachments", "3"});
  ASSERT_EQ(runNotes("backup", live_).status, 0);
  live_.output({"add", "A later note", "its text"});
  const std::string before = live_.dump();
  for (const char *path : {"data/notes/notes.db", "data/notes/attachments"}) {
    std::filesystem::path file = latest("notes") / path;
    if (std::filesystem::is_directory(file)) {
      const std::set<std::string> attachments = namesIn(file);
      ASSERT_FALSE(attachments.empty());
      file /= *attachments.begin();
    }
    flipByte(file);
    const ProcessResult restore = runNotes("restore", live_);
    EXPECT_EQ(restore.status, 1);
    EXPECT_TRUE(
        holds(restore.err, "warning: DOWNLOAD_REQUEST was denied: \"" +
                               file.string().substr((latest("notes") / "data").string().size()) +
                               "\" is damaged: its SHA-256 is "));
    EXPECT_TRUE(holds(restore.err, ", key \"download_failed\""));
    EXPECT_EQ(live_.dump(), before);
    EXPECT_EQ(live_.check(), "ok\n");
    flipByte(file);
  }
}

}  // namespace
}  // namespace arvl_test
