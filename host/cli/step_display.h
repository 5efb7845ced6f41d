// Shows a step to a person, for "arvl-host step".
#ifndef ARVL_HOST_CLI_STEP_DISPLAY_H_
#define ARVL_HOST_CLI_STEP_DISPLAY_H_

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "step/step_listener.h"
#include "step/step_runner.h"
#include "text/tally.h"

namespace arvl_host {

// Writes to standard output, a line at a time. Each line says where it comes from.
class StepDisplay : public StepListener {
 public:
  void onStart(const StepRequest &request, std::int64_t pid) override;
  void onLine(const PluginLine &line) override;
  void onGarbage(Side from, std::string_view bytes, const std::string &reason) override;
  void onAnswer(ZARN::ARVLAPP::PACKET_TYPE request, const Json::Value &response,
                const std::optional<std::string> &denial) override;

  static void showProgress(const std::string &stage, int percentage);
  static void showSkipped(const Tally &skipped);
  static void showResult(const std::string &step, const StepResult &result);
};

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_STEP_DISPLAY_H_
