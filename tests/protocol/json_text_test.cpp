#include "protocol/json_text.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <string>

namespace {

using namespace ZARN::ARVLAPP;

bool parse(const std::string &text, Json::Value &value, std::string *error = nullptr) {
  return parseJsonText(text.data(), text.data() + text.size(), value, error);
}

TEST(ParseJsonText, AcceptsCommentsRepeatedKeysAndTextAfterTheValue) {
  Json::Value value;
  EXPECT_TRUE(parse("{/* one */\"a\":1, // two\n\"a\":2} and more", value));
  EXPECT_EQ(value["a"], 2);
  EXPECT_TRUE(parse("{\"a\":3}\r\n\t ", value));
  EXPECT_EQ(value["a"], 3);
}

TEST(ParseJsonText, ReportsTheErrorAndItsPosition) {
  Json::Value value;
  std::string error;
  EXPECT_FALSE(parse("{\"a\":true,}", value, &error));
  EXPECT_EQ(error, "* Line 1, Column 11\n  Missing '}' or object member name\n");
  EXPECT_FALSE(parse("{\"a\":true,}", value));
  EXPECT_FALSE(parse("", value, &error));
  EXPECT_EQ(error, "* Line 1, Column 1\n  Syntax error: value, object or array expected.\n");
}

TEST(ParseJsonText, ReportsNestingThatIsTooDeep) {
  const std::string deep(5000, '[');
  Json::Value value;
  std::string error;
  EXPECT_FALSE(parse(deep, value, &error));
  EXPECT_EQ(error, "Exceeded stackLimit in readValue().");
  EXPECT_FALSE(parse(deep, value));
}

TEST(ToJsonText, IsCompactAndEndsWithALineFeed) {
  Json::Value value;
  EXPECT_EQ(toJsonText(value), "");
  value["b"].append(true);
  value["a"] = "\xC3\xA9";
  EXPECT_EQ(toJsonText(value), "{\"a\":\"\\u00e9\",\"b\":[true]}\n");
}

}  // namespace
