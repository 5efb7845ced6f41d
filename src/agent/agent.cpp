// The session with the framework, in this order: plug-in modes, helpers, the session's state and
// declarations; start-up; transport (sending, receiving, the callbacks of the event loop);
// the exchange of a request; completions; and the facade in the order of its header.
//
// One thread, the caller's: the event loop runs only inside sendPacket, and so do the callbacks.
// Nothing here times out; that is for whoever runs the plug-in.

#include "zarn/arvlapp/agent.h"

#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <fcntl.h>
#include <json/value.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <list>
#include <memory>
#include <string>
#include <utility>

#include "agent/close_watch.h"
#include "agent/sigpipe_guard.h"
#include "protocol/json_text.h"
#include "protocol/packet_frame.h"
#include "protocol/packet_table.h"
#include "util/log.h"
#include "zarn/arvlapp/protocol_util.h"
#include "zarn/backup/path.h"

namespace ZARN {
namespace ARVLAPP {

const char *const Agent::PLUGIN_NAME_SUMMARY = "summary";
const char *const Agent::PLUGIN_NAME_ESTIMATE_EXPORTION = "estimate_exportion";
const char *const Agent::PLUGIN_NAME_CAN_EXPORT = "can_export";
const char *const Agent::PLUGIN_NAME_EXPORT = "export";
const char *const Agent::PLUGIN_NAME_CAN_IMPORT = "can_import";
const char *const Agent::PLUGIN_NAME_IMPORT = "import";

namespace {

// The values of the error number.
constexpr int kErrnoNone = 0;
constexpr int kErrnoConnection = 1;
constexpr int kErrnoRefused = 2;
constexpr int kErrnoUnsupported = 3;

// What became of a request, as far as its operation has something of its own to say.
enum class Outcome {
  kDone,
  kNotSent,
  kNotReceived,
  kFailed,  // and all has been said
};

// The framework versions that brought requests.
struct Version {
  int major;
  int minor;
};
constexpr Version kEveryVersion = {0, 0};
constexpr Version kVersion22 = {2, 2};
constexpr Version kVersion23 = {2, 3};

constexpr std::size_t kReadChunk = 16384;  // bytes; libevent's own choice

// Whether a failed send is no failure of the connection: a full socket, an interruption, or no socket
// at all, which the loop may still be able to write to.
bool isLeftToLoop(int error) {
  return error == EAGAIN || error == EINTR || error == ENOTSOCK;
}

}  // namespace

class Agent::AgentImpl {
 public:
  AgentImpl() = default;
  ~AgentImpl();
  AgentImpl(const AgentImpl &) = delete;
  AgentImpl &operator=(const AgentImpl &) = delete;

  bool parseArgv(int argc, char **argv);
  bool connectionInit();

  bool sendPacket(PACKET_TYPE type, const Json::Value &payload, bool exitWhenSent);
  bool recvPacket(PACKET_TYPE &type, Json::Value &payload);

  bool checkInitialized() const;
  Outcome ask(Version since, PACKET_TYPE request, const Json::Value &payload, Json::Value &answer);
  Outcome exchange(Version since, PACKET_TYPE request, const Json::Value &payload,
                   Json::Value &answer);
  bool isGranted(const Json::Value &answer);
  void addPercentage(Json::Value &item, int percentage) const;

  void sendComplete();

  bool isActive() const { return initialized && !canceled; }
  bool isVersionAtLeast(Version version) const;
  // As the plug-in sees them: a framework that is gone has no version.
  int majorVersion() const { return canceled ? -1 : frameworkMajor; }
  int minorVersion() const { return canceled ? -1 : frameworkMinor; }

  int socketFd = -1;
  int frameworkMajor = -1;
  int frameworkMinor = -1;
  int appDataMajor = -1;
  int appDataMinor = -1;
  bool initialized = false;
  bool canceled = false;  // the framework is gone; never cleared
  bool success = false;
  bool exitOnDrain = false;
  std::string pluginName;
  std::string errorSection;
  std::string errorKey;
  int pluginMode = 0;
  int errorNumber = kErrnoNone;
  std::string errorString;
  event_base *base = nullptr;
  bufferevent *connection = nullptr;  // owns the socket
  // The mailbox between the read callback and recvPacket. The payload is an object whenever the type
  // is a packet's; a packet of type 0 leaves its payload behind.
  PACKET_TYPE pendingType = PACKET_TYPE_NONE;
  Json::Value pendingPayload = Json::Value(Json::objectValue);
  StorageUsage storageUsage;
  SummaryInfo summaryInfo;

 private:
  CloseWatch closeWatch;           // once reading has paused
  bool isInputUnreadable = false;  // the input buffer is full, and its first frame has been refused

