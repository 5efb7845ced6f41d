// Runs a step. To end it early, the runner closes the socket, then sends SIGTERM, then SIGKILL, each after
// the grace. The step is over when the plug-in has been reaped and its channels have been read to their
// end.
//
// One event loop serves all channels and never blocks. A worker thread answers the requests that touch
// files. The next packet is read only after the previous answer has been written, so that a plug-in that
// sends requests and reads no answers cannot exhaust the memory.

#include "step/step_runner.h"

#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "protocol/json_text.h"
#include "protocol/packet_frame.h"
#include "protocol/packet_table.h"
#include "step/exit_code.h"
#include "step/interruption.h"
#include "step/line_splitter.h"
#include "step/log_channel.h"
#include "step/payload_parser.h"
#include "step/plugin_process.h"
#include "step/rule_book.h"
#include "step/worker.h"
#include "text/durations.h"

namespace arvl_host {

namespace {

using namespace ZARN::ARVLAPP;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

struct EventDeleter {
  void operator()(event_base *base) const { event_base_free(base); }
  void operator()(event *ev) const { event_free(ev); }
  void operator()(bufferevent *bev) const { bufferevent_free(bev); }
};
template <typename T>
using Owned = std::unique_ptr<T, EventDeleter>;

constexpr int kLogBatch = 64;     // log lines per event, so that other events get their turn
constexpr int kLogQueue = 10000;  // more log lines than the kernel queues

constexpr milliseconds kTick{100};

// The worker thread parses a longer payload and tells the listeners of it, or the loop would be blocked.
constexpr std::size_t kReadAtOnce = 65536;

constexpr const char *kEndedInsidePacket = "the connection ended inside a packet";

timeval toTimeval(milliseconds time) {
  timeval value;
  value.tv_sec = static_cast<time_t>(time.count() / 1000);
  value.tv_usec = static_cast<suseconds_t>(time.count() % 1000 * 1000);
  return value;
}

PACKET_TYPE responseTo(PACKET_TYPE request) {
  return findPacket(request)->answer;
}

PacketKind kindOf(PACKET_TYPE type) {
  const PacketInfo *packet = findPacket(type);
  return packet != nullptr ? packet->kind : PacketKind::kNone;
}

// A packet from the plug-in, with its payload and its verdict.
struct ReceivedPacket {
  PACKET_TYPE type = PACKET_TYPE_NONE;
  std::string text;
  PayloadStatus status = PayloadStatus::kParsed;
  Json::Value payload;
  Verdict verdict;
};

// Leaves out the rule book for packets that only the framework may send.
void examine(ReceivedPacket &packet) {
  std::string error;
  packet.status = parsePayload(packet.text, packet.payload, error);
  if (packet.status != PayloadStatus::kParsed) {
    packet.verdict = {false, {error}};
  } else if (kindOf(packet.type) != PacketKind::kResponse) {
    packet.verdict = judge(packet.type, packet.payload);
  }
}

// Returns why an estimate does not fit the protocol, or an empty string. The rule book does not say it.
std::string explainEstimate(const Json::Value &estimate) {
  if (!estimate.isObject()) {
    return "";
  }
  for (const char *key : {"file_count", "dir_count", "size", "block_size"}) {
    if (estimate[key].isInt64() && !estimate[key].isInt()) {
      return std::string("the estimate is refused: its ") + key + " of " +
             estimate[key].asString() + " does not fit the 32 bits that the protocol has for it";
    }
  }
  return "";
}

// The payload of an answer as JSON text.
struct Answer {
  std::string text;
  Verdict verdict;
  std::optional<std::string> denial;  // the reason of a failure
};

std::string signalText(int number) {
  const char *name = sigabbrev_np(number);
  return name != nullptr ? std::string("SIG") + name : "signal " + std::to_string(number);
}

class StepRunner {
 public:
  StepRunner(const StepRequest &request, RequestServer &server, Interruption &interruption,
             const StepListeners &listeners)
      : request_(request), server_(server), interruption_(interruption), listeners_(listeners) {}
  ~StepRunner();
  StepRunner(const StepRunner &) = delete;
  StepRunner &operator=(const StepRunner &) = delete;

