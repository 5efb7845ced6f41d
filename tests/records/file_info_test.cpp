#include "zarn/arvlapp/file_info.h"

#include <gtest/gtest.h>

namespace {

using ZARN::ARVLAPP::FileInfo;

TEST(FileInfo, HasNoTypeUntilOneIsSet) {
  const FileInfo file;
  EXPECT_EQ(file.getTypeStr(), "none");
  EXPECT_FALSE(file.isRegType());
  EXPECT_FALSE(file.isDirType());
  EXPECT_FALSE(file.isSymlinkType());
}

TEST(FileInfo, HasTheTypeThatWasSetLast) {
  FileInfo file;
  file.setSymlinkType();
  EXPECT_EQ(file.getTypeStr(), "symlink");
  EXPECT_TRUE(file.isSymlinkType());
  EXPECT_FALSE(file.isDirType());
  file.setDirType();
  EXPECT_EQ(file.getTypeStr(), "dir");
  EXPECT_TRUE(file.isDirType());
  EXPECT_FALSE(file.isSymlinkType());
  EXPECT_FALSE(file.isRegType());
  file.setRegType();
  EXPECT_EQ(file.getTypeStr(), "file");
  EXPECT_TRUE(file.isRegType());
  EXPECT_FALSE(file.isDirType());
}

TEST(FileInfo, KeepsNumbersUnchanged) {
  FileInfo file;
  file.setSizeByte(-5);
  file.setMtime(-1);
  EXPECT_EQ(file.getSizeByte(), -5);
  EXPECT_EQ(file.getMtime(), -1);
}

}  // namespace
