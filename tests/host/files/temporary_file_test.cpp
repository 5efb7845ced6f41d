#include "files/temporary_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>

#include "files/file_error.h"
#include "host/support/store_error_of.h"
#include "support/files.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;

namespace arvl_host {
namespace {

using arvl_test::bytesOf;
using arvl_test::storeErrorOf;

// Limits the size of the files that this process writes.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : oldHandler_(signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &old_);
    const rlimit limit = {bytes, old_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &old_);
    signal(SIGXFSZ, oldHandler_);
  }
  FileSizeLimit(const FileSizeLimit &) = delete;
  FileSizeLimit &operator=(const FileSizeLimit &) = delete;

 private:
  rlimit old_;
  void (*oldHandler_)(int);
};

class TemporaryFileIn : public testing::Test {
 protected:
  std::string temporary() const { return dir_.at(temporaryName(place_.name)); }
  bool isEmpty() const { return fs::is_empty(dir_.path()); }

  const arvl_test::TempDir dir_;
  const UniqueFd directory_{open(dir_.path().c_str(), O_PATH | O_DIRECTORY)};
  const Place place_{directory_.get(), "file", "/shown"};
};

TEST(TemporaryName, DiffersForEachNameAndHasOneLength) {
  EXPECT_EQ(temporaryName("f"), ".arvl-252f10c83610ebca.partial");
  EXPECT_NE(temporaryName("f"), temporaryName("g"));
  EXPECT_EQ(temporaryName(std::string(255, 'n')).size(), temporaryName("f").size());
}

TEST_F(TemporaryFileIn, IsRenamedByACommit) {
  for (const Durability durability : {Durability::kEachFile, Durability::kLeftToCaller}) {
    TemporaryFile file(place_);
    file.write("con\0tents", 9);
    EXPECT_EQ(bytesOf(temporary()).size(), 9u);
    file.commit(durability);
    EXPECT_FALSE(fs::exists(temporary()));
  }
  EXPECT_EQ(bytesOf(dir_.at("file")), std::string("con\0tents", 9));
}

TEST_F(TemporaryFileIn, LeavesTheOldContentWithoutACommit) {
  dir_.makeFile("file", "the old");
  {
    TemporaryFile file(place_);
    file.write("the new", 7);
    EXPECT_EQ(bytesOf(dir_.at("file")), "the old");
  }
  EXPECT_EQ(bytesOf(dir_.at("file")), "the old");
  EXPECT_FALSE(fs::exists(temporary()));
}

