// Hands on what another listener is to see, and writes it to the trace.
#ifndef ARVL_HOST_TRACE_TRACING_LISTENER_H_
#define ARVL_HOST_TRACE_TRACING_LISTENER_H_

#include "step/step_runner.h"
#include "trace/trace_writer.h"

namespace arvl_host {

// Both have to outlive it. A writer without a file writes nothing.
class TracingListener : public StepListener {
 public:
  TracingListener(StepListener &listener, TraceWriter &writer)
      : listener_(listener), writer_(writer) {}

  void onStart(const StepRequest &request, std::int64_t pid) override {
    writer_.stepStarted(request.step, request.executable, request.frameworkVersion, pid);
    listener_.onStart(request, pid);
  }
  void onLine(const PluginLine &line) override {
    writer_.log(line.source, line.text);
    listener_.onLine(line);
  }
  void onPacket(Side from, std::uint16_t type, std::string_view payload,
                const Verdict &verdict) override {
    writer_.packet(from, type, payload, verdict);
    listener_.onPacket(from, type, payload, verdict);
  }
  void onGarbage(Side from, std::string_view bytes, const std::string &reason) override {
    writer_.garbage(from, bytes, reason);
    listener_.onGarbage(from, bytes, reason);
  }
  void onAnswer(ZARN::ARVLAPP::PACKET_TYPE request, const Json::Value &payload,
                const std::optional<std::string> &denial) override {
    listener_.onAnswer(request, payload, denial);
  }
  void onCancel(Outcome why) override { listener_.onCancel(why); }
  void onTick() override { listener_.onTick(); }

 private:
  StepListener &listener_;
  TraceWriter &writer_;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_TRACE_TRACING_LISTENER_H_
