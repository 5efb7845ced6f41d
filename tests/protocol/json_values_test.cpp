#include "protocol/json_values.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <string>

#include "protocol/json_text.h"

namespace {

using namespace ZARN::ARVLAPP;

std::size_t valuesIn(const Json::Value &value) {
  std::size_t count = 1;
  for (const Json::Value &member : value) {
    count += valuesIn(member);
  }
  return count;
}

// Counts the values that the parser creates from the text.
std::size_t valuesOf(const std::string &text) {
  Json::Value value;
  EXPECT_TRUE(parseJsonText(text.data(), text.data() + text.size(), value)) << text;
  return valuesIn(value);
}

TEST(CountJsonValues, CountsTheValuesInArraysAndObjects) {
  for (const std::string text : {"1", "[1]", "[1,2,3]", R"({"a":1,"b":[null,"x"]})", "[[[1]]]"}) {
    EXPECT_EQ(countJsonValues(text), valuesOf(text)) << text;
  }
}

TEST(CountJsonValues, CountsNothingInStrings) {
  EXPECT_EQ(countJsonValues(R"("[[{{,,,,")"), 1u);
  EXPECT_EQ(countJsonValues(R"("\",[\\",[1)"), 3u);  // the string ends before the comma
  EXPECT_EQ(countJsonValues(R"(["//","/*",1])"), 4u);
}

TEST(CountJsonValues, CountsNothingInComments) {
  EXPECT_EQ(countJsonValues("/* ,,, \" */[1]// ,,, \"\n"), 2u);
  EXPECT_EQ(countJsonValues("// \"\r[1,2]"), 3u);
  EXPECT_EQ(countJsonValues("/*/ ,, */[1]"), 2u);
}

// A quotation mark in a comment does not start a string. A slash in a string does not start a comment.
TEST(CountJsonValues, IgnoresQuotesInCommentsAndSlashesInStrings) {
  for (const std::string text :
       {"[/*\"*/1,2,3/*\"*/]", "[//\"\n1,2,3//\"\n]", "[\"/*\",1,2,3,\"*/\"]", "[\"//\",1,2,3\n]",
        "[\"\\\\\",1,2,\"\\\"\"]", "[//\\\n1,2,3]", "[/**/1,2,/***/3]"}) {
    EXPECT_GE(countJsonValues(text), valuesOf(text)) << text;
  }
}

TEST(CountJsonValues, AcceptsAnyText) {
  for (const std::string text : {"", "\"", "\"\\", "/", "/*", "/* *", "//", "\"\\\"", "x/y"}) {
    EXPECT_EQ(countJsonValues(text), 1u) << text;
  }
  EXPECT_EQ(countJsonValues(",]}"), 2u);
}

}  // namespace
