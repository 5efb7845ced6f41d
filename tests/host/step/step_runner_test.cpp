// Tests the runner in this process. A replaced JSON parser lets a test act while the host parses a payload.

#include "step/step_runner.h"

#include <gtest/gtest.h>
#include <json/reader.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <functional>
#include <future>
#include <string>
#include <thread>

namespace {

using namespace arvl_host;
using ZARN::ARVLAPP::PACKET_TYPE;

std::function<bool()> parser;

}  // namespace

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

// Replaces the function of JsonCpp.
bool Json::Reader::parse(const char *, const char *, Value &root, bool) {
  root = Value(objectValue);
  root["success"] = true;
  return parser();
}

#pragma GCC diagnostic pop

namespace {

class NoServer : public RequestServer {
 public:
  std::optional<Json::Value> answer(PACKET_TYPE, const Json::Value &) override { return {}; }
  void cancel() override {}
};

class Listener : public StepListener {
 public:
  void onStart(const StepRequest &, std::int64_t pid) override { pid_ = static_cast<pid_t>(pid); }
  void onPacket(Side, std::uint16_t, std::string_view payload, const Verdict &) override {
    bytes += payload.size();
    if (onLargePacket && payload.size() > 65536) {
      onLargePacket();
    }
  }
  void onCancel(Outcome) override { canceled.set_value(); }

  // A grace that is shorter than a tick is over at the second tick after the plug-in has been reaped.
  void onTick() override {
    if (kill(pid_, 0) != 0 && ++ticksAfterEnd_ == 2) {
      graceIsOver.set_value();
    }
  }

  std::promise<void> canceled;
  std::promise<void> graceIsOver;
  std::size_t bytes = 0;  // of all payloads
  std::function<void()> onLargePacket;

 private:
  pid_t pid_ = -1;
  int ticksAfterEnd_ = 0;
};

StepRequest requestOf(const std::string &how, std::chrono::milliseconds grace) {
  setenv("UNRULY", how.c_str(), 1);
  StepRequest request;
  request.step = "import";
  request.executable = std::string(UNRULY_PLUGIN) + "/import";
  request.frameworkVersion = "2.3";
  request.timeout = std::chrono::hours(1);
  request.grace = grace;
  return request;
}

TEST(StepRunner, IsCanceledWhileItReadsALargePayload) {
  NoServer server;
  Interruption interruption;
  Listener listener;
  const std::thread::id loop = std::this_thread::get_id();
  parser = [&] {
    if (std::this_thread::get_id() == loop) {
      ADD_FAILURE() << "the event loop is blocked";
      return true;
    }
    kill(getpid(), SIGINT);
    listener.canceled.get_future().wait();
    return true;
  };
  const StepResult result = runStep(requestOf("completes with a long text", std::chrono::hours(1)),
                                    server, interruption, {&listener});
  EXPECT_EQ(result.outcome, Outcome::kInterrupted);
  EXPECT_GT(listener.bytes, 33554400u);  // the listeners get the packet nevertheless
}

TEST(StepRunner, IsCanceledWhileItTellsOfALargePayload) {
  NoServer server;
  Interruption interruption;
  Listener listener;
  const std::thread::id loop = std::this_thread::get_id();
  parser = [] { return true; };
  listener.onLargePacket = [&] {
    if (std::this_thread::get_id() == loop) {
      ADD_FAILURE() << "the event loop is blocked";
      return;
    }
    kill(getpid(), SIGINT);
    listener.canceled.get_future().wait();
  };
  const StepResult result = runStep(requestOf("completes with a long text", std::chrono::hours(1)),
                                    server, interruption, {&listener});
  EXPECT_EQ(result.outcome, Outcome::kInterrupted);
}

TEST(StepRunner, IsCanceledByASignalThatArrivedBeforeIt) {
  NoServer server;
  Interruption interruption;
  Listener listener;
  raise(SIGTERM);
  const StepResult result = runStep(requestOf("waits for a cancel", std::chrono::hours(1)), server,
                                    interruption, {&listener});
  EXPECT_EQ(result.outcome, Outcome::kInterrupted);
  EXPECT_THROW(interruption.check(), Interrupted);
}

TEST(StepRunner, KillsThePluginAfterTwoSignalsThatArrivedBeforeIt) {
  NoServer server;
  Interruption interruption;
  Listener listener;
  raise(SIGINT);
  raise(SIGINT);
  const StepResult result = runStep(requestOf("hangs and ignores TERM", std::chrono::hours(1)),
                                    server, interruption, {&listener});
  EXPECT_EQ(result.outcome, Outcome::kInterrupted);
}

// Appends its name to a common list, which shows the order of the calls.
class NamedListener : public StepListener {
 public:
  NamedListener(std::string name, std::string &calls) : name_(std::move(name)), calls_(calls) {}

  void onStart(const StepRequest &, std::int64_t) override { calls_ += name_ + " start, "; }
  void onCancel(Outcome) override { calls_ += name_ + " cancel, "; }

 private:
  const std::string name_;
  std::string &calls_;
};

TEST(StepRunner, CallsEachListenerInOrder) {
  NoServer server;
  Interruption interruption;
  std::string calls;
  NamedListener first("first", calls);
  NamedListener second("second", calls);
  raise(SIGINT);
  runStep(requestOf("waits for a cancel", std::chrono::hours(1)), server, interruption,
          {&first, &second});
  EXPECT_EQ(calls, "first start, second start, first cancel, second cancel, ");
}

// A completion that is being parsed counts even after the grace.
TEST(StepRunner, ReadsTheLastPayloadOfAPluginThatIsGone) {
  NoServer server;
  Interruption interruption;
  Listener listener;
  parser = [&] {
    listener.graceIsOver.get_future().wait_for(
        std::chrono::seconds(30));  // times out if the step has ended
    return true;
  };
  const StepResult result =
      runStep(requestOf("completes with a long text", std::chrono::milliseconds(1)), server,
              interruption, {&listener});
  EXPECT_EQ(result.outcome, Outcome::kSuccess);
}

}  // namespace
