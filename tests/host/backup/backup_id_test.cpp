#include "backup/backup_id.h"

#include <gtest/gtest.h>

namespace arvl_host {
namespace {

TEST(BackupId, IsTheTimeToTheMillisecond) {
  EXPECT_EQ(backupId(1795253132123999), "20261121T092532.123Z");
  EXPECT_EQ(backupId(0), "19700101T000000.000Z");
}

TEST(BackupId, IsFollowedByTheNextMillisecond) {
  EXPECT_EQ(nextBackupId("20261121T092532.123Z"), "20261121T092532.124Z");
  EXPECT_EQ(nextBackupId("29991231T235959.999Z"), "30000101T000000.000Z");
}

TEST(BackupId, IsFoundInThePartialName) {
  EXPECT_EQ(partialName("20261121T092532.123Z"), "20261121T092532.123Z.partial");
  EXPECT_EQ(idOfPartial("20261121T092532.123Z.partial"), "20261121T092532.123Z");
  EXPECT_TRUE(isPartialName("20261121T092532.123Z.partial"));
  for (const char *name : {"", ".partial", "20261121T092532.123Z", "20261121T092532.123Z.partiaL",
                           "20261121T092532.123.partial"}) {
    EXPECT_FALSE(isPartialName(name)) << name;
  }
}

}  // namespace
}  // namespace arvl_host
