#include "files/remove_tree.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "files/unique_fd.h"
#include "host/support/store_error_of.h"
#include "support/deep_tree.h"
#include "support/files.h"
#include "support/small_file_system.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;

namespace arvl_host {
namespace {

using arvl_test::DescriptorLimit;
using arvl_test::namesIn;
using arvl_test::SmallFileSystem;
using arvl_test::storeErrorOf;
using Names = std::set<std::string>;

class RemoveTree : public testing::Test {
 protected:
  // Returns the error, or an empty string.
  std::string remove(const std::string &name) const {
    return storeErrorOf([&] { removeTree({directory_.get(), name, "/shown/" + name}); });
  }

  Names left() const { return namesIn(dir_.path()); }

  const arvl_test::TempDir dir_;
  const UniqueFd directory_{open(dir_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)};
};

TEST_F(RemoveTree, RemovesAnEntryOfAnyTypeAndNothingElse) {
  dir_.makeFile("file");
  dir_.makeFile("other");
  dir_.makeDir("empty");
  ASSERT_EQ(mkfifo(dir_.at("fifo").c_str(), 0600), 0);
  for (const char *name : {"file", "empty", "fifo", "missing"}) {
    EXPECT_EQ(remove(name), "");
  }
  EXPECT_EQ(left(), Names{"other"});
}

TEST_F(RemoveTree, RemovesATreeWithManyBranches) {
  for (const char *name : {"t/a/b/c", "t/a/b2/c", "t/x/.removed-1/y", "t/x/y/z"}) {
    dir_.makeFile(dir_.makeDir(name) + "/file");
  }
  dir_.makeFile("t/.removed-1");  // the names that it gives moved directories are in use
  dir_.makeFile(dir_.makeDir("t/.removed-2") + "/file");
  EXPECT_EQ(remove("t"), "");
  EXPECT_EQ(left(), Names{});
}

TEST_F(RemoveTree, NeedsFewDescriptorsForADeepTree) {
  arvl_test::makeDeepTree(dir_.at("deep"));
  const DescriptorLimit limit(64);
  EXPECT_EQ(remove("deep"), "");
  EXPECT_EQ(left(), Names{});
}

// In memory, where it takes a second.
TEST_F(RemoveTree, NeedsNoMoreDescriptorsForATreeDeeperThanTheirLimit) {
  const SmallFileSystem memory(dir_.makeDir("memory"), "size=1m,nr_inodes=0");
  if (!memory.isMounted()) {
    GTEST_SKIP() << "mounting is not permitted here";
  }
  arvl_test::makeDeepTree(dir_.at("memory/deep"), 20000);
  const DescriptorLimit limit(64);
  EXPECT_EQ(storeErrorOf([&] { removeTree({AT_FDCWD, dir_.at("memory/deep"), "/shown"}); }), "");
  EXPECT_EQ(namesIn(dir_.at("memory")), Names{});
}

TEST_F(RemoveTree, FollowsNoLink) {
  dir_.makeFile(dir_.makeDir("precious") + "/file");
  dir_.makeDir("t/sub");
  for (const char *link : {"t/link", "t/sub/link", "link"}) {
    fs::create_directory_symlink(dir_.at("precious"), dir_.at(link));
  }
  fs::permissions(dir_.at("precious"), fs::perms(0500));
  EXPECT_EQ(remove("t"), "");
  EXPECT_EQ(remove("link"), "");
  EXPECT_EQ(left(), Names{"precious"});
  EXPECT_EQ(namesIn(dir_.at("precious")), Names{"file"});
  EXPECT_EQ(fs::status(dir_.at("precious")).permissions(), fs::perms(0500));
}

// Root always has access, so the test becomes another user.
TEST_F(RemoveTree, RemovesDirectoriesThatDenyAccess) {
  fs::permissions(dir_.path(), fs::perms::all);
  const bool isSuperuser = geteuid() == 0;
  ASSERT_TRUE(!isSuperuser || seteuid(65534) == 0);
  for (const char *name : {"t", "t/none/none", "t/none/none/deeper", "t/read/read"}) {
    dir_.makeFile(dir_.makeDir(name) + "/file");
  }
  for (const char *name : {"t/none/none/deeper", "t/none/none", "t/none"}) {
    fs::permissions(dir_.at(name), fs::perms::none);
  }
  for (const char *name : {"t/read/read", "t/read", "t"}) {
    fs::permissions(dir_.at(name), fs::perms(0500));
  }
  EXPECT_EQ(remove("t"), "");
  ASSERT_TRUE(!isSuperuser || seteuid(0) == 0);
  EXPECT_EQ(left(), Names{});
}

TEST_F(RemoveTree, RemovesEverythingButABusyEntryAndNamesIt) {
  dir_.makeFile(dir_.makeDir("t/a/b") + "/file");
  dir_.makeFile("t/file");
  dir_.makeDir("t/a/mounted");
  const SmallFileSystem disk(dir_.at("t/a/mounted"), "size=64k");
  if (!disk.isMounted()) {
    GTEST_SKIP() << "mounting is not permitted here";
  }
  dir_.makeFile("t/a/mounted/precious");
  EXPECT_EQ(remove("t"), "cannot remove \"mounted\" in \"/shown/t\": Device or resource busy");
  EXPECT_EQ(namesIn(dir_.at("t")), Names{"a"});
  EXPECT_EQ(namesIn(dir_.at("t/a")), Names{"mounted"});
  EXPECT_EQ(namesIn(dir_.at("t/a/mounted")), Names{"precious"});
}

}  // namespace
}  // namespace arvl_host
