#include "support/rule_case.h"

#include <gtest/gtest.h>

#include "protocol/json_text.h"
#include "support/log_capture.h"
#include "support/log_source.h"

namespace arvl_test {

using ZARN::ARVLAPP::PACKET_TYPE;
using ZARN::ARVLAPP::toJsonText;
using ZARN::ARVLAPP::Util;

namespace {

LogLines asLines(const std::vector<std::string> &messages) {
  LogLines lines;
  for (const std::string &message : messages) {
    lines.push_back("protocol_util.cpp: " + message);
  }
  return lines;
}

}  // namespace

void checkRule(PACKET_TYPE type, const Json::Value &payload, const RuleCase &row) {
  const std::string before = toJsonText(payload);
  LogCapture capture;
  const bool valid = Util::isValidPacket(type, payload);
  const std::vector<LogRecord> records = capture.takeRecords();

  EXPECT_EQ(valid, row.verdict == Verdict::kValid);
  EXPECT_EQ(toLines(records), asLines(row.messages));
  EXPECT_TRUE(nameTheirStatements(records));
  EXPECT_EQ(toJsonText(payload), before);
}

void checkRule(PACKET_TYPE type, const std::vector<RuleCase> &cases) {
  for (const RuleCase &row : cases) {
    SCOPED_TRACE(row.payload);
    checkRule(type, parseJson(row.payload), row);
  }
}

}  // namespace arvl_test
