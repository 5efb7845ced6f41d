// Passes command lines to Agent::init. Input: one argument per line, argv[0] first. Descriptor 100 is a
// connected socket; any other number must not be an open descriptor.

#include <event2/event.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "protocol/packet_frame.h"
#include "support/check.h"
#include "support/log_sink.h"
#include "zarn/arvlapp/agent.h"

namespace {

using arvl_fuzz::LogSink;
using ZARN::ARVLAPP::Agent;

constexpr int kSessionSocket = 100;
constexpr int kPeerSocket = 101;

std::vector<std::string> splitLines(const std::string &text) {
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

// A vector as main receives it. getopt permutes it.
std::vector<char *> makeArgv(std::vector<std::string> &arguments) {
  std::vector<char *> argv;
  for (std::string &argument : arguments) {
    argv.push_back(&argument[0]);
  }
  argv.push_back(nullptr);
  return argv;
}

void restartGetopt() {
  opterr = 0;
  optind = 0;
}

bool isOpen(int fd) {
  return fcntl(fd, F_GETFD) != -1;
}

// Returns whether the Agent could own, and close, a descriptor of the fuzzer itself.
bool namesForeignDescriptor(std::vector<std::string> arguments) {
  std::vector<char *> argv = makeArgv(arguments);
  restartGetopt();
  int option = 0;
  while ((option = getopt(static_cast<int>(arguments.size()), argv.data(), "f:v:")) != -1) {
    const int fd = option == 'f' ? static_cast<int>(std::strtol(optarg, nullptr, 10)) : -1;
    if (fd != kSessionSocket && isOpen(fd)) {
      return true;
    }
  }
  return false;
}

void openSockets() {
  int ends[2];
  FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
  FUZZ_CHECK(dup2(ends[0], kSessionSocket) == kSessionSocket);
  FUZZ_CHECK(dup2(ends[1], kPeerSocket) == kPeerSocket);
  close(ends[0]);
  close(ends[1]);
}

// Checks that the session has sent one whole completion and closed the socket.
void checkCompletion() {
  char bytes[4096];
  const ssize_t size = recv(kPeerSocket, bytes, sizeof bytes, 0);
  ZARN::ARVLAPP::PacketHeader header;
  FUZZ_CHECK(size >= static_cast<ssize_t>(ZARN::ARVLAPP::kPacketHeaderSize));
  FUZZ_CHECK(decodePacketHeader(bytes, header) == ZARN::ARVLAPP::HeaderStatus::kOk);
  FUZZ_CHECK(size == static_cast<ssize_t>(ZARN::ARVLAPP::kPacketHeaderSize + header.payloadLength));
  FUZZ_CHECK(recv(kPeerSocket, bytes, sizeof bytes, 0) == 0);
}

bool runSession(std::vector<std::string> arguments) {
  const int argc = static_cast<int>(arguments.size());
  std::vector<char *> argv = makeArgv(arguments);

  Agent agent;
  LogSink::clear();
  restartGetopt();
  const bool isInitialized = agent.init(argc, argv.data());
  const std::string lastLine = LogSink::lastLine();
  const int major = agent.getFrameworkMajorVersion();
  const int minor = agent.getFrameworkMinorVersion();
  if (isInitialized) {
    FUZZ_CHECK(lastLine.empty());
    FUZZ_CHECK(major >= 0 && minor >= 0);
    FUZZ_CHECK(agent.isVerionNotLessThan(major, minor));
  } else {
    FUZZ_CHECK(lastLine == "agent.cpp: invalid arg" ||
               lastLine == "agent.cpp: connection init failed");
    FUZZ_CHECK(major == -1 && minor == -1);
  }
  restartGetopt();
  FUZZ_CHECK(!agent.init(argc, argv.data()));
  agent.setSuccess();
  return isInitialized;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int * /*argc*/, char *** /*argv*/) {
  event_set_log_callback([](int /*severity*/, const char * /*message*/) {});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const std::vector<std::string> arguments =
      splitLines(std::string(reinterpret_cast<const char *>(data), size));
  openSockets();
  if (!namesForeignDescriptor(arguments)) {
    const bool isInitialized = runSession(arguments);
    FUZZ_CHECK(isOpen(kSessionSocket) != isInitialized);  // only this descriptor carries a session
    if (isInitialized) {
      checkCompletion();
    }
  }
  close(kSessionSocket);
  close(kPeerSocket);
  return 0;
}
