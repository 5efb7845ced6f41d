// The part of a framework that answers requests.
#ifndef ARVL_HOST_STEP_REQUEST_SERVER_H_
#define ARVL_HOST_STEP_REQUEST_SERVER_H_

#include <json/value.h>

#include <optional>

#include "zarn/arvlapp/protocol_util.h"

namespace arvl_host {

// Answers requests that the rule book has found valid, one at a time; those that touch files on a
// thread of their own.
class RequestServer {
 public:
  virtual ~RequestServer() = default;
  // The payload of the response; nothing if the request is not served at all.
  virtual std::optional<Json::Value> answer(ZARN::ARVLAPP::PACKET_TYPE request,
                                            const Json::Value &payload) = 0;
  // The step ends: an answer that is under way is not waited for. Called beside it.
  virtual void cancel() = 0;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_REQUEST_SERVER_H_
