#include "backup/file_index.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/support/same_record.h"

namespace arvl_host {
namespace {

FileRecord recordOf(const std::string &path, std::int64_t size = 0) {
  FileRecord record;
  record.path = path;
  record.size = size;
  return record;
}

std::vector<std::string> pathsOf(FileIndex &index) {
  std::vector<std::string> paths;
  index.forEach([&](const FileRecord &record) { paths.push_back(record.path); });
  return paths;
}

TEST(FileIndex, KeepsEveryMember) {
  FileRecord record;
  record.path = std::string("/a folder/na\xffme\n\0x", 17);
  record.type = FileType::kSymlink;
  record.size = (std::int64_t(1) << 62) + 1;
  record.mode = 07777;
  record.mtime = -5;
  record.mtimeNsec = 999999999;
  record.sha256 = std::string(64, 'f');
  record.target = std::string("\0\xfe", 2);
  FileIndex index;
  index.add(record);
  const std::optional<FileRecord> found = index.find(record.path);
  ASSERT_TRUE(found);
  arvl_test::expectSame(*found, record);
}

TEST(FileIndex, FindsOnlyThePathWithTheSameBytes) {
  FileIndex index;
  for (const char *path : {"/a", "/a/b", "/\xc3\xa4"}) {
    index.add(recordOf(path));
    EXPECT_TRUE(index.find(path));
  }
  for (const char *path : {"/", "/A", "/b", "/a/", "/a/b/c", "/a\xcc\x88", "a"}) {
    EXPECT_FALSE(index.find(path)) << path;
  }
}

TEST(FileIndex, ReplacesTheRecordOfAPath) {
  FileIndex index;
  index.add(recordOf("/a", 1));
  index.add(recordOf("/a", 2));
  EXPECT_EQ(index.find("/a")->size, 2);
  EXPECT_EQ(pathsOf(index).size(), 1u);
}

TEST(FileIndex, CountsTheDirectEntriesOfADirectory) {
  FileIndex index;
  for (const char *path : {"/a", "/b", "/a/1", "/a/2", "/a/2/3", "/ab/1"}) {
    index.add(recordOf(path));
  }
  EXPECT_EQ(index.countIn(""), 2u);
  EXPECT_EQ(index.countIn("/a"), 2u);
  EXPECT_EQ(index.countIn("/a/2"), 1u);
  EXPECT_EQ(index.countIn("/b"), 0u);
  EXPECT_EQ(index.countIn("/none"), 0u);
}

TEST(FileIndex, ListsDirectoryByDirectoryInByteOrder) {
  FileIndex index;
  for (const char *path : {"/b/x", "/\xff", "/a-/x", "/B", "/a/x", "/a/Y", "/a"}) {
    index.add(recordOf(path));
  }
  EXPECT_EQ(pathsOf(index),
            (std::vector<std::string>{"/B", "/a", "/\xff", "/a/Y", "/a/x", "/a-/x", "/b/x"}));
}

TEST(FileIndex, HoldsManyEntries) {
  FileIndex index;
  for (int i = 0; i < 20000; ++i) {
    index.add(recordOf("/folder/" + std::to_string(i), i));
  }
  EXPECT_EQ(index.countIn("/folder"), 20000u);
  EXPECT_EQ(index.find("/folder/19999")->size, 19999);
}

TEST(FileIndex, KnowsAChecksumUntilTheFileStatusChanges) {
  struct stat status = {};
  status.st_ino = 7;
  status.st_dev = 1;
  status.st_ctim = {100, 5};
  FileIndex index;
  index.addChecksum(status, "a checksum");
  EXPECT_EQ(index.checksumOf(status), "a checksum");
  status.st_mtim.tv_sec = 1;  // any process can set the modification time
  EXPECT_EQ(index.checksumOf(status), "a checksum");
  for (const auto change :
       {+[](struct stat &s) { s.st_ino = 8; }, +[](struct stat &s) { s.st_dev = 2; },
        +[](struct stat &s) { s.st_ctim.tv_sec = 101; },
        +[](struct stat &s) { s.st_ctim.tv_nsec = 6; }}) {
    struct stat other = status;
    change(other);
    EXPECT_EQ(index.checksumOf(other), "");
  }
  index.addChecksum(status, "another");
  EXPECT_EQ(index.checksumOf(status), "another");
  index.addMoved(status);
  EXPECT_EQ(index.checksumOf(status), "");
}

TEST(FileIndex, TellsWhichMovedFilesHaveChanged) {
  FileIndex index;
  EXPECT_FALSE(index.hasMoved());
  struct stat moved = {};
  moved.st_ino = 1;
  moved.st_ctim = {100, 5};
  index.addMoved(moved);
  EXPECT_TRUE(index.hasMoved());
  struct stat copied = moved;
  copied.st_ino = 2;
  index.addChecksum(copied, "a checksum");
  EXPECT_FALSE(index.hasChangedSinceMove(moved));
  EXPECT_FALSE(index.hasChangedSinceMove(copied));
  moved.st_ctim.tv_nsec = copied.st_ctim.tv_nsec = 6;
  EXPECT_TRUE(index.hasChangedSinceMove(moved));
  EXPECT_FALSE(index.hasChangedSinceMove(copied));  // a changed copy is hashed again
  moved.st_ctim = {101, 5};
  EXPECT_TRUE(index.hasChangedSinceMove(moved));
}

}  // namespace
}  // namespace arvl_host