TEST_F(TemporaryFileIn, IsAccessibleToItsOwnerOnly) {
  const TemporaryFile file(place_);
  struct stat status;
  ASSERT_EQ(fstat(file.fd(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(TemporaryFileIn, ReplacesALeftover) {
  dir_.makeFile(temporaryName("file"), "what a killed process left, longer than the next");
  TemporaryFile file(place_);
  file.write("short", 5);
  file.commit(Durability::kEachFile);
  EXPECT_EQ(bytesOf(dir_.at("file")), "short");
}

TEST_F(TemporaryFileIn, IsNotWrittenThroughAnotherNameOfALeftover) {
  const std::string precious = dir_.makeFile("precious", "contents");
  fs::create_hard_link(precious, temporary());
  TemporaryFile file(place_);
  file.write("text", 4);
  file.commit(Durability::kEachFile);
  EXPECT_EQ(bytesOf(precious), "contents");
  EXPECT_EQ(bytesOf(dir_.at("file")), "text");
  EXPECT_EQ(fs::hard_link_count(dir_.at("file")), 1u);
}

TEST_F(TemporaryFileIn, ReplacesALeftoverOfAnotherUser) {
  dir_.makeFile(temporaryName("file"), "of another user");
  if (geteuid() != 0 || chown(temporary().c_str(), 65534, 65534) != 0) {
    GTEST_SKIP() << "cannot change the owner of a file";
  }
  const TemporaryFile file(place_);
  struct stat status;
  ASSERT_EQ(fstat(file.fd(), &status), 0);
  EXPECT_EQ(status.st_uid, 0u);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(TemporaryFileIn, ReplacesALeftoverOfAnyKindWithoutOpeningIt) {
  ASSERT_EQ(mkfifo(temporary().c_str(), 0600), 0);  // opening it would block
  TemporaryFile file(place_);
  file.write("text", 4);
  file.commit(Durability::kEachFile);
  EXPECT_TRUE(fs::is_regular_file(dir_.at("file")));
}

TEST_F(TemporaryFileIn, NamesALeftoverThatCannotBeRemoved) {
  fs::create_directory(temporary());
  EXPECT_EQ(storeErrorOf([&] { TemporaryFile file(place_); }),
            "cannot remove the leftover \"/" + temporaryName("file") + "\": Is a directory");
}

// In a directory like /tmp, only its owner may remove a file.
TEST_F(TemporaryFileIn, NamesALeftoverThatItIsNotPermittedToRemove) {
  dir_.makeFile(temporaryName("file"), "of another user");
  fs::permissions(dir_.path(), fs::perms(01777));
  if (geteuid() != 0) {
    GTEST_SKIP() << "cannot become another user";
  }
  ASSERT_EQ(seteuid(65534), 0);
  const std::string error = storeErrorOf([&] { TemporaryFile file(place_); });
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_EQ(error, "cannot remove the leftover \"/" + temporaryName("file") +
                       "\": Operation not permitted");
  EXPECT_EQ(bytesOf(temporary()), "of another user");
}

TEST_F(TemporaryFileIn, IsNotCommittedIfAnotherFileReplacedIt) {
  TemporaryFile file(place_);
  file.write("ours", 4);
  fs::remove(temporary());
  dir_.makeFile(temporaryName("file"), "half of another transfer's");
  EXPECT_EQ(storeErrorOf([&] { file.commit(Durability::kEachFile); }),
            "another transfer is writing \"/shown\"");
  EXPECT_FALSE(fs::exists(dir_.at("file")));
}

TEST_F(TemporaryFileIn, LeavesAFileThatReplacedIt) {
  {
    const TemporaryFile file(place_);
    fs::remove(temporary());
    dir_.makeFile(temporaryName("file"), "of another transfer");
  }
  EXPECT_EQ(bytesOf(temporary()), "of another transfer");
}

TEST_F(TemporaryFileIn, HasOneWriterAtATime) {
  TemporaryFile first(place_);
  first.write("the first", 9);
  EXPECT_EQ(storeErrorOf([&] { TemporaryFile second(place_); }),
            "another transfer is writing \"/shown\"");
  EXPECT_EQ(bytesOf(temporary()), "the first");  // the second one removes nothing
  first.commit(Durability::kEachFile);
  EXPECT_EQ(storeErrorOf([&] { TemporaryFile second(place_); }), "");
  EXPECT_EQ(bytesOf(dir_.at("file")), "the first");
}

TEST_F(TemporaryFileIn, IsNotWrittenThroughALink) {
  const std::string precious = dir_.makeFile("precious", "contents");
  fs::create_symlink(precious, temporary());
  {
    TemporaryFile file(place_);  // replaces the leftover link
    file.write("text", 4);
    EXPECT_FALSE(fs::is_symlink(temporary()));
  }
  EXPECT_EQ(bytesOf(precious), "contents");
}

TEST_F(TemporaryFileIn, ReportsAFailedWrite) {
  {
    const FileSizeLimit limit(4);
    TemporaryFile file(place_);
    file.write("four", 4);
    EXPECT_EQ(storeErrorOf([&] { file.write("five", 4); }),
              "cannot write \"/shown\": File too large");
  }
  EXPECT_TRUE(isEmpty());
}

TEST_F(TemporaryFileIn, ReportsAFailedCreation) {
  const Place gone = {-1, "file", "/shown"};
  EXPECT_EQ(storeErrorOf([&] { TemporaryFile file(gone); }),
            "cannot create \"/shown\": Bad file descriptor");
}

TEST_F(TemporaryFileIn, ReportsAFailedRename) {
  dir_.makeDir("file/full");
  {
    TemporaryFile file(place_);
    EXPECT_EQ(storeErrorOf([&] { file.commit(Durability::kEachFile); }),
              "cannot write \"/shown\": Is a directory");
  }
  EXPECT_FALSE(fs::exists(temporary()));
  EXPECT_TRUE(fs::exists(dir_.at("file/full")));
}

TEST_F(TemporaryFileIn, GetsTheTextOfAWriterInOrder) {
  std::string whole;
  TemporaryFile file(place_);
  TextWriter writer(file);
  for (int i = 0; i < 20000; ++i) {
    const std::string line = std::to_string(i) + "\n";
    writer.add(line);
    whole += line;
  }
  EXPECT_EQ(writer.finish(), sha256Of(whole));
  file.commit(Durability::kLeftToCaller);
  EXPECT_EQ(bytesOf(dir_.at("file")), whole);
}

TEST_F(TemporaryFileIn, ReportsAFailedWriteOfAWriter) {
  const FileSizeLimit limit(1 << 16);
  TemporaryFile file(place_);
  TextWriter writer(file);
  const std::string half(1 << 15, 'x');
  writer.add(half);
  writer.add(half);
  writer.add("x");  // stays in the buffer
  EXPECT_EQ(storeErrorOf([&] { writer.finish(); }), "cannot write \"/shown\": File too large");
}

}  // namespace
}  // namespace arvl_host
