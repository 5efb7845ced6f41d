// Records a step in a trace.
#ifndef ARVL_HOST_TRACE_TRACING_LISTENER_H_
#define ARVL_HOST_TRACE_TRACING_LISTENER_H_

#include "step/step_listener.h"
#include "trace/trace_writer.h"

namespace arvl_host {

// Writes nothing if the writer has no file.
class TracingListener : public StepListener {
 public:
  // The writer must outlive the listener.
  explicit TracingListener(TraceWriter &writer) : writer_(writer) {}

  void onStart(const StepRequest &request, std::int64_t pid) override {
    writer_.stepStarted(request.step, request.executable, request.frameworkVersion, pid);
  }
  void onLine(const PluginLine &line) override { writer_.log(line.source, line.text); }
  void onPacket(Side from, std::uint16_t type, std::string_view payload,
                const Verdict &verdict) override {
    writer_.packet(from, type, payload, verdict);
  }
  void onGarbage(Side from, std::string_view bytes, const std::string &reason) override {
    writer_.garbage(from, bytes, reason);
  }

 private:
  TraceWriter &writer_;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_TRACE_TRACING_LISTENER_H_