  StepResult run();

 private:
  // ---- Set-up.
  // Returns an event that calls the member function. For a signal, fd is its number.
  template <void (StepRunner::*Handler)()>
  Owned<event> watch(int fd, short what) {
    const auto callback = [](evutil_socket_t, short, void *self) {
      auto *runner = static_cast<StepRunner *>(self);
      runner->guard([runner] { (runner->*Handler)(); });
    };
    Owned<event> watcher(event_new(base_.get(), fd, what, callback, this));
    if (watcher == nullptr) {
      throw std::runtime_error("cannot watch the plug-in's channels");
    }
    return watcher;
  }
  void connect();
  // Keeps an exception from crossing the event loop: ends the loop, and run() rethrows it.
  template <typename Function>
  void guard(Function function) noexcept {
    try {
      function();
    } catch (...) {
      failure_ = std::current_exception();
      event_base_loopbreak(base_.get());
    }
  }
  template <typename... Parameters, typename... Arguments>
  void tell(void (StepListener::*event)(Parameters...), const Arguments &...arguments) {
    for (StepListener *listener : listeners_) {
      (listener->*event)(arguments...);
    }
  }

  // ---- The socket.
  void readPackets();
  bool isAnswering() const;
  bool isTellingOfPacket() const { return isWorking_ && next_ != &StepRunner::onAnswerMade; }
  bool readPacket(evbuffer *input);
  void examinePacket();
  void onPacketExamined();
  void handlePacket(ReceivedPacket packet);
  void refuse(ReceivedPacket packet);
  void handleCompletion(PACKET_TYPE type, Json::Value payload);
  void onConnectionEvent(short what);
  void onDisconnect();
  void disconnect();

  // ---- Requests.
  void handleRequest(PACKET_TYPE type, Json::Value payload);
  void makeAnswer();
  void onAnswerMade();
  void sendAnswer();
  void tellOfAnswer();
  void writeAnswer();

  // ---- The worker.
  void work(std::function<void()> task, void (StepRunner::*next)());
  void workAlone(std::function<void()> task, void (StepRunner::*next)());
  void onWorkDone();

  // ---- The other channels.
  void pauseLines();
  void resumeLines();
  void readOutput();
  void readError();
  bool readStream(UniqueFd &fd, Owned<event> &watcher, LineSplitter &lines);
  void readLogBatch();
  void readLogLines(int limit);
  bool readLogLine();

  // ---- The end.
  void violate(const std::string &reason, const std::vector<std::string> &lines);
  void cancel(Outcome outcome, const std::string &reason);
  void armGrace();
  void escalate();
  void takeSignals();
  void onSignal();
  void onTimeout();
  void onTick() { tell(&StepListener::onTick); }
  void onChild();
  void finishIfOver();
  void finish();
  StepResult conclude();

  const StepRequest &request_;
  RequestServer &server_;
  Interruption &interruption_;
  const StepListeners &listeners_;

  Owned<event_base> base_;
  PluginProcess plugin_;
  Owned<bufferevent> connection_;
  Owned<event> outputWatcher_, errorWatcher_, logWatcher_;
  Owned<event> signalWatcher_, childWatcher_;
  Owned<event> timeoutTimer_, graceTimer_, tickTimer_, workWatcher_;
  LineSplitter outputLines_{[this](std::string_view line) {
    tell(&StepListener::onLine, PluginLine{LogSource::kStdout, LOG_INFO, line});
  }};
  LineSplitter errorLines_{[this](std::string_view line) {
    tell(&StepListener::onLine, PluginLine{LogSource::kStderr, LOG_INFO, line});
  }};

