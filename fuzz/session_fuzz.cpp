// Sends bytes to a live session over a real socket. Input:
//
//   export 2.3 lp+ 5,1 /some/text    step, framework version, actions, sizes of pieces, argument text
//   23 {"success":true}              type and payload of a packet, framed by the fuzzer; one per line
//                                    an empty line, and after it
//   any bytes                        sent as they are
//
// Actions are one letter each, see act(). Whenever the session waits, the peer sends one packet, or one
// piece if sizes are given (the list is repeated). The peer closes when it has none left. A session that
// waits after that has a bug. The session must send whole packets.
//
// With ARVL_FUZZ_GUARDED, an unreadable page follows each block of libevent's memory.

#include <event2/event.h>
#include <fcntl.h>
#include <json/value.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <list>
#include <sstream>
#include <string>
#include <vector>

#include "protocol/json_text.h"
#include "protocol/packet_frame.h"
#include "protocol/packet_table.h"
#include "support/check.h"
#include "support/frame.h"
#include "support/guard_page.h"
#include "zarn/arvlapp/agent.h"
#include "zarn/arvlapp/protocol_util.h"
#include "zarn/visibility.h"

namespace {

using namespace ZARN::ARVLAPP;

constexpr std::size_t kMaxActions = 32;

// ---- The input.

struct Scenario {
  std::string step;
  std::string version;
  std::string actions;
  std::string argument;
  std::deque<std::string> pieces;  // what the peer sends
};

std::string makePacket(const std::string &line) {
  char *text = nullptr;
  const auto type = static_cast<std::uint16_t>(std::strtol(line.c_str(), &text, 10));
  const auto skipped = static_cast<std::size_t>(text - line.c_str());
  return arvl_fuzz::makeFrame(type, line.substr(std::min(skipped + 1, line.size())));
}

// "5,1" yields 5 and 1; "-" and an empty string yield none.
std::vector<std::size_t> readSizes(const std::string &text) {
  std::vector<std::size_t> sizes;
  std::istringstream fields(text == "-" ? "" : text);
  for (std::string field; std::getline(fields, field, ',');) {
    sizes.push_back(std::max(1UL, std::strtoul(field.c_str(), nullptr, 10)));
  }
  return sizes;
}

std::deque<std::string> cut(const std::deque<std::string> &packets,
                            const std::vector<std::size_t> &sizes) {
  std::string bytes;
  for (const std::string &packet : packets) {
    bytes += packet;
  }
  std::deque<std::string> pieces;
  std::size_t turn = 0;
  for (std::size_t at = 0; at < bytes.size(); at += pieces.back().size()) {
    pieces.push_back(bytes.substr(at, sizes[turn++ % sizes.size()]));
  }
  return pieces;
}

Scenario readScenario(const std::string &input) {
  Scenario scenario;
  std::istringstream lines(input);
  std::string line;
  std::getline(lines, line);
  std::istringstream fields(line);
  std::string sizes;
  fields >> scenario.step >> scenario.version >> scenario.actions >> sizes >> std::ws;
  std::getline(fields, scenario.argument);
  scenario.actions.resize(std::min(scenario.actions.size(), kMaxActions));

  while (std::getline(lines, line) && !line.empty()) {
    scenario.pieces.push_back(makePacket(line));
  }
  const std::string rest{std::istreambuf_iterator<char>(lines), {}};
  if (!rest.empty()) {
    scenario.pieces.push_back(rest);
  }
  const std::vector<std::size_t> pieceSizes = readSizes(sizes);
  if (!pieceSizes.empty()) {
    scenario.pieces = cut(scenario.pieces, pieceSizes);
  }
  return scenario;
}

// ---- The peer.

class Peer {
 public:
  Peer(int socket, const std::deque<std::string> &pieces) : socket_(socket), pieces_(pieces) {}
  ~Peer() { closeSocket(); }
  Peer(const Peer &) = delete;
  Peer &operator=(const Peer &) = delete;

  bool isSpeaking() const { return isSpeaking_; }
  const std::string &received() const { return received_; }

  void receive() {
    char bytes[4096];
    ssize_t size = 0;
    while ((size = recv(socket_, bytes, sizeof bytes, MSG_DONTWAIT)) > 0) {
      received_.append(bytes, static_cast<std::size_t>(size));
    }
  }