  bool checkSupported(Version since);
  bool parseSocketFd(const char *text);
  bool parseFrameworkVersion(const char *text);

  enum class FrameStep { kConsumed, kIncomplete, kRefused };

  bool queueFrame(PACKET_TYPE type, const std::string &text);
  void offerOutput();
  void writeInLoop();
  int runLoop();
  bool isCompletionUnwritten() const;
  FrameStep readFrames(evbuffer *input);
  FrameStep readFrame(evbuffer *input);
  void limitReading(evbuffer *input);
  void pauseReading();
  bool appendPacket(const void *frame);
  bool storePacket(const void *frame);

  static void onReadable(bufferevent *connection, void *self);
  static void onWritten(bufferevent *connection, void *self);
  static void onEvent(bufferevent *connection, short what, void *self);
  static void onClosedUnread(evutil_socket_t descriptor, short what, void *self);

  Json::Value makeResult() const;
  void sendSummaryComplete();
  void sendEstimateExportionComplete();
  void sendCanExportComplete();
  void sendExportComplete();
  void sendCanImportComplete();
  void sendImportComplete();
};

Agent::AgentImpl::~AgentImpl() {
  closeWatch.stop();
  if (connection != nullptr) {
    bufferevent_free(connection);
  }
  if (base != nullptr) {
    event_base_free(base);
  }
}

// ---- Start-up.

namespace {

// A mode is the position of its name, counted from 1; 0 is no mode.
enum PluginMode {
  kModeNone,
  kModeEstimateExportion,
  kModeCanExport,
  kModeExport,
  kModeCanImport,
  kModeImport,
  kModeSummary,
};

int modeOf(const std::string &pluginName) {
  const char *const names[] = {
      Agent::PLUGIN_NAME_ESTIMATE_EXPORTION,
      Agent::PLUGIN_NAME_CAN_EXPORT,
      Agent::PLUGIN_NAME_EXPORT,
      Agent::PLUGIN_NAME_CAN_IMPORT,
      Agent::PLUGIN_NAME_IMPORT,
      Agent::PLUGIN_NAME_SUMMARY,
  };
  int mode = kModeNone;
  for (const char *name : names) {
    ++mode;
    if (pluginName == name) {
      return mode;
    }
  }
  return kModeNone;
}

}  // namespace

bool Agent::AgentImpl::parseArgv(int argc, char **argv) {
  if (argc < 1 || argv == nullptr || argv[0] == nullptr) {
    return ARVL_LOG_FALSE("bad param %d", argc);
  }
  // The name is there before mode and descriptor are.
  if (!pluginName.empty() || pluginMode != kModeNone || socketFd != -1) {  // GCOVR_EXCL_BR_LINE
    return ARVL_LOG_FALSE("Error: reinit");
  }

  pluginName = Backup::Path::basename(argv[0]);
  pluginMode = modeOf(pluginName);
  if (pluginMode == kModeNone) {
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

  if (socketFd < 1) {
    return ARVL_LOG_FALSE("invalid argument fd [%d]", socketFd);
  }
  if (frameworkMajor < 0 || frameworkMinor < 0) {
    return ARVL_LOG_FALSE("invalid argument version [%d.%d]", frameworkMajor, frameworkMinor);
  }
  return true;
}

bool Agent::AgentImpl::parseSocketFd(const char *text) {
  char *end = nullptr;
  socketFd = static_cast<int>(std::strtol(text, &end, 10));
  if (*end != '\0') {
    return ARVL_LOG_FALSE("invalid socket fd format [%s]", text);
  }
  return true;
}

bool Agent::AgentImpl::parseFrameworkVersion(const char *text) {
  char *end = nullptr;
  frameworkMajor = static_cast<int>(std::strtol(text, &end, 10));
  if (*end != '.') {
    return ARVL_LOG_FALSE("invalid framework version format [%s]", text);
  }
  frameworkMinor = static_cast<int>(std::strtol(end + 1, &end, 10));
  if (*end != '\0') {
    return ARVL_LOG_FALSE("invalid framework version format [%s]", text);
  }
  return true;
}

// What has been created before a failure stays, for the destructor.
bool Agent::AgentImpl::connectionInit() {
  // GCOVR_EXCL_START: parseArgv has refused a second call before
  if (base != nullptr || connection != nullptr) {
    return ARVL_LOG_FALSE("Error: reinit");
  }
  // GCOVR_EXCL_STOP
  // Before the base opens descriptors of its own: the number of a closed one could name one of them.
  const bool isOpen = fcntl(socketFd, F_GETFD) != -1;
  base = event_base_new();
  if (base == nullptr) {
    return ARVL_LOG_FALSE("Can't get an event_base");
  }
  if (!isOpen || evutil_make_socket_nonblocking(socketFd) != 0) {
    return ARVL_LOG_FALSE("make socket nonblocking failed");
  }
  connection = bufferevent_socket_new(base, socketFd, BEV_OPT_CLOSE_ON_FREE);
  if (connection == nullptr) {
    return ARVL_LOG_FALSE("bufferEvent new failed");
  }
  // A program that the plug-in starts would hold the connection open beyond the plug-in's end.
  fcntl(socketFd, F_SETFD, FD_CLOEXEC);
  // The read callback runs once a whole header is there. The high-water mark is limitReading's:
  // libevent's own dereferences null when memory runs out here.
  bufferevent_setwatermark(connection, EV_READ, kPacketHeaderSize, 0);
  bufferevent_setcb(connection, onReadable, onWritten, onEvent, this);
  if (bufferevent_enable(connection, EV_READ | EV_WRITE) != 0) {
    return ARVL_LOG_FALSE("bufferEvent enable failed");
  }
  return true;
}

// ---- Transport.

// Sends one packet and runs the loop: for a request until a packet has been received, for a
// completion until it has been written out. Returns true once the packet is queued, whatever comes of
// it: recvPacket tells what a lost connection or a failed loop left without an answer. Logs.
bool Agent::AgentImpl::sendPacket(PACKET_TYPE type, const Json::Value &payload, bool exitWhenSent) {
  if (canceled) {
    return ARVL_LOG_FALSE("User canceled, skip sendPacket");
  }

  const std::string text = toJsonText(payload);
  if (text.size() > kMaxPayloadLength) {
    const unsigned long long size = text.size();
    return ARVL_LOG_FALSE("invalid packet length %llu", size);
  }
  if (!queueFrame(type, text)) {
    return false;
  }

  exitOnDrain = exitWhenSent;
  offerOutput();
  if (canceled) {
    return true;
  }
  if (evbuffer_get_length(bufferevent_get_output(connection)) > 0) {
    writeInLoop();
  } else if (!exitOnDrain) {
    runLoop();  // nothing is left to write: it only reads
  }
  return true;
}

// Puts a frame behind what may be left of earlier ones. Logs. The loop is not asked to write it: that
// takes system calls, and the socket is tried first.
bool Agent::AgentImpl::queueFrame(PACKET_TYPE type, const std::string &text) {
  PacketHeader header;
  header.type = static_cast<std::uint16_t>(type);
  header.payloadLength = static_cast<std::uint32_t>(text.size());
  const PacketHeaderBytes headerBytes = encodePacketHeader(header);
  evbuffer *output = bufferevent_get_output(connection);
  bufferevent_disable(connection, EV_WRITE);
  if (evbuffer_add(output, headerBytes.data(), headerBytes.size()) != 0) {
    return ARVL_LOG_FALSE("evbuffer_add(header) failed");
  }
  if (evbuffer_add(output, text.data(), text.size()) != 0) {
    return ARVL_LOG_FALSE("evbuffer_add(payload) failed");
  }
  return true;
}

// Writes at once what the socket takes, which is a small frame whole: that spares the loop a round to
// learn that the socket is writable, and the guard against SIGPIPE. The rest stays in the buffer. A
// failure is reported as the loop would report it.
void Agent::AgentImpl::offerOutput() {
  evbuffer *output = bufferevent_get_output(connection);
  evbuffer_iovec piece = {};
  std::size_t taken = 0;
  do {
    evbuffer_peek(output, -1, nullptr, &piece, 1);
    const ssize_t sent = send(socketFd, piece.iov_base, piece.iov_len, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0) {
      if (!isLeftToLoop(errno)) {
        onEvent(connection, BEV_EVENT_WRITING | BEV_EVENT_ERROR, this);
      }
      return;
    }
    taken = static_cast<std::size_t>(sent);
    evbuffer_unfreeze(output, 1);  // the connection lets nobody else take from the front
    evbuffer_drain(output, taken);
    evbuffer_freeze(output, 1);
  } while (taken > 0 && taken == piece.iov_len && evbuffer_get_length(output) > 0);
}

// Has the loop write the rest. A packet of the framework's that arrives while a completion is being
// written stops the loop, so the loop is entered again until the completion is out or the connection
// is lost. Logs.
void Agent::AgentImpl::writeInLoop() {
  if (bufferevent_enable(connection, EV_WRITE) != 0) {
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

// Runs the loop until a callback leaves it. When the buffer is full and its first frame has been
// refused, no answer can be read: a request then only checks for a close.
int Agent::AgentImpl::runLoop() {
  if (isInputUnreadable && !exitOnDrain) {
    return event_base_loop(base, EVLOOP_NONBLOCK);
  }
  return event_base_dispatch(base);
}

bool Agent::AgentImpl::isCompletionUnwritten() const {
  return exitOnDrain && !canceled && evbuffer_get_length(bufferevent_get_output(connection)) > 0;
}

// Takes the answer out of the mailbox and checks it. Type and payload are handed out even when the
// check fails. Logs.
bool Agent::AgentImpl::recvPacket(PACKET_TYPE &type, Json::Value &payload) {
  if (canceled) {
    return ARVL_LOG_FALSE("User canceled, skip recvPacket");
  }
  if (pendingType == PACKET_TYPE_NONE) {
    return ARVL_LOG_FALSE("Error: receive nothing");
  }

  type = pendingType;
  pendingType = PACKET_TYPE_NONE;
  payload.clear();
  payload.swap(pendingPayload);  // moved, not copied: an answer may be large

  bool isValid = false;
  try {
    isValid = Util::isValidPacket(type, payload);
  } catch (const std::exception &) {  // GCOVR_EXCL_BR_LINE: whatever is thrown is one
    // A member that JsonCpp could not convert: an answer like any other that breaks its rule.
  }
  if (!isValid) {
    return ARVL_LOG_FALSE("invalid packet [%d]", type);
  }
  return true;
}

// Stores one whole frame into the mailbox. On failure the mailbox is empty afterwards, even of a
// packet that was there before. Logs; throws nothing.
bool Agent::AgentImpl::appendPacket(const void *frame) {
  if (storePacket(frame)) {
    return true;
  }
  pendingType = PACKET_TYPE_NONE;
  pendingPayload.clear();
  return false;
}

bool Agent::AgentImpl::storePacket(const void *frame) {
  PacketHeader header;
  decodePacketHeader(frame, header);
  if (pendingType != PACKET_TYPE_NONE || !pendingPayload.empty()) {
    return ARVL_LOG_FALSE("appendPacket twice before consuming");
  }

  const char *text = static_cast<const char *>(frame) + kPacketHeaderSize;
  Json::Value payload;
  if (!parseJsonText(text, text + header.payloadLength, payload)) {
    return ARVL_LOG_FALSE("Failed to parse upload request payload");
  }
  if (!payload.isObject()) {
    return ARVL_LOG_FALSE("payload is invalid (not a json object)");
  }
  pendingType = static_cast<PACKET_TYPE>(header.type);
  pendingPayload.swap(payload);
  return true;
}

// Consumes every whole frame and ends the loop once nothing but a part of a header is left; a frame
// that is not whole yet keeps the loop waiting. Returns what became of the last frame.
Agent::AgentImpl::FrameStep Agent::AgentImpl::readFrames(evbuffer *input) {
  while (evbuffer_get_length(input) >= kPacketHeaderSize) {
    const FrameStep step = readFrame(input);
    if (step == FrameStep::kIncomplete) {
      return step;
    }
    if (step == FrameStep::kRefused) {
      if (event_base_loopbreak(base) != 0) {
        ARVL_LOG_ERROR("loop break failed");
      }
      return step;
    }
  }
  if (event_base_loopexit(base, nullptr) != 0) {
    ARVL_LOG_ERROR("loop exit failed");
    event_base_loopbreak(base);  // needs no memory: without it the call would hang, answer in hand
  }
  return FrameStep::kConsumed;
}

// Keeps the input buffer at or below the largest payload: reading pauses when it is full.
void Agent::AgentImpl::limitReading(evbuffer *input) {
  const std::size_t room = kMaxPayloadLength - evbuffer_get_length(input);
  if (room == 0) {
    pauseReading();
  } else {
    bufferevent_set_max_single_read(connection, std::min(room, kReadChunk));
  }
}

// Nothing resumes reading: the frame that fills the buffer never leaves it. While reading is paused,
// libevent does not notice that the framework closes the connection.
void Agent::AgentImpl::pauseReading() {
  bufferevent_disable(connection, EV_READ);
  if (!closeWatch.start(base, socketFd, onClosedUnread, this)) {
    onEvent(connection, BEV_EVENT_READING | BEV_EVENT_ERROR, this);
  }
}

// A frame that is refused stays where it is: the session does not resynchronise.
Agent::AgentImpl::FrameStep Agent::AgentImpl::readFrame(evbuffer *input) {
  const unsigned char *bytes = evbuffer_pullup(input, kPacketHeaderSize);
  if (bytes == nullptr) {
    return FrameStep::kRefused;  // out of memory: no further data would help
  }
  PacketHeader header;
  switch (decodePacketHeader(bytes, header)) {  // GCOVR_EXCL_BR_LINE: there are no other values
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
  if (!appendPacket(bytes)) {
    ARVL_LOG_ERROR("append packet failed, skip it");
    return FrameStep::kRefused;
  }
  if (evbuffer_drain(input, frameSize) != 0) {
    ARVL_LOG_ERROR("failed to drain input buffer, fatal");
    return FrameStep::kRefused;
  }
  return FrameStep::kConsumed;
}

void Agent::AgentImpl::onReadable(bufferevent *connection, void *self) {
  auto *session = static_cast<AgentImpl *>(self);
  evbuffer *input = bufferevent_get_input(connection);
  const FrameStep last = session->readFrames(input);
  session->limitReading(input);
  session->isInputUnreadable =
      last == FrameStep::kRefused && evbuffer_get_length(input) == kMaxPayloadLength;
}

void Agent::AgentImpl::onWritten(bufferevent *connection, void *self) {
  const auto *session = static_cast<AgentImpl *>(self);
  const bool isDrained = evbuffer_get_length(bufferevent_get_output(connection)) == 0;
  if (session->exitOnDrain && isDrained) {  // GCOVR_EXCL_BR_LINE: libevent calls for nothing else
    if (event_base_loopbreak(session->base) != 0) {
      ARVL_LOG_ERROR("loop exit failed");
    }
  }
}

// The framework cancels a plug-in by closing the socket: an end of file is as final as an error.
void Agent::AgentImpl::onEvent(bufferevent * /*connection*/, short what, void *self) {
  auto *session = static_cast<AgentImpl *>(self);
  if ((what & BEV_EVENT_ERROR) != 0) {
    ARVL_LOG_ERROR("Error: get bufferev error %d", what);
  }
  // GCOVR_EXCL_BR_START: without time-outs there are no other events
  if ((what & (BEV_EVENT_EOF | BEV_EVENT_ERROR)) != 0) {
    // GCOVR_EXCL_BR_STOP
    session->canceled = true;
    session->errorNumber = kErrnoConnection;
    if (event_base_loopbreak(session->base) != 0) {
      ARVL_LOG_ERROR("loop exit failed");
    }
  }
}

// The connection ended while its last data remained unread: reported as reading would report it.
void Agent::AgentImpl::onClosedUnread(evutil_socket_t /*descriptor*/, short /*what*/, void *self) {
  auto *session = static_cast<AgentImpl *>(self);
  const short end = session->closeWatch.isError() ? BEV_EVENT_ERROR : BEV_EVENT_EOF;
  onEvent(session->connection, static_cast<short>(BEV_EVENT_READING | end), session);
}

// ---- The exchange of a request.

bool Agent::AgentImpl::isVersionAtLeast(Version version) const {
  return frameworkMajor > version.major ||
         (frameworkMajor == version.major && frameworkMinor >= version.minor);
}

// Logs.
bool Agent::AgentImpl::checkInitialized() const {
  if (!initialized) {
    return ARVL_LOG_FALSE("Error: not initialized");
  }
  return true;
}

// Logs, and sets the error state.
bool Agent::AgentImpl::checkSupported(Version since) {
  if (isVersionAtLeast(since)) {
    return true;
  }
  // clang-format off
  ARVL_LOG_ERROR("Error: Arvelo framework ver [%d.%d] not support", majorVersion(), minorVersion());
  // clang-format on
  errorNumber = kErrnoUnsupported;
  errorString = "Arvelo not support";
  return false;
}

// The sequence that all requests share, up to an answer of the right type. Logs what is the same for
// each of them; the operation words what it could not send or receive.
Outcome Agent::AgentImpl::ask(Version since, PACKET_TYPE request, const Json::Value &payload,
                              Json::Value &answer) {
  if (!checkInitialized() || !checkSupported(since)) {
    return Outcome::kFailed;
  }
  if (!sendPacket(request, payload, false)) {
    return Outcome::kNotSent;
  }
  PACKET_TYPE type = PACKET_TYPE_NONE;
  if (!recvPacket(type, answer)) {
    return Outcome::kNotReceived;
  }
  if (type != findPacket(request)->answer) {
    ARVL_LOG_ERROR("invalid response");
    return Outcome::kFailed;
  }
  return Outcome::kDone;
}

// The whole of it: done when the framework has granted the request.
Outcome Agent::AgentImpl::exchange(Version since, PACKET_TYPE request, const Json::Value &payload,
                                   Json::Value &answer) {
  const Outcome outcome = ask(since, request, payload, answer);
  return outcome == Outcome::kDone && !isGranted(answer) ? Outcome::kFailed : outcome;
}

// Sets the error state when the framework has refused. Does not log.
bool Agent::AgentImpl::isGranted(const Json::Value &answer) {
  if (answer["success"].asBool()) {
    return true;
  }
  errorNumber = kErrnoRefused;
  errorString = answer["error"].asString();
  return false;
}

// Adds the progress that a transfer stands for, if there is any; an older framework gets none.
void Agent::AgentImpl::addPercentage(Json::Value &item, int percentage) const {
  if (isVersionAtLeast(kVersion23) && percentage > 0) {
    item["progress_percentage"] = percentage;
  }
}

// ---- Completions: one a run, after the check of the step's product.

void Agent::AgentImpl::sendComplete() {
  switch (pluginMode) {  // GCOVR_EXCL_BR_LINE: a session has a mode
    case kModeEstimateExportion:
      return sendEstimateExportionComplete();
    case kModeCanExport:
      return sendCanExportComplete();
    case kModeExport:
      return sendExportComplete();
    case kModeCanImport:
      return sendCanImportComplete();
    case kModeImport:
      return sendImportComplete();
    case kModeSummary:
      return sendSummaryComplete();
  }
}

// The part that all completions share: the outcome, and of a failure its reason.
Json::Value Agent::AgentImpl::makeResult() const {
  Json::Value result(Json::objectValue);
  result["success"] = success;
  if (!success && !errorSection.empty() && !errorKey.empty()) {
    result["err_msg"]["section"] = errorSection;
    result["err_msg"]["key"] = errorKey;
  }
  return result;
}

void Agent::AgentImpl::sendSummaryComplete() {
  const std::string &backupShort = summaryInfo.getBackupShort();
  const std::string &backupLong = summaryInfo.getBackupLong();
  const std::string &restoreShort = summaryInfo.getRestoreShort();
  const std::string &restoreLong = summaryInfo.getRestoreLong();
  if (backupShort.empty() || backupLong.empty() || restoreShort.empty() || restoreLong.empty()) {
    // clang-format off
    ARVL_LOG_ERROR("invalid summary.backup_short = [%s], backup_long = [%s], restore_short = [%s], restore_long = [%s]", backupShort.c_str(), backupLong.c_str(), restoreShort.c_str(), restoreLong.c_str());
    // clang-format on
    success = false;
  }

  Json::Value payload = makeResult();
  if (success) {
    payload["backup_short"] = backupShort;
    payload["backup_long"] = backupLong;
    payload["restore_short"] = restoreShort;
    payload["restore_long"] = restoreLong;
  }
  if (!sendPacket(PACKET_SUMMARY_RESULT, payload, true)) {
    ARVL_LOG_ERROR("send PACKET_SUMMARY_RESULT packet failed");
  }
}

void Agent::AgentImpl::sendEstimateExportionComplete() {
  const long long files = storageUsage.getFileCount();
  const long long dirs = storageUsage.getDirCount();
  const long long bytes = storageUsage.getSizeByte();
  const long long blocks = storageUsage.getBlockCount();
  // Nothing makes the first two negative.
  if (files < 0 || dirs < 0 || bytes < 0 || blocks < 0) {  // GCOVR_EXCL_BR_LINE
    // clang-format off
    ARVL_LOG_ERROR("invalid storage usage.cfile = %lld, cDir = %lld, size = %lld, blocks = %lld", files, dirs, bytes, blocks);
    // clang-format on
    success = false;
  }

  Json::Value payload = makeResult();
  if (success) {
    payload["file_count"] = Json::Int64(files);
    payload["dir_count"] = Json::Int64(dirs);
    payload["size"] = Json::Int64(bytes);
    payload["block_size"] = Json::Int64(blocks);  // the framework reads the block count here
  }
  if (!sendPacket(PACKET_ESTIMATE_EXPORTION_RESULT, payload, true)) {
    ARVL_LOG_ERROR("send PACKET_ESTIMATE_EXPORTION_RESULT packet failed");
  }
}

void Agent::AgentImpl::sendCanExportComplete() {
  if (!sendPacket(PACKET_CAN_EXPORT_RESULT, makeResult(), true)) {
    ARVL_LOG_ERROR("send PACKET_CAN_EXPORT_RESULT packet failed");
  }
}

void Agent::AgentImpl::sendExportComplete() {
  if (appDataMajor < 0 || appDataMinor < 0) {
    ARVL_LOG_ERROR("invalid app data version [%d.%d]", appDataMajor, appDataMinor);
    success = false;
  }

  Json::Value payload = makeResult();
  if (success) {
    char version[512];
    std::snprintf(version, sizeof version, "%d.%d", appDataMajor, appDataMinor);
    payload["app_data_version"] = version;
  }
  if (!sendPacket(PACKET_EXPORT_COMPLETE, payload, true)) {
    ARVL_LOG_ERROR("send PACKET_EXPORT_COMPLETE packet failed");
  }
}

void Agent::AgentImpl::sendCanImportComplete() {
  if (!sendPacket(PACKET_CAN_IMPORT_RESULT, makeResult(), true)) {
    ARVL_LOG_ERROR("send PACKET_CAN_IMPORT_RESULT packet failed");
  }
}

void Agent::AgentImpl::sendImportComplete() {
  if (!sendPacket(PACKET_IMPORT_COMPLETE, makeResult(), true)) {
    ARVL_LOG_ERROR("send PACKET_IMPORT_COMPLETE packet failed");
  }
}

// ---- The facade: life cycle and outcome.

Agent::Agent() : impl_(std::make_unique<AgentImpl>()) {}

Agent::~Agent() {
  if (!impl_->isActive()) {
    return;
  }
  try {
    impl_->sendComplete();
  } catch (const std::exception &error) {  // GCOVR_EXCL_BR_LINE: whatever is thrown is one
    ARVL_LOG_ERROR("completion not sent: %s", error.what());
  }
}

bool Agent::init(int argc, char **argv) {
  if (!impl_->parseArgv(argc, argv)) {
    return ARVL_LOG_FALSE("invalid arg");
  }
  if (!impl_->connectionInit()) {
    return ARVL_LOG_FALSE("connection init failed");
  }
  // GCOVR_EXCL_START: no loop has run yet that could notice a close
  if (impl_->canceled) {
    return false;
  }
  // GCOVR_EXCL_STOP
  impl_->initialized = true;
  return true;
}

int Agent::getFrameworkMajorVersion() {
  return impl_->checkInitialized() ? impl_->majorVersion() : -1;
}

int Agent::getFrameworkMinorVersion() {
  return impl_->checkInitialized() ? impl_->minorVersion() : -1;
}

bool Agent::isVerionNotLessThan(int major, int minor) {
  return impl_->isVersionAtLeast({major, minor});
}

int Agent::getErrno() const {
  return impl_->errorNumber;
}

std::string Agent::getErrorString() const {
  return impl_->errorString;
}

void Agent::setErrorMsg(const std::string &section, const std::string &key) {
  if (impl_->isActive()) {
    impl_->errorSection = section;
    impl_->errorKey = key;
  }
}

void Agent::setSuccess() {
  if (impl_->isActive()) {
    impl_->success = true;
  }
}

void Agent::setAppDataVersion(int major, int minor) {
  impl_->appDataMajor = major;
  impl_->appDataMinor = minor;
}

void Agent::setStorageUsage(const StorageUsage &usage) {
  impl_->storageUsage = usage;
}

void Agent::setSummaryInfo(const SummaryInfo &info) {
  impl_->summaryInfo = info;
}

// ---- The facade: requests.

namespace {

// Returns false from an operation whose exchange is not done, and logs the text for what failed. Both
// texts are on the line of the macro, so that the log names their line.
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

Json::Value describeSource(const FileInfo &source) {
  Json::Value value(Json::objectValue);
  value["path"] = source.getPath();
  value["type"] = source.getTypeStr();
  return value;
}

// A transfer carries one item, though its packet has room for a list.
Json::Value makeTransfer(Json::Value &&item) {
  Json::Value request(Json::objectValue);
  request["data"].append(std::move(item));
  return request;
}

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
      impl_->exchange(kEveryVersion, PACKET_EXPORT_RESULT_REQUEST, Json::Value(), answer);
  LEAVE_UNLESS_DONE(outcome, "send PACKET_EXPORT_RESULT_REQUEST packet failed", "failed to parse getExportResult output");
  result.swap(answer["export_result"]);
  return true;
}

bool Agent::getAppDataVersion(int &major, int &minor) {
  if (!impl_->checkInitialized() || impl_->canceled) {
    return false;
  }
  Json::Value result(Json::objectValue);
  if (!getExportResult(result)) {
    return ARVL_LOG_FALSE("get export result failed");
  }
  const char *text = result["app_data_version"].asCString();
  // GCOVR_EXCL_START: the rule of the answer has refused other texts
  if (std::sscanf(text, "%d.%d", &major, &minor) != 2) {
    return ARVL_LOG_FALSE("invalid format. %s = [%s]", "app_data_version", text);
  }
  // GCOVR_EXCL_STOP
  return true;
}

bool Agent::getSelectedSource(SelectedSourceInfo &source) {
  Json::Value answer;
  const Outcome outcome =
      impl_->ask(kVersion23, PACKET_SELECTED_SOURCE_REQUEST, Json::Value(), answer);
  LEAVE_UNLESS_DONE(outcome, "send PACKET_SELECTED_SOURCE_REQUEST packet failed", "failed to parse getSelectedSource output");
  source.setSelectedSourceJson(answer);  // the lists are there even when "success" is false
  return true;
}

bool Agent::getExportConfig(Json::Value &config) {
  Json::Value answer;
  const Outcome outcome =
      impl_->exchange(kVersion23, PACKET_EXPORT_CONFIG_REQUEST, Json::Value(), answer);
  LEAVE_UNLESS_DONE(outcome, "send PACKET_EXPORT_CONFIG_REQUEST packet failed", "failed to parse getExportConfig output");
  config.swap(answer["export_config"]);
  return true;
}

bool Agent::getLanguage(std::string &language) {
  Json::Value answer;
  const Outcome outcome =
      impl_->exchange(kVersion23, PACKET_LANGUAGE_REQUEST, Json::Value(), answer);
  LEAVE_UNLESS_DONE(outcome, "send PACKET_LANGUAGE_REQUEST packet failed", "failed to parse getLanguage output");
  language = answer["language"].asString();
  return true;
}

bool Agent::setProgress(const std::string &stage, int percentage) {
  Json::Value request(Json::objectValue);
  request["progress_stage"] = stage;
  request["progress_percentage"] = percentage;

  Json::Value answer;
  const Outcome outcome = impl_->exchange(kVersion23, PACKET_SET_PROGRESS_REQUEST, request, answer);
  LEAVE_UNLESS_DONE(outcome, "send PACKET_SET_PROGRESS_REQUEST packet failed", "failed to parse setProgress output");
  return true;
}

bool Agent::download(const DownloadInfo &info) {
  Json::Value item(Json::objectValue);
  item["source"] = describeSource(info.getSource());
  item["destination"]["path"] = info.getDestinationPath();
  item["with_metadata"] = false;
  impl_->addPercentage(item, info.getPercentage());

  Json::Value answer;
  const Outcome outcome = impl_->exchange(kEveryVersion, PACKET_DOWNLOAD_REQUEST,
                                          makeTransfer(std::move(item)), answer);
  // The second text names listDir: log lines are fixed.
  LEAVE_UNLESS_DONE(outcome, "send PACKET_DOWNLOAD_REQUEST packet failed", "failed to parse listDir output");
  return true;
}

bool Agent::upload(const UploadInfo &info) {
  Json::Value item(Json::objectValue);
  item["source"] = describeSource(info.getSource());
  item["source"]["is_temp"] = info.getSource().isTemp();
  item["destination"]["path"] = info.getDestinationPath();
  impl_->addPercentage(item, info.getPercentage());

  Json::Value answer;
  const Outcome outcome =
      impl_->exchange(kEveryVersion, PACKET_UPLOAD_REQUEST, makeTransfer(std::move(item)), answer);
  LEAVE_UNLESS_DONE(outcome, "send PACKET_UPLOAD_REQUEST packet failed", "failed to parse upload output");
  return true;
}

bool Agent::createDir(const std::string &dir) {
  if (!impl_->checkInitialized()) {
    return false;
  }
  if (dir.empty() || dir.front() != '/') {
    return ARVL_LOG_FALSE("Bad param, [%s] is not abs path", dir.c_str());
  }
  Json::Value request(Json::objectValue);
  request["path"] = dir;

  Json::Value answer;
  const Outcome outcome =
      impl_->exchange(kEveryVersion, PACKET_CREATE_DIR_REQUEST, request, answer);
  LEAVE_UNLESS_DONE(outcome, "send PACKET_CREATE_DIR_REQUEST packet failed", "failed to parse create dir response");
  return true;
}

bool Agent::getExternalHandleResult(std::list<ExternalDataInfo> &results) {
  Json::Value answer;
  const Outcome outcome =
      impl_->exchange(kVersion22, PACKET_EXPORT_RESULT_REQUEST, Json::Value(), answer);
  LEAVE_UNLESS_DONE(outcome, "send PACKET_EXPORT_RESULT_REQUEST packet failed", "failed to parse getExternalHandleResult output");
  const Json::Value &handlers = answer["external_handler_result"];
  for (Json::ArrayIndex i = 0; i < handlers.size(); ++i) {
    ExternalDataInfo info;
    info.setExternalHandleJson(handlers[i]);
    results.push_back(info);
  }
  return true;
}

// The one request of several exchanges. The type of a page is not compared: its rule has to do.
bool Agent::listDir(const std::string &path, std::list<FileInfo> &entries) {
  if (!impl_->checkInitialized()) {
    return false;
  }
  entries.clear();

  Json::Value request(Json::objectValue);
  request["path"] = path;
  for (;;) {
    if (!impl_->sendPacket(PACKET_LIST_DIR_REQUEST, request, false)) {
      return ARVL_LOG_FALSE("send PACKET_LIST_DIR_REQUEST packet failed");
    }
    PACKET_TYPE type = PACKET_TYPE_NONE;
    Json::Value answer;
    if (!impl_->recvPacket(type, answer)) {
      return ARVL_LOG_FALSE("failed to parse listDir output");
    }
    const Json::Value &page = answer;
    if (!impl_->isGranted(page)) {
      return false;
    }
    if (!appendEntries(answer["entry_list"], entries)) {
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
