// The session with the framework: everything that logs as "agent.cpp". Each part keeps its state to
// itself. They are, in this order:
//
//   CommandLine  reads argv: the job step, the descriptor and the framework's version
//   Mailbox      holds the one packet that has been received and not yet taken
//   Connection   owns the socket and the event loop; sends and receives packets
//   Session      makes requests: gate, send, receive, type, success
//   Completion   holds the outcome of the step and reports it
//   Agent        the facade, in the order of its header
//
// One thread: the caller's. The event loop and its callbacks run only inside sendPacket. Nothing here
// has a timeout: that is for the program that runs the plug-in.

#include "zarn/arvlapp/agent.h"

#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <fcntl.h>
#include <json/value.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <list>
#include <memory>
#include <string>
#include <utility>

#include "agent/close_watch.h"
#include "agent/direct_write.h"
#include "agent/error_state.h"
#include "agent/event_handles.h"
#include "agent/framework_version.h"
#include "agent/plugin_mode.h"
#include "agent/sigpipe_guard.h"
#include "agent/step_result.h"
#include "agent/transfer_request.h"
#include "protocol/json_text.h"
#include "protocol/packet_frame.h"
#include "protocol/packet_table.h"
#include "util/log.h"
#include "zarn/arvlapp/protocol_util.h"
#include "zarn/backup/path.h"

namespace ZARN {
namespace ARVLAPP {

namespace {

// ---- The command line.

// Holds what the command line says.
class CommandLine {
 public:
  // Reads argv. Values that were read before a failure stay. Logs.
  bool parseArgv(int argc, char **argv);

  PluginMode pluginMode() const { return pluginMode_; }
  int socketFd() const { return socketFd_; }
  Version frameworkVersion() const { return version_; }

 private:
  bool parseSocketFd(const char *text);
  bool parseFrameworkVersion(const char *text);

  std::string pluginName_;
  PluginMode pluginMode_ = PluginMode::kNone;
  int socketFd_ = -1;
  Version version_;
};

bool CommandLine::parseArgv(int argc, char **argv) {
  if (argc < 1 || argv == nullptr || argv[0] == nullptr) {
    return ARVL_LOG_FALSE("bad param %d", argc);
  }
  if (!pluginName_.empty()) {  // the first value that a call sets
    return ARVL_LOG_FALSE("Error: reinit");
  }

  pluginName_ = Backup::Path::basename(argv[0]);
  pluginMode_ = modeOf(pluginName_);
  if (pluginMode_ == PluginMode::kNone) {
    return ARVL_LOG_FALSE("invalid plugin [%s]", argv[0]);
  }

  int option = 0;
  while ((option = getopt(argc, argv, "f:v:")) != -1) {
    if (option == 'f' && !parseSocketFd(optarg)) {
      return false;
    }
    if (option == 'v' && !parseFrameworkVersion(optarg)) {
      return false;
    }
  }

  if (socketFd_ < 1) {
    return ARVL_LOG_FALSE("invalid argument fd [%d]", socketFd_);
  }
  if (version_.major < 0 || version_.minor < 0) {
    return ARVL_LOG_FALSE("invalid argument version [%d.%d]", version_.major, version_.minor);
  }
  return true;
}

bool CommandLine::parseSocketFd(const char *text) {
  char *end = nullptr;
  socketFd_ = static_cast<int>(std::strtol(text, &end, 10));
  return *end == '\0' || ARVL_LOG_FALSE("invalid socket fd format [%s]", text);
}

bool CommandLine::parseFrameworkVersion(const char *text) {
  char *end = nullptr;
  version_.major = static_cast<int>(std::strtol(text, &end, 10));
  if (*end != '.') {
    return ARVL_LOG_FALSE("invalid framework version format [%s]", text);
  }
  version_.minor = static_cast<int>(std::strtol(end + 1, &end, 10));
  return *end == '\0' || ARVL_LOG_FALSE("invalid framework version format [%s]", text);
}

// ---- The mailbox.

// Holds one packet between the read callback and recvPacket. It is empty while its type is
// PACKET_TYPE_NONE. A received packet of type PACKET_TYPE_NONE cannot be taken. Its payload stays and
// blocks the mailbox.
class Mailbox {
 public:
  // Stores a whole frame. A failure empties the mailbox, even of an earlier packet. Logs; throws
  // nothing, because it runs inside the event loop.
  bool appendPacket(const void *frame);

  bool isEmpty() const { return type_ == PACKET_TYPE_NONE; }

  // Moves the packet out.
  void take(PACKET_TYPE &type, Json::Value &payload) {
    type = type_;
    payload = std::move(payload_);
    clear();
  }

 private:
  bool storePacket(const void *frame);
  void clear() {
    type_ = PACKET_TYPE_NONE;
    payload_ = Json::Value();
  }

