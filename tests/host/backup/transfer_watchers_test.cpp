#include "backup/transfer_watchers.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "host/support/store_error_of.h"

namespace arvl_host {
namespace {

using arvl_test::storeErrorOf;

struct stat statusOf(mode_t mode, ino_t inode) {
  struct stat status = {};
  status.st_mode = mode | 0644;
  status.st_ino = inode;
  status.st_size = 10;
  return status;
}

TEST(BackupWatcher, CountsCopiedFilesAndRemembersTheirChecksums) {
  FileIndex index;
  TransferMeter meter;
  BackupWatcher watcher(index, meter);
  watcher.onBytes(7);
  watcher.onBytes(3);
  watcher.onStored(statusOf(S_IFREG, 1), "a checksum");
  EXPECT_EQ(meter.files, 1u);
  EXPECT_EQ(meter.bytes, 10u);
  EXPECT_EQ(index.checksumOf(statusOf(S_IFREG, 1)), "a checksum");
}

TEST(TransferMeter, DoesNotCountDeniedTransfers) {
  FileIndex index;
  TransferMeter meter;
  BackupWatcher watcher(index, meter);
  const auto transfer = [&](bool isDelivered) {
    watcher.onBytes(7);
    watcher.onStored(statusOf(S_IFREG, 1), "a checksum");
    watcher.onMoved(statusOf(S_IFREG, 2));
    watcher.onTransferEnd(isDelivered);
  };
  transfer(true);
  transfer(false);
  EXPECT_EQ(meter.files, 2u);
  EXPECT_EQ(meter.bytes, 17u);
  watcher.onBytes(5);  // bytes of a running transfer are counted
  EXPECT_EQ(meter.bytes, 22u);
}

TEST(BackupWatcher, CountsMovedFiles) {
  FileIndex index;
  TransferMeter meter;
  BackupWatcher watcher(index, meter);
  watcher.onMoved(statusOf(S_IFREG, 1));
  watcher.onMoved(statusOf(S_IFLNK, 2));
  EXPECT_EQ(meter.files, 1u);
  EXPECT_EQ(meter.bytes, 10u);
}

TEST(BackupWatcher, DropsAChecksumWhenAMovedFileReusesItsInode) {
  FileIndex index;
  TransferMeter meter;
  BackupWatcher watcher(index, meter);
  for (const ino_t inode : {1, 2}) {
    watcher.onStored(statusOf(S_IFREG, inode), "a checksum");
  }
  watcher.onMoved(statusOf(S_IFREG, 1));  // the inode number of the copy is reused
  EXPECT_EQ(index.checksumOf(statusOf(S_IFREG, 1)), "");
  EXPECT_EQ(index.checksumOf(statusOf(S_IFREG, 2)), "a checksum");
}

TEST(BackupWatcher, WarnsOnceAboutEachFileWrittenDuringTheCopy) {
  FileIndex index;
  TransferMeter meter;
  BackupWatcher watcher(index, meter);
  watcher.onChanged("/a\n");
  watcher.onOpenForWriting("/b");
  watcher.onChanged("/b");
  EXPECT_EQ(watcher.changed().count, 2u);
  EXPECT_EQ(watcher.changed().texts, (std::vector<std::string>{"/a\n", "/b"}));
  EXPECT_EQ(watcher.warnings(),
            (std::vector<std::string>{
                "\"/a\\n\" was written while it was copied: the copy may hold parts of both",
                "\"/b\" was open for writing when it was to be moved: it was copied, and the copy "
                "may not hold all that is written"}));
  for (int i = 0; i < 200; ++i) {
    watcher.onChanged(std::to_string(i));
  }
  EXPECT_EQ(watcher.changed().count, 202u);
  EXPECT_EQ(watcher.changed().texts.size(), 100u);
  ASSERT_EQ(watcher.warnings().size(), 101u);
  EXPECT_EQ(watcher.warnings().back(),
            "100 different changed files have been shown; further ones are counted, not shown");
}

TEST(BackupWatcher, CountsAllVanishedFilesAndNames100) {
  FileIndex index;
  TransferMeter meter;
  BackupWatcher watcher(index, meter);
  for (int i = 0; i < 150; ++i) {
    watcher.onVanished("/" + std::to_string(i));
  }
  EXPECT_EQ(watcher.skipped().count, 150u);
  ASSERT_EQ(watcher.skipped().texts.size(), 100u);
  EXPECT_EQ(watcher.skipped().texts[99], "/99");
}

// Provides an index with a directory that holds a file and a link.
class RestoreWatcherOf : public testing::Test {
 protected:
  RestoreWatcherOf() {
    FileRecord record;
    record.path = "/folder";
    record.type = FileType::kDir;
    index_.add(record);
    record.path = "/folder/file";
    record.type = FileType::kFile;
    record.size = 10;
    record.sha256 = "known";
    index_.add(record);
    record.path = "/folder/link";
    record.type = FileType::kSymlink;
    record.target = "target";
    index_.add(record);
  }

