#include "torture/session_run.h"

#include <arpa/inet.h>
#include <json/json.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <exception>
#include <new>
#include <thread>

#include "protocol/log_functions.h"
#include "protocol/packet_frame.h"
#include "protocol/packet_table.h"

namespace arvl_test {

namespace {

using ZARN::ARVLAPP::Agent;

std::atomic<int> logLines{0};

struct SocketPair {
  int plugin = -1;
  int framework = -1;
};

void check(bool good) {
  if (!good) {
    std::abort();
  }
}

SocketPair makeTcpPair() {
  SocketPair pair;
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto *name = reinterpret_cast<sockaddr *>(&address);
  check(bind(listener, name, size) == 0 && listen(listener, 1) == 0);
  check(getsockname(listener, name, &size) == 0);
  pair.framework = socket(AF_INET, SOCK_STREAM, 0);
  check(connect(pair.framework, name, size) == 0);
  pair.plugin = accept(listener, nullptr, nullptr);
  check(pair.plugin > 0);
  close(listener);
  return pair;
}

SocketPair makePair(bool tcp) {
  if (tcp) {
    return makeTcpPair();
  }
  int ends[2];
  check(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
  SocketPair pair;
  pair.plugin = ends[0];
  pair.framework = ends[1];
  return pair;
}

// The framework's end. It allocates nothing, so that only allocations of the library are counted.
class Framework {
 public:
  Framework(int fd, const Scenario &scenario, const Misdeed &misdeed)
      : fd_(fd), scenario_(scenario), misdeed_(misdeed) {
    received_.reserve(64 * 1024);
    requestSizes_.reserve(scenario.answers.size());
  }

  void play() {
    for (std::size_t i = 0; i < scenario_.answers.size(); ++i) {
      const bool leaves = misdeed_.kind != Misdeed::kNone && i == misdeed_.exchange;
      if (leaves && misdeed_.inRequest) {
        readBytes(misdeed_.bytes);
        leave();
        return;
      }
      if (!readRequest()) {
        return;
      }
      const std::string &answer = scenario_.answers[i];
      if (!leaves) {
        writeBytes(answer.data(), answer.size());
        continue;
      }
      writeBytes(answer.data(), misdeed_.bytes);
      if (misdeed_.kind == Misdeed::kSplit) {
        waitUntilRead();
        writeBytes(answer.data() + misdeed_.bytes, answer.size() - misdeed_.bytes);
        continue;
      }
      leave();
      return;
    }
    readCompletion();
  }

  const std::string &received() const { return received_; }
  const std::vector<std::size_t> &requestSizes() const { return requestSizes_; }

 private:
  bool readBytes(std::size_t size) {
    char buffer[4096];
    while (size > 0) {
      const ssize_t n = read(fd_, buffer, size < sizeof buffer ? size : sizeof buffer);
      if (n <= 0) {
        return false;
      }
      size -= static_cast<std::size_t>(n);
    }
    return true;
  }

  // Returns false if a completion came instead of a request, or the plug-in hung up.
  bool readRequest() {
    char bytes[ZARN::ARVLAPP::kPacketHeaderSize];
    std::size_t have = 0;
    while (have < sizeof bytes) {
      const ssize_t n = read(fd_, bytes + have, sizeof bytes - have);
      if (n <= 0) {
        return false;
      }
      have += static_cast<std::size_t>(n);
    }
    ZARN::ARVLAPP::PacketHeader header;
    decodePacketHeader(bytes, header);
    const ZARN::ARVLAPP::PacketInfo *info = ZARN::ARVLAPP::findPacket(header.type);
    if (info != nullptr && info->kind == ZARN::ARVLAPP::PacketKind::kCompletion) {
      received_.append(bytes, sizeof bytes);
      readCompletion();
      return false;
    }
    requestSizes_.push_back(sizeof bytes + header.payloadLength);
    return readBytes(header.payloadLength);
  }

  void readCompletion() {
    char buffer[4096];
    ssize_t n = 0;
    while ((n = read(fd_, buffer, sizeof buffer)) > 0) {
      received_.append(buffer, static_cast<std::size_t>(n));
    }
  }

  void writeBytes(const char *data, std::size_t size) {
    while (size > 0) {
      const ssize_t n = send(fd_, data, size, MSG_NOSIGNAL);
      if (n <= 0) {
        return;
      }
      data += n;
      size -= static_cast<std::size_t>(n);
    }
  }

  void waitUntilRead() const {
    int unread = 0;
    while (ioctl(fd_, SIOCOUTQ, &unread) == 0 && unread > 0) {
      sched_yield();
    }
  }

  void leave() {
    switch (misdeed_.kind) {
      case Misdeed::kHalfClose:
        shutdown(fd_, SHUT_WR);
        readCompletion();
        return;
      case Misdeed::kReset: {
        const linger atOnce = {1, 0};
        setsockopt(fd_, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        break;
      }
      case Misdeed::kSilence:
        waitUntilRead();
        break;
      default:
        break;
    }
    close(fd_);
    fd_ = -1;
  }

 public:
  ~Framework() {
    if (fd_ != -1) {
      close(fd_);
    }
  }
  Framework(const Framework &) = delete;
  Framework &operator=(const Framework &) = delete;

 private:
  int fd_;
  const Scenario &scenario_;
  const Misdeed &misdeed_;
  std::string received_;
  std::vector<std::size_t> requestSizes_;
};

void runPlugin(const Scenario &scenario, char **argv, SessionReport &report) {
  try {
    Agent agent;
    report.initialized = agent.init(5, argv);
    if (report.initialized) {
      report.result = scenario.run(agent);
    }
    report.errorNumber = agent.getErrno();
  } catch (const std::bad_alloc &) {
    report.threw = true;
  } catch (const Json::Exception &) {
    report.threw = true;
  }
}

}  // namespace

SessionReport runSession(const Scenario &scenario, const Misdeed &misdeed,
                         const std::function<void()> &begin, const std::function<void()> &end) {
  const SocketPair pair = makePair(misdeed.kind == Misdeed::kReset);
  Framework framework(pair.framework, scenario, misdeed);
  std::thread thread(&Framework::play, &framework);

  std::string program = "/plugin/" + scenario.step;
  std::string descriptor = std::to_string(pair.plugin);
  std::string version = "2.3";
  std::string fdOption = "-f";
  std::string versionOption = "-v";
  char *argv[] = {program.data(),       fdOption.data(), descriptor.data(),
                  versionOption.data(), version.data(),  nullptr};
  optind = 1;
  logLines = 0;

  SessionReport report;
  begin();
  runPlugin(scenario, argv, report);
  end();

  if (!report.initialized) {
    // The session may have closed the socket before it failed, or not. Shut both directions down, so that
    // the framework's end sees the end of the connection.
    shutdown(pair.plugin, SHUT_RDWR);
    close(pair.plugin);
  }
  thread.join();
  report.logLines = logLines;
  report.received = framework.received();
  report.requestSizes = framework.requestSizes();
  return report;
}

std::string inProcess(unsigned seconds, const std::function<int()> &body) {
  int channel[2];
  check(pipe(channel) == 0);
  const pid_t child = fork();
  check(child >= 0);
  if (child == 0) {
    dup2(channel[1], STDERR_FILENO);
    close(channel[0]);
    close(channel[1]);
    alarm(seconds);
    _exit(body());
  }
  close(channel[1]);
  std::string output;
  char buffer[4096];
  ssize_t n = 0;
  while ((n = read(channel[0], buffer, sizeof buffer)) > 0) {
    output.append(buffer, static_cast<std::size_t>(n));
  }
  close(channel[0]);
  int status = 0;
  check(waitpid(child, &status, 0) == child);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    return "";
  }
  if (WIFSIGNALED(status)) {
    const bool hung = WTERMSIG(status) == SIGALRM;
    return (hung ? "hangs" : "killed by signal " + std::to_string(WTERMSIG(status))) + "; " +
           output;
  }
  return output.empty() ? "status " + std::to_string(WEXITSTATUS(status)) : output;
}

}  // namespace arvl_test

namespace {

// Counts the lines of the library and allocates nothing.
void takeLogLine(int, const char *, va_list) {
  arvl_test::logLines.fetch_add(1);
}

}  // namespace