  PACKET_TYPE type_ = PACKET_TYPE_NONE;
  Json::Value payload_;
};

bool Mailbox::appendPacket(const void *frame) {
  if (storePacket(frame)) {
    return true;
  }
  clear();
  return false;
}

bool Mailbox::storePacket(const void *frame) {
  if (type_ != PACKET_TYPE_NONE || !payload_.empty()) {
    return ARVL_LOG_FALSE("appendPacket twice before consuming");
  }

  PacketHeader header;
  decodePacketHeader(frame, header);
  const char *text = static_cast<const char *>(frame) + kPacketHeaderSize;
  Json::Value payload;
  if (!parseJsonText(text, text + header.payloadLength, payload)) {
    return ARVL_LOG_FALSE("Failed to parse upload request payload");
  }
  if (!payload.isObject()) {
    return ARVL_LOG_FALSE("payload is invalid (not a json object)");
  }
  type_ = static_cast<PACKET_TYPE>(header.type);
  payload_ = std::move(payload);
  return true;
}

// ---- The connection.

constexpr std::size_t kReadChunk = 16384;  // bytes; the same as libevent's default

// Owns the event base, the bufferevent and, through it, the socket.
class Connection {
 public:
  explicit Connection(ErrorState &errorState) : errorState_(errorState) {}

  // Opens the connection on the socket. Objects created before a failure stay, for the destructor.
  // Logs.
  bool connectionInit(int socketFd);

  // Sends one packet and runs the event loop: for a request until a packet has been received, for a
  // completion (exitWhenSent) until it has been written. Returns true once the packet is queued.
  // recvPacket reports a later failure of the connection or the loop. Logs.
  bool sendPacket(PACKET_TYPE type, const Json::Value &payload, bool exitWhenSent);

  // Takes the received packet and checks it against its rule. Hands out type and payload even if the
  // check fails. Logs.
  bool recvPacket(PACKET_TYPE &type, Json::Value &payload);

  // Returns true once the framework has closed the connection or the connection has failed.
  bool isCanceled() const { return canceled_; }

 private:
  enum class FrameStep { kConsumed, kIncomplete, kRefused };

  bool queueFrame(PACKET_TYPE type, const Json::Value &payload);
  bool isOutputLeft() const {
    return evbuffer_get_length(bufferevent_get_output(bufferevent_.get())) > 0;
  }
  void writeInLoop();
  int runLoop();
  bool isCompletionUnwritten() const { return exitOnDrain_ && !canceled_ && isOutputLeft(); }
  FrameStep readFrames(evbuffer *input);
  FrameStep readFrame(evbuffer *input);
  void limitReading(evbuffer *input);
  void pauseReading();

  static void onReadable(bufferevent *source, void *self);
  static void onWritten(bufferevent *source, void *self);
  static void onEvent(bufferevent *source, short what, void *self);
  static void onClosedUnread(evutil_socket_t descriptor, short what, void *self);

