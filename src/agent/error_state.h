// The error state that a plug-in reads with getErrno and getErrorString. Logs nothing.
#ifndef ZARN_AGENT_ERROR_STATE_H_
#define ZARN_AGENT_ERROR_STATE_H_

#include <json/value.h>

#include <string>

namespace ZARN {
namespace ARVLAPP {

// Holds the latest error. Nothing resets it.
class ErrorState {
 public:
  // The connection has ended or failed. The text stays as it was.
  void setConnectionLost() { number_ = 1; }

  // The framework has refused a request. Throws what JsonCpp throws if the member "error" cannot be
  // converted to a string; the number is set all the same.
  void setRefused(const Json::Value &answer) {
    number_ = 2;
    text_ = answer["error"].asString();
  }

  // The framework is too old for a request.
  void setUnsupported() {
    number_ = 3;
    text_ = "Arvelo not support";
  }

  int number() const { return number_; }
  const std::string &text() const { return text_; }

 private:
  int number_ = 0;
  std::string text_;
};

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_AGENT_ERROR_STATE_H_
