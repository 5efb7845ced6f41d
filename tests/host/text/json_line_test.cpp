#include "text/json_line.h"

#include <gtest/gtest.h>
#include <json/value.h>

namespace arvl_host {
namespace {

TEST(JsonLine, WritesMembersInTheOrderOfTheCalls) {
  JsonLine line;
  line.string("z", "a \"b\"\n\xff")
      .number("n", -5)
      .seconds("s", 12000034)
      .boolean("t", true)
      .boolean("f", false)
      .strings("none", {})
      .strings("two", {"a", "\\"});
  EXPECT_EQ(line.finish("\n"), R"({"z":"a \"b\"\n\udcff","n":-5,"s":12.000034,"t":true,"f":false,)"
                               R"("none":[],"two":["a","\\"]})"
                               "\n");
}

TEST(JsonLine, WithoutMembersIsAnEmptyObject) {
  EXPECT_EQ(JsonLine().finish(), "{}");
}

TEST(JsonLine, LeavesOutAValueThatNestsTooDeep) {
  Json::Value deep;
  for (int i = 0; i < 1000; ++i) {
    Json::Value outer(Json::arrayValue);
    outer.append(deep);
    deep = outer;
  }
  JsonLine line;
  EXPECT_TRUE(line.json("a", Json::Value(1)));
  EXPECT_FALSE(line.json("b", deep));
  EXPECT_TRUE(line.json("c", Json::Value()));
  EXPECT_EQ(line.finish(), R"({"a":1,"c":null})");
}

}  // namespace
}  // namespace arvl_host
