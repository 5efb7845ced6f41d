#include "backup/new_backup.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/deep_tree.h"
#include "support/small_file_system.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;

namespace arvl_host {
namespace {

using Names = std::vector<std::string>;

class NewBackupIn : public testing::Test {
 protected:
  void make(const Names &folders) const {
    for (const std::string &folder : folders) {
      dir_.makeDir(folder);
    }
  }

  const arvl_test::TempDir dir_;
  const Catalog catalog_{dir_.path()};
};

TEST_F(NewBackupIn, ChoosesAnIdAfterTheLastEvenIfTheClockIsBehind) {
  make({"app/29991231T235959.999Z"});
  NewBackup backup(catalog_, "app");
  EXPECT_EQ(backup.id(), "30000101T000000.000Z");
  backup.finish();
  EXPECT_EQ(catalog_.find("app", ""), "30000101T000000.000Z");
}

TEST_F(NewBackupIn, RenamesABackupWhenItIsFinished) {
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

TEST_F(NewBackupIn, RemovesItselfIfItIsNotFinished) {
  {
    const NewBackup backup(catalog_, "app");
    std::ofstream(backup.partialFolder() / "data/file") << "contents";
  }
  EXPECT_EQ(catalog_.unfinished("app"), Names{});
  EXPECT_EQ(catalog_.backups("app"), Names{});
}

// Drops root privileges, because root can remove anything.
TEST_F(NewBackupIn, RemovesReadOnlyDirectories) {
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

TEST_F(NewBackupIn, RemovesAnEarlierUnfinishedBackupOfAnyDepth) {
  const std::string left = "20261121T092532.123Z.partial";
  make({"app"});
  arvl_test::makeDeepTree(dir_.at("app/" + left));
  const arvl_test::DescriptorLimit limit(64);
  const NewBackup backup(catalog_, "app");
  EXPECT_EQ(backup.unfinished().removed, Names{left});
  EXPECT_EQ(catalog_.unfinished("app"), Names{backup.id() + ".partial"});
}

TEST_F(NewBackupIn, RemovesItselfAtAnyDepthIfItIsNotFinished) {
  const arvl_test::DescriptorLimit limit(64);
  {
    const NewBackup backup(catalog_, "app");
    arvl_test::makeDeepTree(backup.partialFolder() / "data/deep");
  }
  EXPECT_EQ(catalog_.unfinished("app"), Names{});
}

TEST_F(NewBackupIn, RemovesEarlierUnfinishedBackups) {
  make({"app/20261121T092532.123Z.partial/data/folder", "app/20261121T092532.124Z.partial"});
  const NewBackup backup(catalog_, "app");
  EXPECT_EQ(backup.unfinished().removed,
            (Names{"20261121T092532.123Z.partial", "20261121T092532.124Z.partial"}));
  EXPECT_EQ(catalog_.unfinished("app"), Names{backup.id() + ".partial"});
}

TEST_F(NewBackupIn, IsCreatedNextToAnUnfinishedBackupThatCannotBeRemoved) {
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
  EXPECT_EQ(backup.id(), "30000101T000000.000Z");  // not the ID of the existing directory
}

TEST_F(NewBackupIn, IsClearedOfUnfinishedBackupsUnlessTheyAreInUse) {
  make({"app/20261121T092532.123Z.partial", "app/20261121T092532.123Z", "other"});
  EXPECT_EQ(removeUnfinished(catalog_, "app").removed, Names{"20261121T092532.123Z.partial"});
  EXPECT_EQ(catalog_.backups("app"), Names{"20261121T092532.123Z"});
  EXPECT_EQ(removeUnfinished(catalog_, "other").removed, Names{});
  EXPECT_TRUE(fs::is_empty(dir_.at("other")));  // no lock file is created
  const NewBackup running(catalog_, "app");
  EXPECT_THROW(removeUnfinished(catalog_, "app"), StoreBusy);
  EXPECT_TRUE(fs::exists(running.partialFolder()));
}

}  // namespace
}  // namespace arvl_host
