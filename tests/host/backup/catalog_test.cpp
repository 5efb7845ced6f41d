#include "backup/catalog.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <optional>
#include <string>

#include "host/support/store_error_of.h"
#include "support/deep_tree.h"
#include "support/small_file_system.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;

namespace arvl_host {
namespace {

using arvl_test::storeErrorOf;
using Names = std::vector<std::string>;

class CatalogOf : public testing::Test {
 protected:
  void make(const Names &folders) const {
    for (const std::string &folder : folders) {
      dir_.makeDir(folder);
    }
  }

  std::string storeName() const { return "\"" + dir_.path().string() + "\""; }

  const arvl_test::TempDir dir_;
  const Catalog catalog_{dir_.path()};
};

TEST(BackupId, IsTheTimeToTheMillisecond) {
  EXPECT_EQ(backupId(1795253132123999), "20261121T092532.123Z");
  EXPECT_EQ(backupId(0), "19700101T000000.000Z");
}

TEST(ApplicationName, IsThatOfAFolder) {
  for (const std::string name : {"notes", "an application", "a.b", "\xc3\xa4", "-x"}) {
    EXPECT_EQ(checkApplicationName(name), "") << name;
  }
  EXPECT_EQ(checkApplicationName(std::string(200, 'n')), "");
  for (const std::string name : {"", ".", "..", ".hidden", "a/b", "/", "a\nb", "\xff", "\x1b[1m"}) {
    EXPECT_NE(checkApplicationName(name), "") << name;
  }
  EXPECT_NE(checkApplicationName(std::string(201, 'n')), "");
  EXPECT_EQ(checkApplicationName(".x"),
            "an application's name is the name of a folder, without a full stop in front, not "
            "\".x\"");
}

TEST(CatalogOfNothing, IsAnError) {
  EXPECT_EQ(storeErrorOf([] { Catalog("/no/store"); }),
            "cannot open the folder \"/no/store\": No such file or directory");
  EXPECT_EQ(storeErrorOf([] { Catalog("/dev/null"); }),
            "cannot open the folder \"/dev/null\": Not a directory");
}

TEST_F(CatalogOf, TellsBackupsFromAllElse) {
  make({"app/20261121T092532.123Z", "app/20251121T092532.123Z", "app/20261121T092532.124Z.partial",
        "app/lost+found", "app/20261121T092532.123", "app/20261121T092532.123Z.old", "app/.partial",
        "app/x20261121T092532.123Z.partial", "other", ".hidden"});
  std::ofstream(dir_.at("app/20241121T092532.123Z")) << "a file";
  fs::create_directory_symlink("20261121T092532.123Z", dir_.at("app/20231121T092532.123Z"));
  std::ofstream(dir_.at("a file"));
  EXPECT_EQ(catalog_.applications(), (Names{"app", "other"}));
  EXPECT_EQ(catalog_.backups("app"), (Names{"20251121T092532.123Z", "20261121T092532.123Z"}));
  EXPECT_EQ(catalog_.unfinished("app"), Names{"20261121T092532.124Z.partial"});
  EXPECT_EQ(catalog_.backups("other"), Names{});
}

TEST_F(CatalogOf, FollowsALinkToAnApplication) {
  make({"elsewhere/20261121T092532.123Z"});
  fs::create_directory_symlink("elsewhere", dir_.at("app"));
  fs::create_symlink("nothing", dir_.at("broken"));
  make({"lost+found"});
  EXPECT_EQ(catalog_.applications(), (Names{"app", "elsewhere"}));
  EXPECT_EQ(catalog_.backups("app"), Names{"20261121T092532.123Z"});
}

TEST_F(CatalogOf, NamesABackupAfterTheLastWhateverTheClockSays) {
  make({"app/29991231T235959.999Z"});
  NewBackup backup(catalog_, "app");
  EXPECT_EQ(backup.id(), "30000101T000000.000Z");
  backup.finish();
  EXPECT_EQ(catalog_.find("app", ""), "30000101T000000.000Z");
}

TEST_F(CatalogOf, FindsTheLatestOrTheOneThatIsNamed) {
  make({"app/20261121T092532.123Z", "app/20251121T092532.123Z", "app/20271121T092532.123Z.partial",
        "empty"});
  EXPECT_EQ(catalog_.find("app", ""), "20261121T092532.123Z");
  EXPECT_EQ(catalog_.find("app", "20251121T092532.123Z"), "20251121T092532.123Z");
  EXPECT_EQ(storeErrorOf([&] { catalog_.find("app", "20271121T092532.123Z"); }),
            "there is no backup 20271121T092532.123Z of app; there are 20251121T092532.123Z, "
            "20261121T092532.123Z");
  EXPECT_EQ(storeErrorOf([&] { catalog_.find("empty", ""); }),
            "the store " + storeName() + " has no finished backup of empty");
  EXPECT_EQ(storeErrorOf([&] { catalog_.find("none", ""); }),
            "the store " + storeName() + " has no backup of none; it has backups of app");
}

TEST_F(CatalogOf, SaysThatAnEmptyStoreHasNothing) {
  EXPECT_EQ(storeErrorOf([&] { catalog_.find("app", ""); }),
            "the store " + storeName() + " has no backup of app");
}

TEST_F(CatalogOf, NamesAnApplicationThatCannotBeRead) {
  EXPECT_EQ(storeErrorOf([&] { catalog_.backups("none"); }),
            "cannot read the folder \"" + dir_.at("none") + "\": No such file or directory");
}

// ---- The lock.

TEST_F(CatalogOf, IsLockedByOneAtATime) {
  std::optional<ApplicationLock> lock(std::in_place, dir_.at("app"));
  EXPECT_EQ(storeErrorOf([&] { ApplicationLock(dir_.at("app")); })
                .find("the backups in \"" + dir_.at("app") + "\" are in use by process " +
                      std::to_string(getpid()) + " on "),
            0u);
  EXPECT_EQ(storeErrorOf([&] { ApplicationLock(dir_.at("other")); }), "");
  lock.reset();
  EXPECT_EQ(storeErrorOf([&] { ApplicationLock(dir_.at("app")); }), "");
}

TEST_F(CatalogOf, IsFreeOnceTheHolderIsGone) {
  const pid_t child = fork();
  if (child == 0) {
    const ApplicationLock lock(dir_.at("app"));
    _exit(0);  // as a process that is killed
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_EQ(status, 0);
  EXPECT_EQ(storeErrorOf([&] { ApplicationLock(dir_.at("app")); }), "");
}

TEST_F(CatalogOf, DoesNotWriteThroughALinkInPlaceOfTheLock) {
  make({"app"});
  std::ofstream(dir_.at("precious")) << "contents";
  fs::create_symlink(dir_.at("precious"), dir_.at("app/.lock"));
  EXPECT_EQ(storeErrorOf([&] { ApplicationLock(dir_.at("app")); }),
            "cannot open \"" + dir_.at("app/.lock") + "\": Too many levels of symbolic links");
  EXPECT_EQ(fs::file_size(dir_.at("precious")), 8u);
}

// ---- A new backup.

TEST_F(CatalogOf, GivesABackupItsNameWhenItIsFinished) {
  NewBackup backup(catalog_, "app");
  EXPECT_EQ(backup.partialFolder(), dir_.path() / "app" / (backup.id() + ".partial"));
  EXPECT_TRUE(fs::is_directory(backup.partialFolder() / "data"));
  EXPECT_EQ(catalog_.backups("app"), Names{});
  EXPECT_EQ(catalog_.unfinished("app"), Names{backup.id() + ".partial"});
  backup.sync();
  backup.finish();
  EXPECT_EQ(catalog_.backups("app"), Names{backup.id()});
  EXPECT_EQ(catalog_.unfinished("app"), Names{});
  EXPECT_TRUE(fs::is_directory(backup.folder() / "data"));
}

TEST_F(CatalogOf, LeavesNothingOfABackupThatIsNotFinished) {
  {
    const NewBackup backup(catalog_, "app");
    std::ofstream(backup.partialFolder() / "data/file") << "contents";
  }
  EXPECT_EQ(catalog_.unfinished("app"), Names{});
  EXPECT_EQ(catalog_.backups("app"), Names{});
}

// The superuser removes anything: it is laid down meanwhile.
TEST_F(CatalogOf, RemovesFoldersThatAreForReadingOnly) {
  fs::permissions(dir_.path(), fs::perms::all);
  const bool isSuperuser = geteuid() == 0;
  ASSERT_TRUE(!isSuperuser || seteuid(65534) == 0);
  {
    const NewBackup backup(catalog_, "notes");
    const fs::path folder = backup.partialFolder() / "data/read-only/locked";
    fs::create_directories(folder);
    std::ofstream(folder / "file") << "text";
    fs::permissions(folder, fs::perms::none);
    fs::permissions(folder.parent_path(), fs::perms::owner_read | fs::perms::owner_exec);
  }
  EXPECT_EQ(catalog_.unfinished("notes"), Names{});
  ASSERT_TRUE(!isSuperuser || seteuid(0) == 0);
}

TEST_F(CatalogOf, RemovesWhatDidNotFinishHoweverDeepItIs) {
  const std::string left = "20261121T092532.123Z.partial";
  make({"app"});
  arvl_test::makeDeepTree(dir_.at("app/" + left));
  const arvl_test::DescriptorLimit limit(64);
  const NewBackup backup(catalog_, "app");
  EXPECT_EQ(backup.unfinished().removed, Names{left});
  EXPECT_EQ(catalog_.unfinished("app"), Names{backup.id() + ".partial"});
}

TEST_F(CatalogOf, LeavesNothingOfABackupThatIsNotFinishedHoweverDeepItIs) {
  const arvl_test::DescriptorLimit limit(64);
  {
    const NewBackup backup(catalog_, "app");
    arvl_test::makeDeepTree(backup.partialFolder() / "data/deep");
  }
  EXPECT_EQ(catalog_.unfinished("app"), Names{});
}

TEST_F(CatalogOf, RemovesWhatDidNotFinishBeforeTheNext) {
  make({"app/20261121T092532.123Z.partial/data/folder", "app/20261121T092532.124Z.partial"});
  const NewBackup backup(catalog_, "app");
  EXPECT_EQ(backup.unfinished().removed,
            (Names{"20261121T092532.123Z.partial", "20261121T092532.124Z.partial"}));
  EXPECT_EQ(catalog_.unfinished("app"), Names{backup.id() + ".partial"});
}

TEST_F(CatalogOf, MakesABackupBesideOneThatCannotBeRemoved) {
  const std::string stuck = "29991231T235959.999Z.partial";
  make({"app/20261121T092532.124Z.partial", "app/" + stuck + "/data/mounted"});
  const arvl_test::SmallFileSystem disk(dir_.at("app/" + stuck + "/data/mounted"), "size=64k");
  if (!disk.isMounted()) {
    GTEST_SKIP() << "mounting is not permitted here";
  }
  const NewBackup backup(catalog_, "app");
  EXPECT_EQ(backup.unfinished().removed, Names{"20261121T092532.124Z.partial"});
  EXPECT_EQ(backup.unfinished().errors,
            Names{"cannot remove \"mounted\" in \"" + dir_.at("app/" + stuck) +
                  "\": Device or resource busy"});
  EXPECT_EQ(backup.id(), "30000101T000000.000Z");  // and not within the one that is there
}

TEST_F(CatalogOf, IsClearedOfWhatDidNotFinishUnlessThatIsInUse) {
  make({"app/20261121T092532.123Z.partial", "app/20261121T092532.123Z", "other"});
  EXPECT_EQ(removeUnfinished(catalog_, "app").removed, Names{"20261121T092532.123Z.partial"});
  EXPECT_EQ(catalog_.backups("app"), Names{"20261121T092532.123Z"});
  EXPECT_EQ(removeUnfinished(catalog_, "other").removed, Names{});
  EXPECT_TRUE(fs::is_empty(dir_.at("other")));  // where there is nothing to do, nothing is made
  const NewBackup running(catalog_, "app");
  EXPECT_THROW(removeUnfinished(catalog_, "app"), StoreBusy);
  EXPECT_TRUE(fs::exists(running.partialFolder()));
}

}  // namespace
}  // namespace arvl_host