  ErrorState &errorState_;
  int socketFd_ = -1;
  EventBase base_;
  Bufferevent bufferevent_;
  CloseWatch closeWatch_;  // started when reading pauses; ends before the base
  Mailbox mailbox_;
  bool canceled_ = false;
  bool exitOnDrain_ = false;        // the last packet is a completion
  bool isInputUnreadable_ = false;  // the input buffer is full, and its first frame was refused
};

bool Connection::connectionInit(int socketFd) {
  // GCOVR_EXCL_START: parseArgv has refused a second call
  if (base_ != nullptr || bufferevent_ != nullptr) {
    return ARVL_LOG_FALSE("Error: reinit");
  }
  // GCOVR_EXCL_STOP
  socketFd_ = socketFd;
  // Check before the event base opens descriptors: one of them could get the number of a closed socket.
  const bool isOpen = fcntl(socketFd_, F_GETFD) != -1;
  base_.reset(event_base_new());
  if (base_ == nullptr) {
    return ARVL_LOG_FALSE("Can't get an event_base");
  }
  if (!isOpen || evutil_make_socket_nonblocking(socketFd_) != 0) {
    return ARVL_LOG_FALSE("make socket nonblocking failed");
  }
  bufferevent_.reset(bufferevent_socket_new(base_.get(), socketFd_, BEV_OPT_CLOSE_ON_FREE));
  if (bufferevent_ == nullptr) {
    return ARVL_LOG_FALSE("bufferEvent new failed");
  }
  // Otherwise a program that the plug-in starts would keep the connection open after the plug-in ends.
  fcntl(socketFd_, F_SETFD, FD_CLOEXEC);
  // The read callback runs once a whole header has arrived. limitReading replaces libevent's high-water
  // mark, which dereferences null when out of memory.
  bufferevent_setwatermark(bufferevent_.get(), EV_READ, kPacketHeaderSize, 0);
  bufferevent_setcb(bufferevent_.get(), onReadable, onWritten, onEvent, this);
  if (bufferevent_enable(bufferevent_.get(), EV_READ | EV_WRITE) != 0) {
    return ARVL_LOG_FALSE("bufferEvent enable failed");
  }
  return true;
}

// Writes before it runs the loop. A small frame then needs no wait for a writable socket and no guard
// against SIGPIPE.
bool Connection::sendPacket(PACKET_TYPE type, const Json::Value &payload, bool exitWhenSent) {
  if (canceled_) {
    return ARVL_LOG_FALSE("User canceled, skip sendPacket");
  }

  if (!queueFrame(type, payload)) {
    return false;
  }

  exitOnDrain_ = exitWhenSent;
  if (!writeAtOnce(socketFd_, bufferevent_get_output(bufferevent_.get()))) {
    onEvent(bufferevent_.get(), BEV_EVENT_WRITING | BEV_EVENT_ERROR, this);
    return true;
  }
  if (isOutputLeft()) {
    writeInLoop();
  } else if (!exitOnDrain_) {
    runLoop();
  }
  return true;
}

// Appends a frame to the output, which may still hold a part of an earlier one. Stops the loop from
// writing until writeInLoop. Logs.
bool Connection::queueFrame(PACKET_TYPE type, const Json::Value &payload) {
  const std::string text = toJsonText(payload);
  if (text.size() > kMaxPayloadLength) {
    return ARVL_LOG_FALSE("invalid packet length %llu", static_cast<unsigned long long>(text.size()));
  }
  PacketHeader header;
  header.type = static_cast<std::uint16_t>(type);
  header.payloadLength = static_cast<std::uint32_t>(text.size());
  const PacketHeaderBytes headerBytes = encodePacketHeader(header);
  evbuffer *output = bufferevent_get_output(bufferevent_.get());
  bufferevent_disable(bufferevent_.get(), EV_WRITE);
  if (evbuffer_add(output, headerBytes.data(), headerBytes.size()) != 0) {
    return ARVL_LOG_FALSE("evbuffer_add(header) failed");
  }
  if (evbuffer_add(output, text.data(), text.size()) != 0) {
    return ARVL_LOG_FALSE("evbuffer_add(payload) failed");
  }
  return true;
}

// Runs the loop to write the rest of the output. A packet that arrives while a completion is being
// written stops the loop, so the loop runs again until the completion is written or the connection is
// lost. Logs.
void Connection::writeInLoop() {
  if (bufferevent_enable(bufferevent_.get(), EV_WRITE) != 0) {
    ARVL_LOG_ERROR("bufferEvent enable failed");
    return;
  }
  const SigpipeGuard guard;
  while (runLoop() == 0 && isCompletionUnwritten()) {
  }
  if (isCompletionUnwritten()) {
    ARVL_LOG_ERROR("event loop failed, packet is not written");
  }
}

// Runs the loop until a callback stops it. If no answer can be read any more, a request only checks
// for a close.
int Connection::runLoop() {
  if (isInputUnreadable_ && !exitOnDrain_) {
    return event_base_loop(base_.get(), EVLOOP_NONBLOCK);
  }
  return event_base_dispatch(base_.get());
}

bool Connection::recvPacket(PACKET_TYPE &type, Json::Value &payload) {
  if (canceled_) {
    return ARVL_LOG_FALSE("User canceled, skip recvPacket");
  }
  if (mailbox_.isEmpty()) {
    return ARVL_LOG_FALSE("Error: receive nothing");
  }
  mailbox_.take(type, payload);

  bool isValid = false;
  try {
    isValid = Util::isValidPacket(type, payload);
  } catch (const std::exception &) {
    // JsonCpp could not convert a member: the answer breaks its rule.
  }
  return isValid || ARVL_LOG_FALSE("invalid packet [%d]", type);
}

// Consumes every whole frame and returns what happened to the last one. Stops the loop unless a frame
// is incomplete.
Connection::FrameStep Connection::readFrames(evbuffer *input) {
  while (evbuffer_get_length(input) >= kPacketHeaderSize) {
    const FrameStep step = readFrame(input);
    if (step == FrameStep::kIncomplete) {
      return step;
    }
    if (step == FrameStep::kRefused) {
      if (event_base_loopbreak(base_.get()) != 0) {
        ARVL_LOG_ERROR("loop break failed");
      }
      return step;
    }
  }
  if (event_base_loopexit(base_.get(), nullptr) != 0) {
    ARVL_LOG_ERROR("loop exit failed");
    event_base_loopbreak(base_.get());  // needs no memory; without it the call would hang
  }
  return FrameStep::kConsumed;
}

// Leaves a refused frame in the buffer: the session does not resynchronise.
Connection::FrameStep Connection::readFrame(evbuffer *input) {
  const unsigned char *bytes = evbuffer_pullup(input, kPacketHeaderSize);
  if (bytes == nullptr) {
    return FrameStep::kRefused;  // out of memory: more data would not help
  }
  PacketHeader header;
  switch (decodePacketHeader(bytes, header)) {
    case HeaderStatus::kBadCheckCode:
      ARVL_LOG_ERROR("protocol error: packet checkCode is not match");
      return FrameStep::kRefused;
    case HeaderStatus::kTooLong:
      ARVL_LOG_ERROR("invalid packet length %u", header.payloadLength);
      return FrameStep::kRefused;
    case HeaderStatus::kOk:
      break;
  }

  const std::size_t frameSize = kPacketHeaderSize + header.payloadLength;
  if (evbuffer_get_length(input) < frameSize) {
    return FrameStep::kIncomplete;
  }
  bytes = evbuffer_pullup(input, static_cast<ev_ssize_t>(frameSize));
  if (bytes == nullptr) {
    return FrameStep::kRefused;
  }
  if (!mailbox_.appendPacket(bytes)) {
    ARVL_LOG_ERROR("append packet failed, skip it");
    return FrameStep::kRefused;
  }
  if (evbuffer_drain(input, frameSize) != 0) {
    ARVL_LOG_ERROR("failed to drain input buffer, fatal");
    return FrameStep::kRefused;
  }
  return FrameStep::kConsumed;
}

// Keeps the input buffer at or below the largest payload: pauses reading when it is full.
void Connection::limitReading(evbuffer *input) {
  const std::size_t room = kMaxPayloadLength - evbuffer_get_length(input);
  if (room == 0) {
    pauseReading();
  } else {
    bufferevent_set_max_single_read(bufferevent_.get(), std::min(room, kReadChunk));
  }
}

// Pauses reading and never resumes, because the frame that fills the buffer stays in it. While reading
// is paused, libevent does not notice a close, so the close watch does.
void Connection::pauseReading() {
  bufferevent_disable(bufferevent_.get(), EV_READ);
  if (!closeWatch_.start(base_.get(), socketFd_, onClosedUnread, this)) {
    onEvent(bufferevent_.get(), BEV_EVENT_READING | BEV_EVENT_ERROR, this);
  }
}

void Connection::onReadable(bufferevent *source, void *self) {
  auto *connection = static_cast<Connection *>(self);
  evbuffer *input = bufferevent_get_input(source);
  const FrameStep last = connection->readFrames(input);
  connection->limitReading(input);
  connection->isInputUnreadable_ =
      last == FrameStep::kRefused && evbuffer_get_length(input) == kMaxPayloadLength;
}

// libevent calls this when the output buffer is empty, because the write low-water mark is 0.
void Connection::onWritten(bufferevent * /*source*/, void *self) {
  const auto *connection = static_cast<Connection *>(self);
  if (connection->exitOnDrain_ && event_base_loopbreak(connection->base_.get()) != 0) {
    ARVL_LOG_ERROR("loop exit failed");
  }
}

// The framework cancels a plug-in by closing the socket, so an end of file is as final as an error.
void Connection::onEvent(bufferevent * /*source*/, short what, void *self) {
  auto *connection = static_cast<Connection *>(self);
  if ((what & BEV_EVENT_ERROR) != 0) {
    ARVL_LOG_ERROR("Error: get bufferev error %d", what);
  }
  const bool isLost = (what & (BEV_EVENT_EOF | BEV_EVENT_ERROR)) != 0;
  if (isLost) {  // GCOVR_EXCL_BR_LINE: without timeouts there are no other events
    connection->canceled_ = true;
    connection->errorState_.setConnectionLost();
    if (event_base_loopbreak(connection->base_.get()) != 0) {
      ARVL_LOG_ERROR("loop exit failed");
    }
  }
}

// The connection ended while data was unread. Reports it as a read would.
void Connection::onClosedUnread(evutil_socket_t /*descriptor*/, short /*what*/, void *self) {
  auto *connection = static_cast<Connection *>(self);
  const short end = connection->closeWatch_.isError() ? BEV_EVENT_ERROR : BEV_EVENT_EOF;
  onEvent(connection->bufferevent_.get(), static_cast<short>(BEV_EVENT_READING | end), connection);
}

// ---- The exchange of a request.

// Tells how far a request got.
enum class Outcome {
  kDone,
  kNotSent,      // the operation logs this
  kNotReceived,  // the operation logs this
  kFailed,       // already reported
};

// Owns the command line, the connection and the error state, and makes the requests.
class Session {
 public:
  // Reads the command line and opens the connection. Logs.
  bool init(int argc, char **argv);

