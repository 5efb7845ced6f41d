#include "peer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>

#include "figure.h"
#include "protocol/packet_frame.h"

namespace arvl_bench {

namespace {

using ZARN::ARVLAPP::decodePacketHeader;
using ZARN::ARVLAPP::kPacketHeaderSize;
using ZARN::ARVLAPP::PacketHeader;

constexpr std::string_view kReady = "r";

// Reads one frame; a small one with a single read. Returns false at the end of file.
bool skipFrame(int socket, std::string &buffer) {
  std::size_t received = 0;
  std::size_t expected = kPacketHeaderSize;
  PacketHeader header;
  while (received < expected) {
    // The header stays at the front. Each later read overwrites the bytes after it.
    const std::size_t at = received < kPacketHeaderSize ? received : kPacketHeaderSize;
    const ssize_t count = read(socket, &buffer[at], buffer.size() - at);
    if (count <= 0) {
      return false;
    }
    received += static_cast<std::size_t>(count);
    if (received >= kPacketHeaderSize) {
      decodePacketHeader(buffer.data(), header);
      expected = kPacketHeaderSize + header.payloadLength;
    }
  }
  return true;
}

[[noreturn]] void serve(int socket, const std::vector<std::string> &answers) {
  std::string buffer(1 << 20, '\0');
  writeAll(socket, kReady);
  for (std::size_t next = 0; skipFrame(socket, buffer); ++next) {
    writeAll(socket, answers[next % answers.size()]);
  }
  _exit(EXIT_SUCCESS);
}

}  // namespace

std::string makeFrame(int type, std::string_view payload) {
  PacketHeader header;
  header.type = static_cast<std::uint16_t>(type);
  header.payloadLength = static_cast<std::uint32_t>(payload.size());
  const auto bytes = encodePacketHeader(header);
  std::string frame;
  frame.reserve(bytes.size() + payload.size());
  frame.assign(bytes.begin(), bytes.end());
  frame += payload;
  return frame;
}

int connectToPeer(std::vector<std::string> (*makeAnswers)()) {
  int ends[2];
  require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "no socket");
  const pid_t process = fork();
  require(process >= 0, "no process");
  if (process == 0) {
    close(ends[0]);
    serve(ends[1], makeAnswers());
  }
  close(ends[1]);
  std::string ready(kReady);
  readAll(ends[0], ready);
  return ends[0];
}

void writeAll(int socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(socket, bytes.data(), bytes.size());
    require(count > 0, "the peer is gone");
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

void readAll(int socket, std::string &bytes) {
  std::size_t received = 0;
  while (received < bytes.size()) {
    const ssize_t count = read(socket, &bytes[received], bytes.size() - received);
    require(count > 0, "the peer is gone");
    received += static_cast<std::size_t>(count);
  }
}

}  // namespace arvl_bench
