#include "text/dates.h"

#include <gtest/gtest.h>

namespace arvl_host {
namespace {

TEST(DateText, IsInUtcToTheSecond) {
  EXPECT_EQ(dateText(1767261845123456), "2026-01-01 10:04:05 UTC");
}

TEST(IsoDate, IsInUtcToTheSecond) {
  EXPECT_EQ(isoDate(1767261845123456), "2026-01-01T10:04:05Z");
}

}  // namespace
}  // namespace arvl_host
