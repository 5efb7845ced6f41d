// The session with the framework, in this order: plug-in modes, helpers, the session's state and
// declarations; start-up; transport (sending, receiving, the callbacks of the event loop);
// completions; and the facade in the order of its header.
//
// One thread, the caller's: the event loop runs only inside sendPacket, and so do the callbacks.
// Nothing here times out; that is for whoever runs the plug-in.

#include "zarn/arvlapp/agent.h"

#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <json/value.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "agent/sigpipe_guard.h"
#include "protocol/json_text.h"
#include "protocol/packet_frame.h"
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

// Appends text to the buffer without copying it; the buffer owns it from then on, if it succeeds.
// Does not log.
bool appendText(evbuffer *buffer, std::string &&text) {
  auto owned = std::make_unique<std::string>(std::move(text));
  const auto release = [](const void * /*data*/, std::size_t /*size*/, void *string) {
    delete static_cast<std::string *>(string);
  };
  const std::size_t before = evbuffer_get_length(buffer);
  const std::size_t size = owned->size();
  if (evbuffer_add_reference(buffer, owned->data(), size, release, owned.get()) == 0) {
    static_cast<void>(owned.release());
  }
  return evbuffer_get_length(buffer) - before == size;
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

  bool isActive() const { return initialized && !canceled; }
  void sendComplete();

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
  bool parseSocketFd(const char *text);
  bool parseFrameworkVersion(const char *text);

  enum class FrameStep { kConsumed, kIncomplete, kRefused };

  void runLoop();
  bool isCompletionUnwritten() const;
  void readFrames(evbuffer *input);
  FrameStep readFrame(evbuffer *input);
  bool appendPacket(const void *frame);
  bool storePacket(const void *frame);

  static void onReadable(bufferevent *connection, void *self);
  static void onWritten(bufferevent *connection, void *self);
  static void onEvent(bufferevent *connection, short what, void *self);

  Json::Value makeResult() const;
  void sendSummaryComplete();
  void sendEstimateExportionComplete();
  void sendCanExportComplete();
  void sendExportComplete();
  void sendCanImportComplete();
  void sendImportComplete();
};

