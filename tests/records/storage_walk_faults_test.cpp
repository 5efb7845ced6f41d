// Replaces nftw to make calls and results that the C library's nftw never makes.

#include <ftw.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <string>

#include "support/log_capture.h"
#include "zarn/arvlapp/storage_usage.h"
#include "zarn/visibility.h"

namespace {

using Visit = int (*)(const char *, const struct stat *, int, FTW *);

std::function<int(Visit)> walk;
std::string walkedPath;
int walkedDescriptors = 0;
int walkedFlags = 0;

}  // namespace

extern "C" {

ZARN_EXPORT int nftw(const char *path, Visit visit, int descriptors, int flags) {
  walkedPath = path;
  walkedDescriptors = descriptors;
  walkedFlags = flags;
  return walk(visit);
}

ZARN_EXPORT int nftw64(const char *path,
                       int (*visit)(const char *, const struct stat64 *, int, FTW *),
                       int descriptors, int flags) {
  return nftw(path, reinterpret_cast<Visit>(visit), descriptors, flags);
}

}  // extern "C"

namespace {

using namespace arvl_test;
using ZARN::ARVLAPP::StorageUsage;

struct stat directory() {
  struct stat status = {};
  status.st_mode = S_IFDIR;
  status.st_size = 7;
  status.st_blocks = 3;
  return status;
}

class Walk : public testing::Test {
 protected:
  bool over(const std::function<int(Visit)> &visits) {
    walk = visits;
    return usage_.addDirRecursive("/start");
  }

  StorageUsage usage_;
  LogCapture log_;
};

TEST_F(Walk, IsCalledWithTheExpectedArguments) {
  EXPECT_TRUE(over([](Visit) { return 0; }));
  EXPECT_EQ(walkedPath, "/start");
  EXPECT_EQ(walkedDescriptors, 512);
  EXPECT_EQ(walkedFlags, FTW_PHYS | FTW_MOUNT | FTW_ACTIONRETVAL);
  EXPECT_EQ(walkedFlags, 19);
}

TEST_F(Walk, StopsAtAVisitWithoutAPathOrARecord) {
  const LogLines expected = {
      "storage_usage.cpp: Error: bad param or no StorageUsage instance",
      "storage_usage.cpp: nftw [/start] failed. ret = [1], [Success]",
  };
  errno = 0;
  EXPECT_FALSE(over([](Visit visit) {
    const struct stat status = directory();
    return visit(nullptr, &status, FTW_D, nullptr);
  }));
  EXPECT_EQ(log_.take(), expected);
  EXPECT_FALSE(over([](Visit visit) { return visit("/x", nullptr, FTW_D, nullptr); }));
  EXPECT_EQ(log_.take(), expected);
}

TEST_F(Walk, StopsAtAVisitAfterItsEnd) {
  Visit kept = nullptr;
  EXPECT_TRUE(over([&](Visit visit) {
    kept = visit;
    return 0;
  }));
  const struct stat status = directory();
  EXPECT_EQ(kept("/x", &status, FTW_D, nullptr), 1);
  EXPECT_EQ(log_.take(),
            LogLines{"storage_usage.cpp: Error: bad param or no StorageUsage instance"});
  EXPECT_EQ(usage_.getDirCount(), 0);

  // A refused path also ends the walk that used the slot.
  EXPECT_FALSE(usage_.addDirRecursive("relative"));
  EXPECT_EQ(kept("/x", &status, FTW_D, nullptr), 1);
}

TEST_F(Walk, RequiresADotToBeADirectory) {
  errno = 0;
  EXPECT_FALSE(over([](Visit visit) {
    const struct stat status = directory();
    return visit(".", &status, FTW_F, nullptr);
  }));
  EXPECT_EQ(log_.take(),
            (LogLines{"storage_usage.cpp: Parameter error: root path [.] should be directory",
                      "storage_usage.cpp: nftw [/start] failed. ret = [1], [Success]"}));
  EXPECT_TRUE(over([](Visit visit) {
    const struct stat status = directory();
    return visit(".", &status, FTW_D, nullptr) + visit(".x", &status, FTW_F, nullptr);
  }));
  EXPECT_EQ(usage_.getDirCount(), 2);
}

TEST_F(Walk, StopsAtAnEntryThatTheWalkerCannotExamine) {
  for (const int flag : {FTW_DNR, FTW_NS}) {
    errno = 0;
    EXPECT_FALSE(over([flag](Visit visit) {
      const struct stat status = directory();
      return visit("/x", &status, flag, nullptr);
    }));
    EXPECT_EQ(log_.take(),
              (LogLines{"storage_usage.cpp: failed to stat: [/x], flag = " + std::to_string(flag),
                        "storage_usage.cpp: nftw [/start] failed. ret = [1], [Success]"}));
  }
}

TEST_F(Walk, CountsByTheRecordNotByTheFlag) {
  EXPECT_TRUE(over([](Visit visit) {
    const struct stat status = directory();
    int stops = 0;
    for (const int flag : {FTW_F, FTW_D, FTW_DP, FTW_SL, FTW_SLN}) {
      stops += visit("/x", &status, flag, nullptr);
    }
    return stops;
  }));
  EXPECT_EQ(usage_.getDirCount(), 5);
  EXPECT_EQ(usage_.getSizeByte(), 35);
  EXPECT_EQ(usage_.getBlockCount(), 15);
}

TEST_F(Walk, TreatsEveryOtherResultOfTheWalkerAsSuccess) {
  EXPECT_TRUE(over([](Visit) { return 2; }));
  errno = ENOENT;
  EXPECT_FALSE(over([](Visit) { return -1; }));
  EXPECT_EQ(log_.take(), LogLines{"storage_usage.cpp: nftw [/start] failed. ret = [-1], [No such "
                                  "file or directory]"});
}

}  // namespace
