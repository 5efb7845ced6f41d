#include "text/sizes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace arvl_host {
namespace {

constexpr std::uint64_t kMebibyte = 1024 * 1024;
constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();

TEST(SizeText, HasTheUnitThatFits) {
  EXPECT_EQ(sizeText(0), "0 B");
  EXPECT_EQ(sizeText(999), "999 B");
  EXPECT_EQ(sizeText(1023), "1023 B");
  EXPECT_EQ(sizeText(1024), "1.0 KiB");
  EXPECT_EQ(sizeText(1536), "1.5 KiB");
  EXPECT_EQ(sizeText(58825114), "56.1 MiB");
  EXPECT_EQ(sizeText(3 * 1024 * kMebibyte), "3.0 GiB");
  EXPECT_EQ(sizeText(kMost), "16.0 EiB");
}

TEST(SizeText, NeverRoundsUpTo1024) {
  EXPECT_EQ(sizeText(kMebibyte - 1), "1.0 MiB");
  EXPECT_EQ(sizeText(kMebibyte - 103), "1023.9 KiB");
  EXPECT_EQ(sizeText(1024 * kMebibyte - 1), "1.0 GiB");
}

TEST(CountText, UsesTheSingularForOneOnly) {
  EXPECT_EQ(countText(0, "packet"), "0 packets");
  EXPECT_EQ(countText(1, "packet"), "1 packet");
}

}  // namespace
}  // namespace arvl_host
