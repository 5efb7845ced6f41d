#include "text/utf8.h"

#include <gtest/gtest.h>

#include <string_view>

namespace arvl_host {
namespace {

TEST(IsUtf8, AcceptsWellFormedTextOnly) {
  EXPECT_TRUE(isUtf8(""));
  EXPECT_TRUE(isUtf8(std::string_view("Größe ☃ 😀\0\x1b", 18)));
  EXPECT_FALSE(isUtf8("a\xff"));
  EXPECT_FALSE(isUtf8("\xe2\x98")) << "cut";
}

TEST(CutText, SplitsNoCharacter) {
  EXPECT_EQ(cutText("a☃b", 9), "a☃b");
  EXPECT_EQ(cutText("a☃b", 4), "a☃");
  EXPECT_EQ(cutText("a☃b", 3), "a");
  EXPECT_EQ(cutText("a☃b", 2), "a");
  EXPECT_EQ(cutText("a☃b", 1), "a");
  EXPECT_EQ(cutText("😀", 3), "");
  EXPECT_EQ(cutText("a\x80\x80\x80\x80", 3), "a\x80\x80");
}

TEST(VisibleText, EscapesHiddenCharactersAndInvalidBytes) {
  EXPECT_EQ(visibleText(std::string_view("a\n\t\0\x1b[31m\x7f \xff ☃", 16)),
            "a\\n\\t\\x00\\x1b[31m\\x7f \\xff ☃");
  EXPECT_EQ(visibleText("\u0085\u202eevil"), "\\u0085\\u202eevil");
}

}  // namespace
}  // namespace arvl_host