  // Returns the status to deliver for the entry.
  struct stat enter(const std::string &path, mode_t mode, off_t size) {
    struct stat status = {};
    status.st_mode = mode;
    status.st_size = size;
    watcher_.onEntry(path, status);
    return status;
  }

  FileIndex index_;
  TransferMeter meter_;
  RestoreWatcher watcher_{index_, meter_};
};

TEST_F(RestoreWatcherOf, RestoresTheModeAndTimeOfTheManifest) {
  FileRecord record;
  record.path = "/script";
  record.mode = 0750;
  record.mtime = 100;
  record.mtimeNsec = 7;
  index_.add(record);
  const struct stat delivered = enter("/script", S_IFREG | 0777, 0);
  EXPECT_EQ(delivered.st_mode, S_IFREG | 0750U);
  EXPECT_EQ(delivered.st_mtim.tv_sec, 100);
  EXPECT_EQ(delivered.st_mtim.tv_nsec, 7);
}

TEST_F(RestoreWatcherOf, AcceptsUnchangedEntries) {
  enter("/folder", S_IFDIR, 4096);
  enter("/folder/file", S_IFREG, 10);
  enter("/folder/link", S_IFLNK, 6);
  watcher_.onFolderEnd("/folder", 2);
  watcher_.onFolderEnd("", 1);
  watcher_.onBytes(10);
  watcher_.onFile("/folder/file", "known");
  watcher_.onLink("/folder/link", "target");
  EXPECT_EQ(meter_.files, 1u);
  EXPECT_EQ(meter_.bytes, 10u);
}

TEST_F(RestoreWatcherOf, ReportsChangedEntries) {
  EXPECT_EQ(storeErrorOf([&] { enter("/new\n", S_IFREG, 0); }),
            "\"/new\\n\" was not backed up: the manifest has no such entry");
  EXPECT_EQ(storeErrorOf([&] { enter("/folder/file", S_IFREG, 11); }),
            "\"/folder/file\" is damaged: it has 11 bytes, and had 10");
  EXPECT_EQ(storeErrorOf([&] { enter("/folder/file", S_IFDIR, 10); }),
            "\"/folder/file\" is damaged: it is of type dir, and was of type file");
  EXPECT_EQ(storeErrorOf([&] { watcher_.onFolderEnd("", 0); }),
            "the directory \"/\" is damaged: it has 0 entries, and had 1");
  EXPECT_EQ(storeErrorOf([&] { watcher_.onFile("/folder/file", "other"); }),
            "\"/folder/file\" is damaged: its SHA-256 is other, and was known");
  EXPECT_EQ(storeErrorOf([&] { watcher_.onFile("/none", "known"); }),
            "\"/none\" was not backed up: the manifest has no such entry");
  EXPECT_EQ(storeErrorOf([&] { watcher_.onLink("/folder/link", "other"); }),
            "\"/folder/link\" is damaged: the link leads elsewhere than it did");
  EXPECT_EQ(meter_.files, 0u);
}

}  // namespace
}  // namespace arvl_host
