#include "files/read_lease.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "support/temp_dir.h"

namespace arvl_host {
namespace {

class ReadLeaseOf : public testing::Test {
 protected:
  void SetUp() override {
    if (!ReadLease(path_.get()).isHeld()) {
      GTEST_SKIP() << "the file system has no leases";
    }
  }

  UniqueFd openFor(int flags) const { return UniqueFd(open(file_.c_str(), flags | O_CLOEXEC)); }

  const arvl_test::TempDir dir_;
  const std::string file_ = dir_.makeFile("file", "contents");
  const UniqueFd path_{open(file_.c_str(), O_PATH | O_CLOEXEC)};
};

TEST_F(ReadLeaseOf, IsHeldWhileOthersOnlyRead) {
  const UniqueFd reader = openFor(O_RDONLY);
  const ReadLease lease(path_.get());
  EXPECT_TRUE(lease.isHeld());
  EXPECT_FALSE(lease.isRefusedByWriter());
}

TEST_F(ReadLeaseOf, IsRefusedByAWriter) {
  {
    const UniqueFd writer = openFor(O_WRONLY);
    const ReadLease lease(path_.get());
    EXPECT_FALSE(lease.isHeld());
    EXPECT_TRUE(lease.isRefusedByWriter());
  }
  EXPECT_TRUE(ReadLease(path_.get()).isHeld());
}

// The signal to the lease holder must not end this process.
TEST_F(ReadLeaseOf, IsLostToALaterWriterWithoutEndingTheProcess) {
  const ReadLease lease(path_.get());
  ASSERT_TRUE(lease.isHeld());
  EXPECT_FALSE(openFor(O_WRONLY | O_NONBLOCK));
  EXPECT_EQ(errno, EWOULDBLOCK);
  EXPECT_FALSE(lease.isHeld());
}

TEST_F(ReadLeaseOf, IsNotPossibleOnADirectory) {
  const UniqueFd directory(open(dir_.path().c_str(), O_PATH | O_CLOEXEC));
  const ReadLease lease(directory.get());
  EXPECT_FALSE(lease.isHeld());
  EXPECT_FALSE(lease.isRefusedByWriter());
}

}  // namespace
}  // namespace arvl_host