  // Sends the next piece, or closes when there is none left.
  void sendNext() {
    if (pieces_.empty()) {
      closeSocket();
      return;
    }
    send(socket_, pieces_.front().data(), pieces_.front().size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    pieces_.pop_front();
  }

  void endSending() {
    shutdown(socket_, SHUT_WR);
    isSpeaking_ = false;
    pieces_.clear();
  }

  void closeSocket() {
    if (socket_ != -1) {
      close(socket_);
    }
    socket_ = -1;
    isSpeaking_ = false;
    pieces_.clear();
  }

 private:
  int socket_;
  bool isSpeaking_ = true;
  std::deque<std::string> pieces_;
  std::string received_;
};

Peer *activePeer = nullptr;

int waitForEvents(int epoll, epoll_event *events, int size, int timeout) {
  return static_cast<int>(syscall(SYS_epoll_wait, epoll, events, size, timeout));
}

}  // namespace

// Lets the peer act when the event loop waits.
extern "C" ZARN_EXPORT int epoll_wait(int epoll, epoll_event *events, int size, int timeout) {
  if (activePeer == nullptr || timeout == 0) {
    return waitForEvents(epoll, events, size, timeout);
  }
  for (;;) {
    activePeer->receive();
    const int count = waitForEvents(epoll, events, size, 0);
    if (count != 0) {
      return count;
    }
    FUZZ_CHECK(activePeer->isSpeaking());  // otherwise the session hangs
    activePeer->sendNext();
  }
}

namespace {

// ---- The plug-in.

template <typename Info>
Info makeTransfer(const std::string &path) {
  FileInfo source;
  source.setPath(path);
  source.setRegType();
  source.setTemp(path.size() % 2 == 0);
  Info info;
  info.setSource(source);
  info.setDestinationPath(path);
  info.setPercentage(static_cast<int>(path.size()));
  return info;
}

// A foreign packet may hold a member that JsonCpp cannot convert; nothing else may throw.
void listDir(Agent &agent, const std::string &path) {
  std::list<FileInfo> entries;
  try {
    agent.listDir(path, entries);
  } catch (const Json::Exception &) {
  }
  for (const FileInfo &entry : entries) {
    FUZZ_CHECK(entry.isRegType() || entry.isDirType());
    FUZZ_CHECK(entry.getSizeByte() >= 0);
  }
}

void getAppDataVersion(Agent &agent) {
  int major = -7;
  int minor = -7;
  if (agent.getAppDataVersion(major, minor)) {
    FUZZ_CHECK(major >= 0 && minor >= 0);
  } else {
    FUZZ_CHECK(major == -7 && minor == -7);
  }
}

void getLanguage(Agent &agent) {
  std::string language = "unchanged";
  if (!agent.getLanguage(language)) {
    FUZZ_CHECK(language == "unchanged");
  }
}

void getExportResult(Agent &agent) {
  Json::Value result;
  if (agent.getExportResult(result)) {
    FUZZ_CHECK(result["success"].asBool() && result["app_data_version"].isString());
  } else {
    FUZZ_CHECK(result.isNull());
  }
}

void getSelectedSource(Agent &agent) {
  SelectedSourceInfo source;
  agent.getSelectedSource(source);
  FUZZ_CHECK(source.getDisplayString().size() >= std::strlen("Folders: [], Apps: []"));
}

void getExternalHandleResult(Agent &agent) {
  std::list<ExternalDataInfo> results;
  if (!agent.getExternalHandleResult(results)) {
    FUZZ_CHECK(results.empty());
  }
}

void setOutcome(Agent &agent, const std::string &text) {
  SummaryInfo summary;
  summary.setSummaryInfo(text, text, text, text);
  agent.setSummaryInfo(summary);
  agent.setAppDataVersion(1, 2);
  agent.setSuccess();
}

void act(Agent &agent, Peer &peer, char action, const std::string &text) {
  Json::Value config;
  switch (action) {
    case 'r':
      return getExportResult(agent);
    case 'v':
      return getAppDataVersion(agent);
    case 's':
      return getSelectedSource(agent);
    case 'c':
      return static_cast<void>(agent.getExportConfig(config));
    case 'l':
      return getLanguage(agent);
    case 'p':
      return static_cast<void>(agent.setProgress(text, static_cast<int>(text.size())));
    case 'd':
      return static_cast<void>(agent.download(makeTransfer<DownloadInfo>(text)));
    case 'u':
      return static_cast<void>(agent.upload(makeTransfer<UploadInfo>(text)));
    case 'm':
      return static_cast<void>(agent.createDir(text));
    case 'h':
      return getExternalHandleResult(agent);
    case 'L':
      return listDir(agent, text);
    case '+':
      return setOutcome(agent, text);
    case '-':
      return agent.setErrorMsg("section", text);
    case '.':
      return peer.sendNext();  // without a request
    case '<':
      return peer.endSending();
    case 'x':
      return peer.closeSocket();
    default:
      return;
  }
}

// ---- The checks of a session.

// Checks that the peer received whole packets; the last may be incomplete if the peer hung up. Returns the
// type of the last whole packet.
int checkPackets(const std::string &bytes, bool mayEndEarly) {
  int type = PACKET_TYPE_NONE;
  std::size_t at = 0;
  while (bytes.size() - at >= kPacketHeaderSize) {
    PacketHeader header;
    FUZZ_CHECK(decodePacketHeader(bytes.data() + at, header) == HeaderStatus::kOk);
    const char *text = bytes.data() + at + kPacketHeaderSize;
    if (bytes.size() - at - kPacketHeaderSize < header.payloadLength) {
      break;
    }
    Json::Value payload(Json::objectValue);
    FUZZ_CHECK(header.payloadLength == 0 ||
               parseJsonText(text, text + header.payloadLength, payload));
    FUZZ_CHECK(payload.isObject());
    at += kPacketHeaderSize + header.payloadLength;
    type = header.type;
  }
  FUZZ_CHECK(at == bytes.size() || mayEndEarly);
  return type;
}

bool isCompletion(int type) {
  const PacketInfo *info = findPacket(type);
  return info != nullptr && info->kind == PacketKind::kCompletion;
}

bool initialize(Agent &agent, const Scenario &scenario, int socket) {
  std::string arguments[] = {"/usr/lib/plugin/" + scenario.step, "-f" + std::to_string(socket),
                             "-v" + scenario.version};
  char *argv[] = {&arguments[0][0], &arguments[1][0], &arguments[2][0], nullptr};
  optind = 0;
  return agent.init(3, argv);
}

void runSession(const Scenario &scenario) {
  int ends[2];
  FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
  const int smallest = 0;  // so that long packets go out in several writes
  setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &smallest, sizeof smallest);
  Peer peer(ends[1], scenario.pieces);
  activePeer = &peer;
  bool isInitialized = false;
  {
    Agent agent;
    isInitialized = initialize(agent, scenario, ends[0]);
    for (const char action : scenario.actions) {
      const bool wasCanceled = agent.getErrno() == 1;
      act(agent, peer, action, scenario.argument);
      FUZZ_CHECK(!wasCanceled || agent.getErrno() != 2);  // a canceled session gets no more answers
    }
  }
  activePeer = nullptr;
  if (!isInitialized) {
    close(ends[0]);
    return;
  }
  FUZZ_CHECK(fcntl(ends[0], F_GETFD) == -1);
  const bool isHeardOut = peer.isSpeaking();
  peer.receive();
  const int last = checkPackets(peer.received(), !isHeardOut);
  FUZZ_CHECK(!isHeardOut || isCompletion(last));
}

int lowestFreeDescriptor() {
  const int fd = dup(STDERR_FILENO);
  close(fd);
  return fd;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int * /*argc*/, char *** /*argv*/) {
  event_set_log_callback([](int /*severity*/, const char * /*message*/) {});
#ifdef ARVL_FUZZ_GUARDED
  event_set_mem_functions(arvl_fuzz::guardedMalloc, arvl_fuzz::guardedRealloc,
                          arvl_fuzz::guardedFree);
#endif
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const int freeDescriptor = lowestFreeDescriptor();
  runSession(readScenario(std::string(reinterpret_cast<const char *>(data), size)));
  FUZZ_CHECK(lowestFreeDescriptor() == freeDescriptor);
  return 0;
}