  // Returns true if init has succeeded. Logs if not.
  bool checkInitialized() const { return initialized_ || ARVL_LOG_FALSE("Error: not initialized"); }
  bool isActive() const { return initialized_ && !connection_.isCanceled(); }
  bool isCanceled() const { return connection_.isCanceled(); }

  PluginMode pluginMode() const { return commandLine_.pluginMode(); }
  Version frameworkVersion() const { return commandLine_.frameworkVersion(); }
  // Returns the version from -v, or -1.-1 after the connection has ended.
  Version visibleVersion() const { return isCanceled() ? Version() : frameworkVersion(); }

  const ErrorState &errorState() const { return errorState_; }
  Connection &connection() { return connection_; }

  // Makes a request, up to a valid answer of the right type. Refuses it before init and for a framework
  // that is too old. Logs, except for what the operation logs.
  Outcome ask(Version since, PACKET_TYPE request, const Json::Value &payload, Json::Value &answer);

  // Does the same and requires the framework to grant the request.
  Outcome exchange(Version since, PACKET_TYPE request, const Json::Value &payload,
                   Json::Value &answer);

  // Makes a request of any framework, for an answer of any type that grants it. Logs likewise.
  Outcome exchangeAnyType(PACKET_TYPE request, const Json::Value &payload, Json::Value &answer);