Agent::AgentImpl::~AgentImpl() {
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
  if (argc < 1 || argv == nullptr) {
    return ARVL_LOG_FALSE("bad param %d", argc);
  }
  if (!pluginName.empty() || pluginMode != kModeNone || socketFd != -1) {
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
  if (base != nullptr || connection != nullptr) {
    return ARVL_LOG_FALSE("Error: reinit");
  }
  base = event_base_new();
  if (base == nullptr) {
    return ARVL_LOG_FALSE("Can't get an event_base");
  }
  if (evutil_make_socket_nonblocking(socketFd) != 0) {
    return ARVL_LOG_FALSE("make socket nonblocking failed");
  }
  connection = bufferevent_socket_new(base, socketFd, BEV_OPT_CLOSE_ON_FREE);
  if (connection == nullptr) {
    return ARVL_LOG_FALSE("bufferEvent new failed");
  }
  // The read callback runs once a whole header is there, and reading pauses at the largest payload.
  bufferevent_setwatermark(connection, EV_READ, kPacketHeaderSize, kMaxPayloadLength);
  bufferevent_setcb(connection, onReadable, onWritten, onEvent, this);
  if (bufferevent_enable(connection, EV_READ | EV_WRITE) != 0) {
    return ARVL_LOG_FALSE("bufferEvent enable failed");
  }
  return true;
}

// ---- Transport.

// Queues one packet and runs the loop: for a request until a packet has been received, for a
// completion until it has been written out. Logs. True once the loop has run, whatever came of it; a
// lost connection shows in recvPacket.
bool Agent::AgentImpl::sendPacket(PACKET_TYPE type, const Json::Value &payload, bool exitWhenSent) {
  if (canceled) {
    return ARVL_LOG_FALSE("User canceled, skip sendPacket");
  }

  std::string text = toJsonText(payload);
  if (text.size() > kMaxPayloadLength) {
    const unsigned long long size = text.size();
    return ARVL_LOG_FALSE("invalid packet length %llu", size);
  }

  PacketHeader header;
  header.type = static_cast<std::uint16_t>(type);
  header.payloadLength = static_cast<std::uint32_t>(text.size());
  const PacketHeaderBytes headerBytes = encodePacketHeader(header);
  evbuffer *output = bufferevent_get_output(connection);
  if (evbuffer_add(output, headerBytes.data(), headerBytes.size()) != 0) {
    return ARVL_LOG_FALSE("evbuffer_add(header) failed");
  }
  if (!text.empty() && !appendText(output, std::move(text))) {
    return ARVL_LOG_FALSE("evbuffer_add(payload) failed");
  }

  exitOnDrain = exitWhenSent;
  runLoop();
  return true;
}

// A packet of the framework's that arrives while a completion is being written stops the loop, so
// the loop is entered again until the completion is out or the connection is lost.
void Agent::AgentImpl::runLoop() {
  const SigpipeGuard guard;
  while (event_base_dispatch(base) == 0 && isCompletionUnwritten()) {
  }
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
  } catch (const std::exception &) {
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
// that is not whole yet keeps the loop waiting.
void Agent::AgentImpl::readFrames(evbuffer *input) {
  while (evbuffer_get_length(input) >= kPacketHeaderSize) {
    const FrameStep step = readFrame(input);
    if (step == FrameStep::kIncomplete) {
      return;
    }
    if (step == FrameStep::kRefused) {
      if (event_base_loopbreak(base) != 0) {
        ARVL_LOG_ERROR("loop break failed");
      }
      return;
    }
  }
  if (event_base_loopexit(base, nullptr) != 0) {
    ARVL_LOG_ERROR("loop exit failed");
    event_base_loopbreak(base);  // needs no memory: without it the call would hang, answer in hand
  }
}

// A frame that is refused stays where it is: the session does not resynchronise.
Agent::AgentImpl::FrameStep Agent::AgentImpl::readFrame(evbuffer *input) {
  const unsigned char *bytes = evbuffer_pullup(input, kPacketHeaderSize);
  if (bytes == nullptr) {
    return FrameStep::kRefused;  // out of memory: no further data would help
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
  static_cast<AgentImpl *>(self)->readFrames(bufferevent_get_input(connection));
}

void Agent::AgentImpl::onWritten(bufferevent *connection, void *self) {
  const auto *session = static_cast<AgentImpl *>(self);
  if (session->exitOnDrain && evbuffer_get_length(bufferevent_get_output(connection)) == 0) {
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
  if ((what & (BEV_EVENT_EOF | BEV_EVENT_ERROR)) != 0) {
    session->canceled = true;
    session->errorNumber = kErrnoConnection;
    if (event_base_loopbreak(session->base) != 0) {
      ARVL_LOG_ERROR("loop exit failed");
    }
  }
}

// ---- Completions: one a run, after the check of the step's product.

void Agent::AgentImpl::sendComplete() {
  switch (pluginMode) {
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
  if (files < 0 || dirs < 0 || bytes < 0 || blocks < 0) {
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

// ---- The facade.

Agent::Agent() : impl_(std::make_unique<AgentImpl>()) {}

Agent::~Agent() {
  if (!impl_->isActive()) {
    return;
  }
  try {
    impl_->sendComplete();
  } catch (const std::exception &error) {
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
  if (impl_->canceled) {
    return false;
  }
  impl_->initialized = true;
  return true;
}

int Agent::getFrameworkMajorVersion() {
  if (!impl_->initialized) {
    ARVL_LOG_ERROR("Error: not initialized");
    return -1;
  }
  return impl_->canceled ? -1 : impl_->frameworkMajor;
}

int Agent::getFrameworkMinorVersion() {
  if (!impl_->initialized) {
    ARVL_LOG_ERROR("Error: not initialized");
    return -1;
  }
  return impl_->canceled ? -1 : impl_->frameworkMinor;
}

bool Agent::isVerionNotLessThan(int major, int minor) {
  return impl_->frameworkMajor > major ||
         (impl_->frameworkMajor == major && impl_->frameworkMinor >= minor);
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

}  // namespace ARVLAPP
}  // namespace ZARN
