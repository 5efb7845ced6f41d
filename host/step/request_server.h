// The interface of a framework that answers requests.
#ifndef ARVL_HOST_STEP_REQUEST_SERVER_H_
#define ARVL_HOST_STEP_REQUEST_SERVER_H_

#include <json/value.h>

#include <optional>

#include "zarn/arvlapp/protocol_util.h"

namespace arvl_host {

// Answers valid requests, one at a time. Requests that touch files are answered on the worker thread.
class RequestServer {
 public:
  virtual ~RequestServer() = default;
  // Returns the payload of the response, or nothing if the request is not served.
  virtual std::optional<Json::Value> answer(ZARN::ARVLAPP::PACKET_TYPE request,
                                            const Json::Value &payload) = 0;
  // Breaks off an answer in progress, because the step ends. May be called from another thread.
  virtual void cancel() = 0;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_REQUEST_SERVER_H_
