#include "backup/job_steps.h"

#include <algorithm>
#include <utility>

#include "protocol/packet_table.h"
#include "step/outcome.h"
#include "step/plugin_folder.h"
#include "text/durations.h"
#include "text/hex.h"
#include "trace/tracing_listener.h"

namespace arvl_host {

namespace {

using ZARN::ARVLAPP::PACKET_TYPE;

}  // namespace

JobSteps::JobSteps(const PluginRun &run, JobDisplay &display, TraceWriter &trace,
                   const TransferMeter &meter, Interruption &interruption)
    : run_(run), display_(display), trace_(trace), meter_(meter), interruption_(interruption) {}

bool JobSteps::has(const std::string &step) const {
  return !findStep(run_.folder, step).empty();
}

Framework::Progress JobSteps::progress() {
  return [this](const std::string &stage, int percentage) {
    progress_.stage = stage;
    progress_.percentage = percentage;
    showProgress();
  };
}

const StepResult &JobSteps::run(const std::string &step, RequestServer &server) {
  StepRequest request;
  request.step = step;
  request.executable = findStep(run_.folder, step);
  request.frameworkVersion = run_.frameworkVersion;
  request.timeout = run_.timeout;
  request.grace = run_.grace;

  progress_ = StepProgress();
  progress_.step = step;
  begin_ = std::chrono::steady_clock::now();
  filesBefore_ = meter_.files;
  bytesBefore_ = meter_.bytes;
  display_.stepBegins(step);
  TracingListener tracer(trace_);
  StepResult result = runStep(request, server, interruption_, {&tracer, this});
  trace_.stepEnded(outcomeText(result.outcome), exitCodeOf(result.outcome));
  display_.stepEnds(outcomeText(result.outcome), result.outcome == Outcome::kSuccess,
                    result.seconds);
  reports_.push_back({step, std::move(result)});
  return reports_.back().result;
}

void JobSteps::onStart(const StepRequest &request, std::int64_t pid) {
  display_.detail("running " + request.executable + " (process " + std::to_string(pid) +
                  ", framework " + request.frameworkVersion + ")");
}

void JobSteps::onGarbage(Side, std::string_view bytes, const std::string &reason) {
  display_.warning(reason + "; the bytes begin with " + toHex(bytes));
}

// A transfer may say what share of the job it completes.
void JobSteps::onAnswer(PACKET_TYPE request, const Json::Value &payload,
                        const std::optional<std::string> &denial) {
  if (denial) {
    deny(ZARN::ARVLAPP::packetName(request) + " was denied: " + *denial);
    return;
  }
  if (request == ZARN::ARVLAPP::PACKET_UPLOAD_REQUEST ||
      request == ZARN::ARVLAPP::PACKET_DOWNLOAD_REQUEST) {
    for (const Json::Value &item : payload["data"]) {
      takePercentage(item["progress_percentage"]);
    }
  }
}

void JobSteps::takePercentage(const Json::Value &percentage) {
  if (percentage.isInt() && percentage.asInt() != progress_.percentage) {
    progress_.percentage = std::clamp(percentage.asInt(), 0, 100);
    showProgress();
  }
}

void JobSteps::onCancel(Outcome why) {
  if (why == Outcome::kInterrupted) {
    display_.note("canceling the plug-in; another Ctrl-C kills it");
  }
}

void JobSteps::onTick() {
  showProgress();
}

void JobSteps::deny(const std::string &denial) {
  const Tally::Added added = denials_.add(denial);
  if (added == Tally::Added::kNew) {
    display_.warning(denial);
  } else if (added == Tally::Added::kNotKept && !hasSilenced_) {
    hasSilenced_ = true;
    display_.warning(std::to_string(Tally::kMaxTexts) +
                     " different denials have been shown; further ones are counted, not shown");
  }
}

void JobSteps::showProgress() {
  progress_.files = meter_.files - filesBefore_;
  progress_.bytes = meter_.bytes - bytesBefore_;
  progress_.seconds = secondsSince(begin_);
  if (progress_.bytes > 0) {  // an estimate says nothing before the first byte
    progress_.expectedBytes = expectedBytes_;
  }
  display_.progress(progress_);
}

}  // namespace arvl_host