  steady_clock::time_point begin_;
  StepResult result_;
  std::exception_ptr failure_;  // an error of the host
  bool canWrite_ = true;        // the plug-in still reads
  bool isDecided_ = false;      // the outcome cannot change any more
  bool isCompleted_ = false;
  bool endedInsidePacket_ = false;
  int signalToSend_ = 0;  // after the grace
  bool isReaped_ = false;
  bool isGroupGone_ = false;
  int status_ = 0;

  ReceivedPacket received_;  // while the worker examines it

  // The request that is being served.
  PACKET_TYPE asked_ = PACKET_TYPE_NONE;
  Json::Value question_;
  std::optional<Answer> answer_;

  // Declared last, so that it is destroyed before the data it works on.
  bool isWorking_ = false;
  void (StepRunner::*next_)() = nullptr;  // once it is done
  std::unique_ptr<Worker> worker_;
};

// ---- Set-up.

StepResult StepRunner::run() {
  base_.reset(event_base_new());
  if (base_ == nullptr) {
    throw std::runtime_error("cannot create an event loop");
  }
  // Before the plug-in starts, so that its end is not missed.
  childWatcher_ = watch<&StepRunner::onChild>(SIGCHLD, EV_SIGNAL | EV_PERSIST);
  event_add(childWatcher_.get(), nullptr);

  prctl(PR_SET_CHILD_SUBREAPER, 1);  // the host reaps the orphans of the plug-in
  begin_ = steady_clock::now();
  plugin_ = startPlugin(request_.executable, request_.frameworkVersion);
  tell(&StepListener::onStart, request_, plugin_.pid);
  connect();
  event_base_dispatch(base_.get());
  if (failure_) {
    std::rethrow_exception(failure_);
  }
  takeSignals();  // one may have arrived just now
  return conclude();
}

// After an error of the host, the plug-in may still run and an answer may still be in progress.
StepRunner::~StepRunner() {
  if (isWorking_) {
    server_.cancel();
  }
  if (plugin_.pid > 0 && !isReaped_) {
    kill(-plugin_.pid, SIGKILL);
    waitpid(plugin_.pid, nullptr, 0);
  }
}

void StepRunner::connect() {
  connection_.reset(
      bufferevent_socket_new(base_.get(), plugin_.socket.get(), BEV_OPT_CLOSE_ON_FREE));
  plugin_.socket.release();
  bufferevent_setcb(
      connection_.get(),
      [](bufferevent *, void *self) {
        auto *runner = static_cast<StepRunner *>(self);
        runner->guard([runner] { runner->readPackets(); });
      },
      [](bufferevent *, void *self) {
        auto *runner = static_cast<StepRunner *>(self);
        runner->guard([runner] { runner->readPackets(); });
      },
      [](bufferevent *, short what, void *self) {
        auto *runner = static_cast<StepRunner *>(self);
        runner->guard([runner, what] { runner->onConnectionEvent(what); });
      },
      this);
  bufferevent_enable(connection_.get(), EV_READ | EV_WRITE);

  worker_ = std::make_unique<Worker>();
  workWatcher_ = watch<&StepRunner::onWorkDone>(worker_->doneFd(), EV_READ | EV_PERSIST);
  event_add(workWatcher_.get(), nullptr);

  outputWatcher_ = watch<&StepRunner::readOutput>(plugin_.output.get(), EV_READ | EV_PERSIST);
  errorWatcher_ = watch<&StepRunner::readError>(plugin_.error.get(), EV_READ | EV_PERSIST);
  logWatcher_ = watch<&StepRunner::readLogBatch>(plugin_.logLines.get(), EV_READ | EV_PERSIST);
  event_add(outputWatcher_.get(), nullptr);
  event_add(errorWatcher_.get(), nullptr);
  event_add(logWatcher_.get(), nullptr);

  signalWatcher_ = watch<&StepRunner::takeSignals>(interruption_.fd(), EV_READ | EV_PERSIST);
  event_add(signalWatcher_.get(), nullptr);

  timeoutTimer_ = watch<&StepRunner::onTimeout>(-1, 0);
  graceTimer_ = watch<&StepRunner::escalate>(-1, 0);
  const timeval timeout = toTimeval(request_.timeout);
  event_add(timeoutTimer_.get(), &timeout);
  tickTimer_ = watch<&StepRunner::onTick>(-1, EV_PERSIST);
  const timeval tick = toTimeval(kTick);
  event_add(tickTimer_.get(), &tick);

  takeSignals();  // those that arrived before count before any packet
}

// ---- The socket.

// Handles the packets in the buffer, also those that arrived during an examination or an answer. A packet
// may close the connection.
void StepRunner::readPackets() {
  while (connection_ != nullptr && !isAnswering() &&
         readPacket(bufferevent_get_input(connection_.get()))) {
  }
  if (connection_ == nullptr) {
    return;
  }
  if (isAnswering()) {
    bufferevent_disable(connection_.get(), EV_READ);
  } else {
    bufferevent_enable(connection_.get(), EV_READ);
  }
}

bool StepRunner::isAnswering() const {
  return isWorking_ ||
         (canWrite_ && evbuffer_get_length(bufferevent_get_output(connection_.get())) > 0);
}

// Returns false if there is no complete packet.
bool StepRunner::readPacket(evbuffer *input) {
  const std::size_t buffered = evbuffer_get_length(input);
  if (buffered < kPacketHeaderSize) {
    return false;
  }
  PacketHeader header;
  const HeaderStatus status = decodePacketHeader(evbuffer_pullup(input, kPacketHeaderSize), header);
  if (status != HeaderStatus::kOk) {
    const std::string reason =
        status == HeaderStatus::kBadCheckCode
            ? "the plug-in sent bytes that are no packet: the check code is wrong"
            : "the plug-in announced a payload of " + std::to_string(header.payloadLength) +
                  " bytes; the protocol allows " + std::to_string(kMaxPayloadLength);
    const std::size_t shown = std::min<std::size_t>(buffered, 64);
    const auto *bytes = evbuffer_pullup(input, static_cast<ev_ssize_t>(shown));
    tell(&StepListener::onGarbage, Side::kPlugin,
         std::string_view(reinterpret_cast<const char *>(bytes), shown), reason);
    violate(reason, {});
    return false;
  }
  const std::size_t size = kPacketHeaderSize + header.payloadLength;
  if (buffered < size) {
    return false;
  }
  ReceivedPacket packet;
  packet.type = static_cast<PACKET_TYPE>(header.type);
  packet.text.resize(header.payloadLength);
  evbuffer_drain(input, kPacketHeaderSize);
  evbuffer_remove(input, packet.text.data(), packet.text.size());
  received_ = std::move(packet);
  if (received_.text.size() > kReadAtOnce) {
    workAlone([this] { examinePacket(); }, &StepRunner::onPacketExamined);
  } else {
    examinePacket();
    onPacketExamined();
  }
  return true;
}

void StepRunner::examinePacket() {
  examine(received_);
  tell(&StepListener::onPacket, Side::kPlugin, static_cast<std::uint16_t>(received_.type),
       received_.text, received_.verdict);
}

void StepRunner::onPacketExamined() {
  handlePacket(std::exchange(received_, {}));
}

void StepRunner::handlePacket(ReceivedPacket packet) {
  const PACKET_TYPE type = packet.type;
  ++result_.packets;
  if (connection_ == nullptr) {
    return;  // the step was canceled while the packet was examined
  }

  if (!packet.verdict.valid) {
    refuse(std::move(packet));
  } else if (isCompleted_) {
    violate("the plug-in sent " + packetName(type) + " after its completion", {});
  } else if (kindOf(type) == PacketKind::kCompletion) {
    handleCompletion(type, std::move(packet.payload));
  } else if (kindOf(type) == PacketKind::kRequest) {
    handleRequest(type, std::move(packet.payload));
  } else {
    violate("the plug-in sent " + packetName(type) + ", which is the framework's to send", {});
  }
}

void StepRunner::refuse(ReceivedPacket packet) {
  const std::string estimate =
      packet.type == PACKET_ESTIMATE_EXPORTION_RESULT ? explainEstimate(packet.payload) : "";
  if (!estimate.empty()) {
    result_.refusedEstimate = std::move(packet.payload);
    violate(estimate, packet.verdict.lines);
  } else if (packet.status == PayloadStatus::kTooManyValues) {
    violate("the plug-in's " + packetName(packet.type) + ": " + packet.verdict.lines.front(), {});
  } else {
    violate("the rule book refuses the plug-in's " + packetName(packet.type), packet.verdict.lines);
  }
}

void StepRunner::handleCompletion(PACKET_TYPE type, Json::Value payload) {
  const PACKET_TYPE owed = findCompletion(request_.step)->type;
  if (type != owed) {
    violate("the plug-in ended the step " + request_.step + " with " + packetName(type) +
                " in place of " + packetName(owed),
            {});
    return;
  }
  isCompleted_ = true;
  result_.completion = std::move(payload);
}

// A plug-in that no longer reads may have sent packets before: they are still read.
void StepRunner::onConnectionEvent(short what) {
  if ((what & BEV_EVENT_WRITING) != 0) {
    canWrite_ = false;
    readPackets();
  } else if ((what & (BEV_EVENT_EOF | BEV_EVENT_ERROR)) != 0) {
    onDisconnect();
  }
}

void StepRunner::onDisconnect() {
  evbuffer *input = bufferevent_get_input(connection_.get());
  const std::size_t left = evbuffer_get_length(input);
  if (left > 0 && !isDecided_) {
    endedInsidePacket_ = true;
    const std::size_t shown = std::min<std::size_t>(left, 64);
    const auto *bytes = evbuffer_pullup(input, static_cast<ev_ssize_t>(shown));
    tell(&StepListener::onGarbage, Side::kPlugin,
         std::string_view(reinterpret_cast<const char *>(bytes), shown), kEndedInsidePacket);
  }
  disconnect();
  if (!isCompleted_ || endedInsidePacket_) {
    armGrace();  // the plug-in is probably ending, and its exit status says more than the close
  }
}

// Closes the socket. To the plug-in, the framework is gone.
void StepRunner::disconnect() {
  connection_.reset();
  finishIfOver();
}

// ---- Requests.

void StepRunner::handleRequest(PACKET_TYPE type, Json::Value payload) {
  asked_ = type;
  question_ = std::move(payload);
  if (findPacket(type)->touchesFiles) {
    work([this] { makeAnswer(); }, &StepRunner::onAnswerMade);
  } else {
    makeAnswer();
    sendAnswer();
  }
}

void StepRunner::makeAnswer() {
  answer_.reset();
  const std::optional<Json::Value> payload = server_.answer(asked_, question_);
  if (payload) {
    answer_.emplace();
    answer_->text = toJsonText(*payload);
    answer_->verdict = judge(responseTo(asked_), *payload);
    if (!(*payload)["success"].asBool()) {
      answer_->denial = (*payload)["error"].asString();
    }
  }
}

void StepRunner::onAnswerMade() {
  if (connection_ != nullptr) {
    sendAnswer();
  }
}

void StepRunner::sendAnswer() {
  const Json::Value question = std::exchange(question_, {});
  if (!answer_) {
    violate(packetName(asked_) + " is not served here", {});
    return;
  }
  tell(&StepListener::onAnswer, asked_, question, answer_->denial);
  if (!fitsPacket(answer_->text.size())) {
    violate("the answer to the plug-in's " + packetName(asked_) + " would have " +
                std::to_string(answer_->text.size()) + " bytes, more than a packet carries",
            {});
    return;
  }
  if (answer_->text.size() > kReadAtOnce) {
    workAlone([this] { tellOfAnswer(); }, &StepRunner::writeAnswer);
  } else {
    tellOfAnswer();
    writeAnswer();
  }
}

void StepRunner::tellOfAnswer() {
  tell(&StepListener::onPacket, Side::kFramework, static_cast<std::uint16_t>(responseTo(asked_)),
       answer_->text, answer_->verdict);
}

void StepRunner::writeAnswer() {
  const std::optional<Answer> answer = std::exchange(answer_, {});
  ++result_.packets;
  if (connection_ == nullptr || !canWrite_) {
    return;
  }
  PacketHeader header;
  header.type = static_cast<std::uint16_t>(responseTo(asked_));
  header.payloadLength = static_cast<std::uint32_t>(answer->text.size());
  const PacketHeaderBytes bytes = encodePacketHeader(header);
  bufferevent_write(connection_.get(), bytes.data(), bytes.size());
  bufferevent_write(connection_.get(), answer->text.data(), answer->text.size());
}

// ---- The worker.

void StepRunner::work(std::function<void()> task, void (StepRunner::*next)()) {
  isWorking_ = true;
  next_ = next;
  worker_->start(std::move(task));
}

// Starts a task that tells the listeners of a packet. Pauses the channels that the loop would tell them of.
void StepRunner::workAlone(std::function<void()> task, void (StepRunner::*next)()) {
  pauseLines();
  work(std::move(task), next);
}

// The connection may have been closed during the work.
void StepRunner::onWorkDone() {
  worker_->finish();
  isWorking_ = false;
  resumeLines();
  (this->*next_)();
  if (connection_ != nullptr) {
    readPackets();
  }
  finishIfOver();
}

// ---- The other channels.

// An ended stream has no watcher.
void StepRunner::pauseLines() {
  for (const Owned<event> *watcher : {&outputWatcher_, &errorWatcher_, &logWatcher_}) {
    if (*watcher != nullptr) {
      event_del(watcher->get());
    }
  }
}

void StepRunner::resumeLines() {
  for (const Owned<event> *watcher : {&outputWatcher_, &errorWatcher_, &logWatcher_}) {
    if (*watcher != nullptr) {
      event_add(watcher->get(), nullptr);
    }
  }
}

void StepRunner::readOutput() {
  if (!readStream(plugin_.output, outputWatcher_, outputLines_)) {
    finishIfOver();
  }
}

void StepRunner::readError() {
  if (!readStream(plugin_.error, errorWatcher_, errorLines_)) {
    finishIfOver();
  }
}

// Returns false when the stream has ended.
bool StepRunner::readStream(UniqueFd &fd, Owned<event> &watcher, LineSplitter &lines) {
  char buffer[64 * 1024];
  const ssize_t size = read(fd.get(), buffer, sizeof buffer);
  if (size > 0) {
    lines.add({buffer, static_cast<std::size_t>(size)});
    return true;
  }
  if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
    return true;
  }
  lines.finish();
  watcher.reset();
  fd.reset();
  return false;
}

void StepRunner::readLogBatch() {
  readLogLines(kLogBatch);
}

void StepRunner::readLogLines(int limit) {
  for (int i = 0; i < limit && readLogLine(); ++i) {
  }
}

// Returns false if there is no line.
bool StepRunner::readLogLine() {
  char record[kMaxLogRecord];
  const ssize_t size = recv(plugin_.logLines.get(), record, sizeof record, MSG_DONTWAIT);
  if (size <= 0) {
    return false;
  }
  const std::string_view text(record + 1, static_cast<std::size_t>(size) - 1);
  tell(&StepListener::onLine, PluginLine{LogSource::kSyslog, record[0], text});
  return true;
}

// ---- The end.

void StepRunner::violate(const std::string &reason, const std::vector<std::string> &lines) {
  if (!isDecided_) {
    result_.lines = lines;
  }
  cancel(Outcome::kProtocolViolation, reason);
}

// Only the first reason to end the step counts.
void StepRunner::cancel(Outcome outcome, const std::string &reason) {
  if (isDecided_) {
    return;
  }
  isDecided_ = true;
  result_.outcome = outcome;
  result_.reason = reason;
  tell(&StepListener::onCancel, outcome);
  server_.cancel();
  event_del(timeoutTimer_.get());
  signalToSend_ = SIGTERM;
  armGrace();
  disconnect();
}

void StepRunner::armGrace() {
  const timeval grace = toTimeval(request_.grace);
  event_add(graceTimer_.get(), &grace);
}

// Sends SIGTERM, then SIGKILL. After a close by the plug-in, this also decides the outcome. If the plug-in
// is gone, a process outside its group still holds one of its channels: the step ends without waiting for
// it.
void StepRunner::escalate() {
  if (isReaped_ && isTellingOfPacket()) {
    armGrace();  // the packet may be the completion, and the listeners are told of one event at a time
    return;
  }
  if (isReaped_) {
    finish();
    return;
  }
  if (endedInsidePacket_) {
    violate(kEndedInsidePacket, {});
  } else {
    cancel(Outcome::kDied,
           "the plug-in closed its connection before its completion and did not end");
  }
  kill(-plugin_.pid, signalToSend_);
  signalToSend_ = SIGKILL;
  armGrace();
}

void StepRunner::takeSignals() {
  for (std::uint64_t left = interruption_.take(); left > 0; --left) {
    onSignal();
  }
}

void StepRunner::onSignal() {
  if (isDecided_ && !isGroupGone_) {
    kill(-plugin_.pid, SIGKILL);
  }
  cancel(Outcome::kInterrupted, "");
}

void StepRunner::onTimeout() {
  cancel(Outcome::kTimeout, isCompleted_ ? "the plug-in did not end after its completion"
                                         : "the plug-in did not complete in time");
}

// Reaps the plug-in and the orphans in its process group.
void StepRunner::onChild() {
  int status = 0;
  pid_t pid = 0;
  while ((pid = waitpid(-plugin_.pid, &status, WNOHANG)) > 0) {
    if (pid != plugin_.pid) {
      continue;
    }
    isReaped_ = true;
    status_ = status;
    kill(-plugin_.pid, SIGKILL);
    event_del(timeoutTimer_.get());
    armGrace();
  }
  isGroupGone_ = pid < 0 && errno == ECHILD;
  finishIfOver();
}

void StepRunner::finishIfOver() {
  if (isGroupGone_ && connection_ == nullptr && !isWorking_ && !plugin_.output && !plugin_.error) {
    finish();
  }
}

void StepRunner::finish() {
  event_base_loopbreak(base_.get());
}

StepResult StepRunner::conclude() {
  readLogLines(kLogQueue);
  outputLines_.finish();
  errorLines_.finish();
  result_.seconds = secondsSince(begin_);
  if (isDecided_) {
    return std::move(result_);
  }

  if (WIFSIGNALED(status_)) {
    result_.outcome = Outcome::kDied;
    result_.reason = "the plug-in crashed: " + signalText(WTERMSIG(status_)) +
                     (isCompleted_ ? ", after its completion" : "");
  } else if (endedInsidePacket_) {
    result_.outcome = Outcome::kProtocolViolation;
    result_.reason = kEndedInsidePacket;
  } else if (!isCompleted_) {
    result_.outcome = Outcome::kDied;
    result_.reason = "the plug-in ended with status " + std::to_string(WEXITSTATUS(status_)) +
                     " and without a completion";
  } else {
    const bool success = result_.completion["success"].asBool();
    result_.outcome = success ? Outcome::kSuccess : Outcome::kFailure;
    if (WEXITSTATUS(status_) != 0) {
      result_.reason = "the plug-in ended with status " + std::to_string(WEXITSTATUS(status_)) +
                       "; its completion decides";
    }
  }
  return std::move(result_);
}

}  // namespace

StepResult runStep(const StepRequest &request, RequestServer &server, Interruption &interruption,
                   const StepListeners &listeners) {
  return StepRunner(request, server, interruption, listeners).run();
}

}  // namespace arvl_host
