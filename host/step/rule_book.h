// Validates a packet with the rule book and collects the lines that it logs.
#ifndef ARVL_HOST_STEP_RULE_BOOK_H_
#define ARVL_HOST_STEP_RULE_BOOK_H_

#include <json/forwards.h>

#include "step/verdict.h"
#include "zarn/arvlapp/protocol_util.h"

namespace arvl_host {

// A payload that makes JsonCpp throw is invalid, and the exception's text is the reason.
Verdict judge(ZARN::ARVLAPP::PACKET_TYPE type, const Json::Value &payload);

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_RULE_BOOK_H_