 private:
  bool checkSupported(Version since);
  Outcome roundTrip(PACKET_TYPE request, const Json::Value &payload, PACKET_TYPE &type,
                    Json::Value &answer);
  Outcome requireGrant(Outcome outcome, const Json::Value &answer);

  CommandLine commandLine_;
  ErrorState errorState_;
  Connection connection_{errorState_};
  bool initialized_ = false;
};

bool Session::init(int argc, char **argv) {
  if (!commandLine_.parseArgv(argc, argv)) {
    return ARVL_LOG_FALSE("invalid arg");
  }
  if (!connection_.connectionInit(commandLine_.socketFd())) {
    return ARVL_LOG_FALSE("connection init failed");
  }
  initialized_ = !connection_.isCanceled();
  return initialized_;
}

// Logs and sets the error state if the framework is too old.
bool Session::checkSupported(Version since) {
  if (frameworkVersion().isAtLeast(since)) {
    return true;
  }
  const Version version = visibleVersion();
  errorState_.setUnsupported();
  return ARVL_LOG_FALSE("Error: Arvelo framework ver [%d.%d] not support", version.major, version.minor);
}

Outcome Session::roundTrip(PACKET_TYPE request, const Json::Value &payload, PACKET_TYPE &type,
                           Json::Value &answer) {
  if (!connection_.sendPacket(request, payload, false)) {
    return Outcome::kNotSent;
  }
  return connection_.recvPacket(type, answer) ? Outcome::kDone : Outcome::kNotReceived;
}

Outcome Session::ask(Version since, PACKET_TYPE request, const Json::Value &payload,
                     Json::Value &answer) {
  if (!checkInitialized() || !checkSupported(since)) {
    return Outcome::kFailed;
  }
  PACKET_TYPE type = PACKET_TYPE_NONE;
  const Outcome outcome = roundTrip(request, payload, type, answer);
  if (outcome == Outcome::kDone && type != findPacket(request)->answer) {
    ARVL_LOG_ERROR("invalid response");
    return Outcome::kFailed;
  }
  return outcome;
}

Outcome Session::exchange(Version since, PACKET_TYPE request, const Json::Value &payload,
                          Json::Value &answer) {
  return requireGrant(ask(since, request, payload, answer), answer);
}

Outcome Session::exchangeAnyType(PACKET_TYPE request, const Json::Value &payload,
                                 Json::Value &answer) {
  PACKET_TYPE type = PACKET_TYPE_NONE;
  return requireGrant(roundTrip(request, payload, type, answer), answer);
}

// Sets the error state if the framework has refused. Does not log.
Outcome Session::requireGrant(Outcome outcome, const Json::Value &answer) {
  if (outcome != Outcome::kDone || answer["success"].asBool()) {
    return outcome;
  }
  errorState_.setRefused(answer);
  return Outcome::kFailed;
}

// ---- Completions.

// Holds the outcome and the product of the step, and reports them in one packet at its end.
class Completion {
 public:
  StepResult &result() { return result_; }
  void setAppDataVersion(int major, int minor) {
    appDataMajor_ = major;
    appDataMinor_ = minor;
  }
  void setStorageUsage(const StorageUsage &usage) { storageUsage_ = usage; }
  void setSummaryInfo(const SummaryInfo &info) { summaryInfo_ = info; }

  // Checks the product of the step, which may turn a success into a failure, and sends the packet.
  // Logs.
  void sendComplete(PluginMode mode, Connection &connection);

 private:
  void sendSummaryComplete(Connection &connection);
  void sendEstimateExportionComplete(Connection &connection);
  void sendCanExportComplete(Connection &connection) const;
  void sendExportComplete(Connection &connection);
  void sendCanImportComplete(Connection &connection) const;
  void sendImportComplete(Connection &connection) const;

