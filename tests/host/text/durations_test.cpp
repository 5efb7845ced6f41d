#include "text/durations.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace arvl_host {
namespace {

TEST(DurationText, HasTheUnitThatFits) {
  EXPECT_EQ(durationText(999), "999 µs");
  EXPECT_EQ(durationText(1000), "1.0 ms");
  EXPECT_EQ(durationText(48210), "48.2 ms");
  EXPECT_EQ(durationText(1234567), "1.23 s");
}

TEST(ClockText, OmitsZeroHours) {
  EXPECT_EQ(clockText(0), "0:00");
  EXPECT_EQ(clockText(7.9), "0:07");
  EXPECT_EQ(clockText(60), "1:00");
  EXPECT_EQ(clockText(3599.9), "59:59");
  EXPECT_EQ(clockText(3600), "1:00:00");
  EXPECT_EQ(clockText(3723), "1:02:03");
  EXPECT_EQ(clockText(360000), "100:00:00");
}

TEST(ClockText, AcceptsAnyNumber) {
  EXPECT_EQ(clockText(-1), "0:00");
  EXPECT_EQ(clockText(std::nan("")), "0:00");
  EXPECT_EQ(clockText(std::numeric_limits<double>::infinity()), "277777777777:46:40");
}

}  // namespace
}  // namespace arvl_host
