#include "text/hex.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace arvl_host {
namespace {

TEST(Hex, DecodesItsOwnText) {
  std::string bytes;
  EXPECT_EQ(toHex(std::string_view("\x00\x7f\xff", 3)), "007fff");
  ASSERT_TRUE(fromHex("007fff", bytes));
  EXPECT_EQ(bytes, std::string("\x00\x7f\xff", 3));
  EXPECT_FALSE(fromHex("007", bytes));
  EXPECT_FALSE(fromHex("0g", bytes));
}

}  // namespace
}  // namespace arvl_host
