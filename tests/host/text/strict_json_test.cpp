#include "text/strict_json.h"

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>

#include <limits>
#include <memory>
#include <string>
#include <string_view>

namespace arvl_host {
namespace {

std::string jsonString(std::string_view text) {
  std::string out;
  appendJsonString(out, text);
  return out;
}

std::string compact(const Json::Value &value) {
  std::string out;
  EXPECT_TRUE(appendJson(out, value, JsonLayout::kCompact));
  return out;
}

Json::Value parse(const std::string &text) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) << text;
  return value;
}

std::string throughJson(const std::string &text) {
  return restoreBytes(parse("[" + jsonString(text) + "]"))[0].asString();
}

TEST(JsonString, KeepsTextAsItIs) {
  EXPECT_EQ(jsonString("Größe ☃ 😀 100% /"), "\"Größe ☃ 😀 100% /\"");
}

TEST(JsonString, EscapesTheCharactersThatJsonRequires) {
  EXPECT_EQ(jsonString(std::string_view("\"\\\b\f\n\r\t\0\x1f", 9)),
            R"("\"\\\b\f\n\r\t\u0000\u001f")");
}

TEST(JsonString, EscapesHiddenCharacters) {
  EXPECT_EQ(jsonString("\x7f\u0085\u200b\u202e\u2066\ufeff"),
            R"("\u007f\u0085\u200b\u202e\u2066\ufeff")");
}

TEST(JsonString, EscapesInvalidBytes) {
  EXPECT_EQ(jsonString("a\xff\x80z"), R"("a\udcff\udc80z")");
}

TEST(JsonString, EscapesMalformedUtf8) {
  EXPECT_EQ(jsonString("\xc0\xaf"), R"("\udcc0\udcaf")") << "overlong";
  EXPECT_EQ(jsonString("\xe0\x80\xaf"), R"("\udce0\udc80\udcaf")") << "overlong";
  EXPECT_EQ(jsonString("\xed\xb2\x80"), R"("\udced\udcb2\udc80")") << "a surrogate";
  EXPECT_EQ(jsonString("\xf4\x90\x80\x80"), R"("\udcf4\udc90\udc80\udc80")") << "beyond Unicode";
  EXPECT_EQ(jsonString("\xe2\x98"), R"("\udce2\udc98")") << "cut";
}

TEST(JsonString, KeepsEveryByte) {
  std::string every;
  for (int first = 0; first < 256; ++first) {
    for (const int second : {0x00, 0x41, 0x80, 0xb2, 0xff}) {
      every += static_cast<char>(first);
      every += static_cast<char>(second);
    }
  }
  every += "\xed\xb2\x80 ☃ 😀";
  EXPECT_EQ(throughJson(every), every);
}

TEST(JsonText, KeepsKeysAndValuesOfEveryType) {
  EXPECT_EQ(
      compact(parse(R"({"a":[1,-2,18446744073709551615,1.5,true,false,null,"x",{},[]],"b":{}})")),
      R"({"a":[1,-2,18446744073709551615,1.5,true,false,null,"x",{},[]],"b":{}})");
}

TEST(JsonText, RestoresTheBytesOfKeysAndValues) {
  Json::Value value;
  value["k\xff"]["x"].append("v\xfe");
  EXPECT_EQ(compact(value), R"({"k\udcff":{"x":["v\udcfe"]}})");
  EXPECT_EQ(restoreBytes(parse(compact(value))), value);
}

TEST(JsonText, WritesNullForInfinityAndNan) {
  EXPECT_EQ(compact(Json::Value(std::numeric_limits<double>::infinity())), "null");
  EXPECT_EQ(compact(Json::Value(std::numeric_limits<double>::quiet_NaN())), "null");
}

TEST(JsonText, IndentsOnRequest) {
  std::string out;
  ASSERT_TRUE(
      appendJson(out, parse(R"({"a":[1,2],"b":{},"c":{"d":null}})"), JsonLayout::kIndented));
  EXPECT_EQ(
      out, "{\n  \"a\": [\n    1,\n    2\n  ],\n  \"b\": {},\n  \"c\": {\n    \"d\": null\n  }\n}");
}

TEST(JsonText, RejectsNestingThatIsTooDeepForReaders) {
  Json::Value value;
  for (int depth = 0; depth < 200; ++depth) {
    Json::Value outer(Json::arrayValue);
    outer.append(value);
    value = outer;
  }
  std::string out;
  EXPECT_TRUE(appendJson(out, value, JsonLayout::kCompact));
  Json::Value deeper;
  deeper["a"] = value;
  EXPECT_FALSE(appendJson(out, deeper, JsonLayout::kCompact));
}

// Returns the text that writeJson() passes on, and expects short pieces.
std::string written(const Json::Value &value, JsonLayout layout) {
  std::string text;
  const JsonSink sink = [&text](std::string_view piece) {
    EXPECT_LT(piece.size(), 70000u);
    text += piece;
  };
  EXPECT_TRUE(writeJson(sink, value, layout));
  return text;
}

TEST(WriteJson, WritesTheTextOfAppendJsonInShortPieces) {
  Json::Value value;
  value["long"] = std::string(1000000, '\1');
  value[std::string(1000000, 'k')] = "é";
  for (int i = 0; i < 50000; ++i) {
    value["many"].append(i);
  }
  for (const Json::Value &each : {value, Json::Value(), Json::Value("x"), value["many"]}) {
    for (const JsonLayout layout : {JsonLayout::kCompact, JsonLayout::kIndented}) {
      std::string expected;
      ASSERT_TRUE(appendJson(expected, each, layout));
      EXPECT_TRUE(written(each, layout) == expected);
    }
  }
}

TEST(WriteJson, WritesNothingOfAValueThatNestsTooDeep) {
  Json::Value value = "x";
  for (int levels = 1; levels <= 200; ++levels) {
    Json::Value array(Json::arrayValue);
    array.append(value);
    value.swap(array);
  }
  EXPECT_EQ(written(value, JsonLayout::kCompact),
            std::string(200, '[') + "\"x\"" + std::string(200, ']'));
  Json::Value deeper(Json::arrayValue);
  deeper.append(value);
  std::string text;
  EXPECT_FALSE(appendJson(text, deeper, JsonLayout::kCompact));
  EXPECT_EQ(text, "");
  const JsonSink sink = [](std::string_view piece) { ADD_FAILURE() << piece; };
  EXPECT_FALSE(writeJson(sink, deeper, JsonLayout::kCompact));
}

}  // namespace
}  // namespace arvl_host
