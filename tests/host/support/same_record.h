#ifndef ARVL_TESTS_HOST_SUPPORT_SAME_RECORD_H_
#define ARVL_TESTS_HOST_SUPPORT_SAME_RECORD_H_

#include <gtest/gtest.h>

#include "backup/file_record.h"

namespace arvl_test {

inline void expectSame(const arvl_host::FileRecord &found, const arvl_host::FileRecord &expected) {
  EXPECT_EQ(found.path, expected.path);
  EXPECT_EQ(found.type, expected.type);
  EXPECT_EQ(found.size, expected.size);
  EXPECT_EQ(found.mode, expected.mode);
  EXPECT_EQ(found.mtime, expected.mtime);
  EXPECT_EQ(found.mtimeNsec, expected.mtimeNsec);
  EXPECT_EQ(found.sha256, expected.sha256);
  EXPECT_EQ(found.target, expected.target);
}

}  // namespace arvl_test

#endif  // ARVL_TESTS_HOST_SUPPORT_SAME_RECORD_H_