  StepResult result_;
  int appDataMajor_ = -1;
  int appDataMinor_ = -1;
  StorageUsage storageUsage_;
  SummaryInfo summaryInfo_;
};

void Completion::sendComplete(PluginMode mode, Connection &connection) {
  switch (mode) {
    // GCOVR_EXCL_START: init has refused it
    case PluginMode::kNone:
      return;
    // GCOVR_EXCL_STOP
    case PluginMode::kEstimateExportion:
      return sendEstimateExportionComplete(connection);
    case PluginMode::kCanExport:
      return sendCanExportComplete(connection);
    case PluginMode::kExport:
      return sendExportComplete(connection);
    case PluginMode::kCanImport:
      return sendCanImportComplete(connection);
    case PluginMode::kImport:
      return sendImportComplete(connection);
    case PluginMode::kSummary:
      return sendSummaryComplete(connection);
  }
}

void Completion::sendSummaryComplete(Connection &connection) {
  const std::string &backupShort = summaryInfo_.getBackupShort();
  const std::string &backupLong = summaryInfo_.getBackupLong();
  const std::string &restoreShort = summaryInfo_.getRestoreShort();
  const std::string &restoreLong = summaryInfo_.getRestoreLong();
  if (backupShort.empty() || backupLong.empty() || restoreShort.empty() || restoreLong.empty()) {
    ARVL_LOG_ERROR("invalid summary.backup_short = [%s], backup_long = [%s], restore_short = [%s], restore_long = [%s]", backupShort.c_str(), backupLong.c_str(), restoreShort.c_str(), restoreLong.c_str());
    result_.setFailure();
  }

  Json::Value payload = result_.toJson();
  if (result_.isSuccess()) {
    payload["backup_short"] = backupShort;
    payload["backup_long"] = backupLong;
    payload["restore_short"] = restoreShort;
    payload["restore_long"] = restoreLong;
  }
  if (!connection.sendPacket(PACKET_SUMMARY_RESULT, payload, true)) {
    ARVL_LOG_ERROR("send PACKET_SUMMARY_RESULT packet failed");
  }
}

void Completion::sendEstimateExportionComplete(Connection &connection) {
  const long long files = storageUsage_.getFileCount();
  const long long dirs = storageUsage_.getDirCount();
  const long long bytes = storageUsage_.getSizeByte();
  const long long blocks = storageUsage_.getBlockCount();
  if (std::min({files, dirs, bytes, blocks}) < 0) {
    ARVL_LOG_ERROR("invalid storage usage.cfile = %lld, cDir = %lld, size = %lld, blocks = %lld", files, dirs, bytes, blocks);
    result_.setFailure();
  }

  Json::Value payload = result_.toJson();
  if (result_.isSuccess()) {
    payload["file_count"] = Json::Int64(files);
    payload["dir_count"] = Json::Int64(dirs);
    payload["size"] = Json::Int64(bytes);
    payload["block_size"] = Json::Int64(blocks);  // the framework reads the block count here
  }
  if (!connection.sendPacket(PACKET_ESTIMATE_EXPORTION_RESULT, payload, true)) {
    ARVL_LOG_ERROR("send PACKET_ESTIMATE_EXPORTION_RESULT packet failed");
  }
}

void Completion::sendCanExportComplete(Connection &connection) const {
  if (!connection.sendPacket(PACKET_CAN_EXPORT_RESULT, result_.toJson(), true)) {
    ARVL_LOG_ERROR("send PACKET_CAN_EXPORT_RESULT packet failed");
  }
}

void Completion::sendExportComplete(Connection &connection) {
  if (appDataMajor_ < 0 || appDataMinor_ < 0) {
    ARVL_LOG_ERROR("invalid app data version [%d.%d]", appDataMajor_, appDataMinor_);
    result_.setFailure();
  }

  Json::Value payload = result_.toJson();
  if (result_.isSuccess()) {
    payload["app_data_version"] =
        std::to_string(appDataMajor_) + "." + std::to_string(appDataMinor_);
  }
  if (!connection.sendPacket(PACKET_EXPORT_COMPLETE, payload, true)) {
    ARVL_LOG_ERROR("send PACKET_EXPORT_COMPLETE packet failed");
  }
}

void Completion::sendCanImportComplete(Connection &connection) const {
  if (!connection.sendPacket(PACKET_CAN_IMPORT_RESULT, result_.toJson(), true)) {
    ARVL_LOG_ERROR("send PACKET_CAN_IMPORT_RESULT packet failed");
  }
}

void Completion::sendImportComplete(Connection &connection) const {
  if (!connection.sendPacket(PACKET_IMPORT_COMPLETE, result_.toJson(), true)) {
    ARVL_LOG_ERROR("send PACKET_IMPORT_COMPLETE packet failed");
  }
}

}  // namespace

// ---- The facade: life cycle and outcome.

class Agent::AgentImpl {
 public:
  Session session;
  Completion completion;
};

Agent::Agent() : impl_(std::make_unique<AgentImpl>()) {}

Agent::~Agent() {
  if (!impl_->session.isActive()) {
    return;
  }
  try {
    impl_->completion.sendComplete(impl_->session.pluginMode(), impl_->session.connection());
  } catch (const std::exception &error) {
    ARVL_LOG_ERROR("completion not sent: %s", error.what());
  }
}

bool Agent::init(int argc, char **argv) {
  return impl_->session.init(argc, argv);
}

int Agent::getFrameworkMajorVersion() {
  return impl_->session.checkInitialized() ? impl_->session.visibleVersion().major : -1;
}

int Agent::getFrameworkMinorVersion() {
  return impl_->session.checkInitialized() ? impl_->session.visibleVersion().minor : -1;
}

bool Agent::isVerionNotLessThan(int major, int minor) {
  return impl_->session.frameworkVersion().isAtLeast({major, minor});
}

int Agent::getErrno() const {
  return impl_->session.errorState().number();
}

std::string Agent::getErrorString() const {
  return impl_->session.errorState().text();
}

void Agent::setErrorMsg(const std::string &section, const std::string &key) {
  if (impl_->session.isActive()) {
    impl_->completion.result().setErrorMsg(section, key);
  }
}

void Agent::setSuccess() {
  if (impl_->session.isActive()) {
    impl_->completion.result().setSuccess();
  }
}

void Agent::setAppDataVersion(int major, int minor) {
  impl_->completion.setAppDataVersion(major, minor);
}

void Agent::setStorageUsage(const StorageUsage &usage) {
  impl_->completion.setStorageUsage(usage);
}

void Agent::setSummaryInfo(const SummaryInfo &info) {
  impl_->completion.setSummaryInfo(info);
}

// ---- The facade: requests.

namespace {

// Returns false from the operation unless the outcome is kDone. Logs the text for a failed send or
// receive. Both texts are on the macro's line, so the log shows that line.
#define LEAVE_UNLESS_DONE(outcome, notSent, notReceived) \
  do {                                                   \
    if ((outcome) == Outcome::kNotSent) {                \
      return ARVL_LOG_FALSE(notSent);                    \
    }                                                    \
    if ((outcome) == Outcome::kNotReceived) {            \
      return ARVL_LOG_FALSE(notReceived);                \
    }                                                    \
    if ((outcome) != Outcome::kDone) {                   \
      return false;                                      \
    }                                                    \
  } while (false)

// Converts one entry of a listing. Logs why it cannot.
bool readEntry(const Json::Value &entry, FileInfo &info) {
  info.setPath(entry["path"].asString());
  const std::string type = entry["type"].asString();
  if (type == "dir") {
    info.setDirType();
  } else if (type == "file") {
    info.setRegType();
  } else {
    return ARVL_LOG_FALSE("Error: path [%s] is not support file type [%s]", info.getPath().c_str(), type.c_str());
  }

  const long sizeByte = entry["size"].asInt64();
  if (sizeByte < 0) {
    return ARVL_LOG_FALSE("Error: size is negative [%ld]", sizeByte);
  }
  info.setSizeByte(sizeByte);
  info.setMtime(entry["mtime"].asInt64());
  return true;
}

// Appends a record for each entry of the list. Stops at the first that cannot be converted and keeps
// the records before it. Logs.
bool appendEntries(Json::Value &list, std::list<FileInfo> &entries) {
  if (list.isObject() && !list.empty()) {
    throw Json::LogicError("entry_list is not an array");  // as JsonCpp's look-up by index does
  }
  // A look-up by index searches a map: for a page of 32 MiB it costs a third of the parsing. The swap
  // frees each entry once its record is made, so that the peak is the tree alone.
  for (Json::Value &element : list) {
    Json::Value entry;
    entry.swap(element);
    std::list<FileInfo> record(1);
    if (!readEntry(entry, record.front())) {
      return ARVL_LOG_FALSE("JsonToFileInfo failed");
    }
    entries.splice(entries.end(), record);
  }
  return true;
}

}  // namespace

bool Agent::getExportResult(Json::Value &result) {
  Json::Value answer;
  const Outcome outcome =
      impl_->session.exchange(kEveryVersion, PACKET_EXPORT_RESULT_REQUEST, Json::Value(), answer);
  LEAVE_UNLESS_DONE(outcome, "send PACKET_EXPORT_RESULT_REQUEST packet failed", "failed to parse getExportResult output");
  result.swap(answer["export_result"]);
  return true;
}

bool Agent::getAppDataVersion(int &major, int &minor) {
  if (!impl_->session.checkInitialized() || impl_->session.isCanceled()) {
    return false;
  }
  Json::Value result(Json::objectValue);
  if (!getExportResult(result)) {
    return ARVL_LOG_FALSE("get export result failed");
  }
  const char *text = result["app_data_version"].asCString();
  const bool isVersion = std::sscanf(text, "%d.%d", &major, &minor) == 2;
  return isVersion || ARVL_LOG_FALSE("invalid format. %s = [%s]", "app_data_version", text);  // GCOVR_EXCL_BR_LINE: the rule refuses other texts
}

bool Agent::getSelectedSource(SelectedSourceInfo &source) {
  Json::Value answer;
  const Outcome outcome =
      impl_->session.ask(kVersion23, PACKET_SELECTED_SOURCE_REQUEST, Json::Value(), answer);
  LEAVE_UNLESS_DONE(outcome, "send PACKET_SELECTED_SOURCE_REQUEST packet failed", "failed to parse getSelectedSource output");
  source.setSelectedSourceJson(answer);  // a valid answer has the lists even if "success" is false
  return true;
}

bool Agent::getExportConfig(Json::Value &config) {
  Json::Value answer;
  const Outcome outcome =
      impl_->session.exchange(kVersion23, PACKET_EXPORT_CONFIG_REQUEST, Json::Value(), answer);
  LEAVE_UNLESS_DONE(outcome, "send PACKET_EXPORT_CONFIG_REQUEST packet failed", "failed to parse getExportConfig output");
  config.swap(answer["export_config"]);
  return true;
}

bool Agent::getLanguage(std::string &language) {
  Json::Value answer;
  const Outcome outcome =
      impl_->session.exchange(kVersion23, PACKET_LANGUAGE_REQUEST, Json::Value(), answer);
  LEAVE_UNLESS_DONE(outcome, "send PACKET_LANGUAGE_REQUEST packet failed", "failed to parse getLanguage output");
  language = answer["language"].asString();
  return true;
}

bool Agent::setProgress(const std::string &stage, int percentage) {
  Json::Value request(Json::objectValue);
  request["progress_stage"] = stage;
  request["progress_percentage"] = percentage;

  Json::Value answer;
  const Outcome outcome =
      impl_->session.exchange(kVersion23, PACKET_SET_PROGRESS_REQUEST, request, answer);
  LEAVE_UNLESS_DONE(outcome, "send PACKET_SET_PROGRESS_REQUEST packet failed", "failed to parse setProgress output");
  return true;
}

bool Agent::download(const DownloadInfo &info) {
  const Json::Value request = makeDownloadRequest(info, impl_->session.frameworkVersion());
  Json::Value answer;
  const Outcome outcome =
      impl_->session.exchange(kEveryVersion, PACKET_DOWNLOAD_REQUEST, request, answer);
  // The second text names listDir: log lines are fixed.
  LEAVE_UNLESS_DONE(outcome, "send PACKET_DOWNLOAD_REQUEST packet failed", "failed to parse listDir output");
  return true;
}

bool Agent::upload(const UploadInfo &info) {
  const Json::Value request = makeUploadRequest(info, impl_->session.frameworkVersion());
  Json::Value answer;
  const Outcome outcome =
      impl_->session.exchange(kEveryVersion, PACKET_UPLOAD_REQUEST, request, answer);
  LEAVE_UNLESS_DONE(outcome, "send PACKET_UPLOAD_REQUEST packet failed", "failed to parse upload output");
  return true;
}

bool Agent::createDir(const std::string &dir) {
  if (!impl_->session.checkInitialized()) {
    return false;
  }
  if (dir.empty() || dir.front() != '/') {
    return ARVL_LOG_FALSE("Bad param, [%s] is not abs path", dir.c_str());
  }
  Json::Value request(Json::objectValue);
  request["path"] = dir;

  Json::Value answer;
  const Outcome outcome =
      impl_->session.exchange(kEveryVersion, PACKET_CREATE_DIR_REQUEST, request, answer);
  LEAVE_UNLESS_DONE(outcome, "send PACKET_CREATE_DIR_REQUEST packet failed", "failed to parse create dir response");
  return true;
}

bool Agent::getExternalHandleResult(std::list<ExternalDataInfo> &results) {
  Json::Value answer;
  const Outcome outcome =
      impl_->session.exchange(kVersion22, PACKET_EXPORT_RESULT_REQUEST, Json::Value(), answer);
  LEAVE_UNLESS_DONE(outcome, "send PACKET_EXPORT_RESULT_REQUEST packet failed", "failed to parse getExternalHandleResult output");
  const Json::Value &handlers = answer["external_handler_result"];
  for (Json::ArrayIndex i = 0; i < handlers.size(); ++i) {
    ExternalDataInfo info;
    info.setExternalHandleJson(handlers[i]);
    results.push_back(info);
  }
  return true;
}

// Makes one round trip for each page. Checks a page by its rule only, not by its type.
bool Agent::listDir(const std::string &path, std::list<FileInfo> &entries) {
  if (!impl_->session.checkInitialized()) {
    return false;
  }
  entries.clear();

  Json::Value request(Json::objectValue);
  request["path"] = path;
  for (;;) {
    Json::Value page;
    const Outcome outcome = impl_->session.exchangeAnyType(PACKET_LIST_DIR_REQUEST, request, page);
    LEAVE_UNLESS_DONE(outcome, "send PACKET_LIST_DIR_REQUEST packet failed", "failed to parse listDir output");
    if (!appendEntries(page["entry_list"], entries)) {
      return ARVL_LOG_FALSE("parse entry_list failed");
    }
    if (page["list_complete"].asBool()) {
      return true;
    }
    request.clear();
    request["request_id"] = page["request_id"];
  }
}

#undef LEAVE_UNLESS_DONE

}  // namespace ARVLAPP
}  // namespace ZARN
