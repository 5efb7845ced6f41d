#include "zarn/backup/path.h"

#include <gtest/gtest.h>

namespace {

using ZARN::Backup::Path;

TEST(PathBasename, IsTheTextAfterTheFinalSlash) {
  EXPECT_EQ(Path::basename("/usr/lib/plugin/export"), "export");
  EXPECT_EQ(Path::basename("./summary"), "summary");
  EXPECT_EQ(Path::basename("a//b"), "b");
  EXPECT_EQ(Path::basename("/export"), "export");
}

TEST(PathBasename, IsTheWholeTextWithoutASlash) {
  EXPECT_EQ(Path::basename("can_import"), "can_import");
  EXPECT_EQ(Path::basename(".."), "..");
  EXPECT_EQ(Path::basename("a\\b"), "a\\b");
}

TEST(PathBasename, IsEmptyForAnEmptyPathAndAfterATrailingSlash) {
  EXPECT_EQ(Path::basename(""), "");
  EXPECT_EQ(Path::basename("/"), "");
  EXPECT_EQ(Path::basename("/usr/lib/"), "");
}

}  // namespace
