// One row of a table of payloads: the expected verdict and log of the rule book.
#ifndef ARVL_TESTS_SUPPORT_RULE_CASE_H_
#define ARVL_TESTS_SUPPORT_RULE_CASE_H_

#include <json/value.h>

#include <string>
#include <vector>

#include "support/json.h"
#include "zarn/arvlapp/protocol_util.h"

namespace arvl_test {

enum class Verdict { kValid, kInvalid };

struct RuleCase {
  std::string payload;  // JSON text
  Verdict verdict = Verdict::kValid;
  std::vector<std::string> messages;  // the log of protocol_util.cpp, in order
};

// Expects the verdict and the messages of each row. Expects also that each message names its own line of
// the source, and that the payload is unchanged.
void checkRule(ZARN::ARVLAPP::PACKET_TYPE type, const std::vector<RuleCase> &cases);

// Does the same for a value that cannot be written as text.
void checkRule(ZARN::ARVLAPP::PACKET_TYPE type, const Json::Value &payload, const RuleCase &row);

}  // namespace arvl_test

#endif  // ARVL_TESTS_SUPPORT_RULE_CASE_H_
