// Runs the steps of a job and shows them to a person.
#ifndef ARVL_HOST_BACKUP_JOB_STEPS_H_
#define ARVL_HOST_BACKUP_JOB_STEPS_H_

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "backup/transfer_watchers.h"
#include "display/job_display.h"
#include "framework/framework.h"
#include "step/interruption.h"
#include "step/step_runner.h"
#include "text/tally.h"
#include "trace/trace_writer.h"

namespace arvl_host {

// The parameters for running a plug-in.
struct PluginRun {
  std::string folder;
  std::string frameworkVersion;
  std::chrono::milliseconds timeout;  // of each step
  std::chrono::milliseconds grace;
};

struct StepReport {
  std::string step;
  StepResult result;
};

// Runs steps, shows their progress and warnings, and keeps their reports.
class JobSteps : private StepListener {
 public:
  // All references have to outlive it. A trace without a file writes nothing.
  JobSteps(const PluginRun &run, JobDisplay &display, TraceWriter &trace,
           const TransferMeter &meter, Interruption &interruption);

  // Returns whether the plug-in has the step's executable. Throws std::runtime_error for one that cannot be run.
  bool has(const std::string &step) const;

  // Returns a callback for the progress that the plug-in reports.
  Framework::Progress progress();

  // Sets the number of bytes to transfer, from which the time left is computed.
  void expectBytes(std::optional<std::uint64_t> bytes) { expectedBytes_ = bytes; }

  // Runs a step and returns its result. Throws std::runtime_error if it cannot be started.
  const StepResult &run(const std::string &step, RequestServer &server);

  const std::vector<StepReport> &reports() const { return reports_; }
  // Counts every denied request and keeps the different reasons.
  const Tally &denials() const { return denials_; }

 private:
  void onStart(const StepRequest &request, std::int64_t pid) override;
  void onLine(const PluginLine &line) override { display_.pluginLine(line); }
  void onGarbage(Side from, std::string_view bytes, const std::string &reason) override;
  void onAnswer(ZARN::ARVLAPP::PACKET_TYPE request, const Json::Value &payload,
                const std::optional<std::string> &denial) override;
  void onCancel(Outcome why) override;
  void onTick() override;

  void takePercentage(const Json::Value &percentage);
  void showProgress();
  void deny(const std::string &denial);

  const PluginRun run_;
  JobDisplay &display_;
  TraceWriter &trace_;
  const TransferMeter &meter_;
  Interruption &interruption_;
  std::optional<std::uint64_t> expectedBytes_;

  StepProgress progress_;  // of the step that runs
  std::chrono::steady_clock::time_point begin_;
  std::uint64_t filesBefore_ = 0;
  std::uint64_t bytesBefore_ = 0;

  std::vector<StepReport> reports_;
  Tally denials_;
  bool hasSilenced_ = false;  // whether a denial was not shown because there were too many
};

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_JOB_STEPS_H_
