#include "support/framework_end.h"

#include <dirent.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>

#include "protocol/packet_frame.h"

namespace arvl_test {

std::string frame(unsigned type, const std::string &payload) {
  const std::size_t size = payload.size();
  std::string bytes = "\xDC\x55";
  for (const std::size_t part :
       {std::size_t{type >> 8}, std::size_t{type}, size >> 24, size >> 16, size >> 8, size}) {
    bytes += static_cast<char>(part & 0xFF);
  }
  return bytes + payload;
}

CommandLine::CommandLine(std::initializer_list<std::string> words) : words_(words) {
  for (std::string &word : words_) {
    pointers_.push_back(word.data());
  }
  pointers_.push_back(nullptr);
  optind = 1;
}

FrameworkEnd::FrameworkEnd() : finishing_(eventfd(0, EFD_CLOEXEC)) {
  int ends[2];
  if (finishing_ < 0 || socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    std::abort();
  }
  fd_ = ends[0];
  pluginFd_ = ends[1];
}

FrameworkEnd::~FrameworkEnd() {
  finish();
  close();
  ::close(finishing_);
}

void FrameworkEnd::play(std::function<void()> script) {
  thread_ = std::thread(std::move(script));
}

void FrameworkEnd::finish() {
  if (thread_.joinable()) {
    eventfd_write(finishing_, 1);
    thread_.join();
    eventfd_t count = 0;
    eventfd_read(finishing_, &count);
  }
}

bool FrameworkEnd::isFinishing() const {
  pollfd event = {finishing_, POLLIN, 0};
  return poll(&event, 1, 0) == 1;
}

// Reads without blocking after the wait: bytes may have arrived in the meantime even if only finish() ended it.
ssize_t FrameworkEnd::readSome(char *bytes, std::size_t size) const {
  pollfd events[] = {{fd_, POLLIN, 0}, {finishing_, POLLIN, 0}};
  poll(events, 2, -1);
  return recv(fd_, bytes, size, MSG_DONTWAIT);
}

std::string FrameworkEnd::readBytes(std::size_t size) {
  std::string bytes(size, '\0');
  std::size_t have = 0;
  while (have < size) {
    const ssize_t n = readSome(&bytes[have], size - have);
    if (n <= 0) {
      break;
    }
    have += static_cast<std::size_t>(n);
  }
  bytes.resize(have);
  return bytes;
}

std::string FrameworkEnd::readFrame() {
  const std::string bytes = readBytes(ZARN::ARVLAPP::kPacketHeaderSize);
  if (bytes.size() < ZARN::ARVLAPP::kPacketHeaderSize) {
    return bytes;
  }
  ZARN::ARVLAPP::PacketHeader header;
  decodePacketHeader(bytes.data(), header);
  return bytes + readBytes(header.payloadLength);
}

std::string FrameworkEnd::readAll() {
  std::string bytes;
  std::string more;
  while (!(more = readBytes(1)).empty()) {
    bytes += more;
  }
  return bytes;
}

void FrameworkEnd::write(const std::string &bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = send(fd_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    if (n <= 0) {
      return;
    }
    done += static_cast<std::size_t>(n);
  }
}

void FrameworkEnd::waitUntilRead() const {
  int unread = 0;
  while (ioctl(fd_, SIOCOUTQ, &unread) == 0 && unread > 0 && !isFinishing()) {
    sched_yield();
  }
}

void FrameworkEnd::close() {
  if (fd_ >= 0) {
    ::close(std::exchange(fd_, -1));
  }
}

bool openSession(ZARN::ARVLAPP::Agent &agent, const std::string &step,
                 const FrameworkEnd &framework, const std::string &version) {
  CommandLine line = {"/plugin/" + step, "-f", std::to_string(framework.pluginFd()), "-v", version};
  return agent.init(line.argc(), line.argv());
}

int countOpenDescriptors() {
  DIR *dir = opendir("/proc/self/fd");
  int count = 0;
  while (readdir(dir) != nullptr) {
    ++count;
  }
  closedir(dir);
  return count;
}

}  // namespace arvl_test
