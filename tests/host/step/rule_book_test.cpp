#include "step/rule_book.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <string>
#include <vector>

#include "support/json.h"

namespace {

using namespace ZARN::ARVLAPP;
using arvl_host::judge;
using arvl_host::Verdict;
using arvl_test::parseJson;
using Lines = std::vector<std::string>;

TEST(RuleBook, GivesNoLinesForAValidPacket) {
  const Verdict verdict = judge(PACKET_IMPORT_COMPLETE, parseJson(R"({"success":true})"));
  EXPECT_TRUE(verdict.valid);
  EXPECT_EQ(verdict.lines, Lines{});
}

TEST(RuleBook, GivesItsReasonsInnermostFirstAndWithoutPlaces) {
  const Verdict verdict = judge(PACKET_IMPORT_COMPLETE, parseJson("{}"));
  EXPECT_FALSE(verdict.valid);
  EXPECT_EQ(verdict.lines,
            (Lines{"no member [success]", "invalid result object", "invalid import_complete"}));
}

TEST(RuleBook, GivesTheLinesOfAValidPacketToo) {
  const Verdict verdict = judge(PACKET_LIST_DIR_REQUEST, parseJson(R"({"request_id":"r"})"));
  EXPECT_TRUE(verdict.valid);
  EXPECT_EQ(verdict.lines, Lines{"no member [path]"});
}

TEST(RuleBook, CallsAPayloadInvalidThatCannotBeConverted) {
  const Verdict verdict = judge(
      PACKET_EXPORT_RESULT_RESPONSE,
      parseJson(R"({"success":true,"export_result":{"success":[],"app_data_version":"1.0"}})"));
  EXPECT_FALSE(verdict.valid);
  EXPECT_EQ(verdict.lines, Lines{"Value is not convertible to bool."});
}

TEST(RuleBook, KeepsTheTextOfAPacketOutOfTheFormat) {
  const Verdict verdict = judge(PACKET_CREATE_DIR_REQUEST, parseJson(R"({"path":"%s%n 100 %"})"));
  ASSERT_EQ(verdict.lines.size(), 2u);
  EXPECT_EQ(verdict.lines[0], "invalid [path] not abs path [%s%n 100 %]");
}

}  // namespace
