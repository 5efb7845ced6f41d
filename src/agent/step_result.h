// The outcome of a job step, as every completion reports it. Logs nothing.
#ifndef ZARN_AGENT_STEP_RESULT_H_
#define ZARN_AGENT_STEP_RESULT_H_

#include <json/value.h>

#include <string>

namespace ZARN {
namespace ARVLAPP {

// A failure until setSuccess is called.
class StepResult {
 public:
  void setSuccess() { success_ = true; }
  void setFailure() { success_ = false; }
  bool isSuccess() const { return success_; }

  // Sets the reason of a failure.
  void setErrorMsg(const std::string &section, const std::string &key) {
    errorSection_ = section;
    errorKey_ = key;
  }

  // Returns the result object. A failure has "err_msg" only if section and key are both non-empty.
  Json::Value toJson() const {
    Json::Value result(Json::objectValue);
    result["success"] = success_;
    if (!success_ && !errorSection_.empty() && !errorKey_.empty()) {
      result["err_msg"]["section"] = errorSection_;
      result["err_msg"]["key"] = errorKey_;
    }
    return result;
  }

 private:
  bool success_ = false;
  std::string errorSection_;
  std::string errorKey_;
};

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_AGENT_STEP_RESULT_H_
