// A seccomp filter holds the supervised system calls and reports them on a descriptor. All descendants of
// the program inherit it. The test is the subreaper of orphans, so it sees every process end.

#include "host/support/supervised_run.h"

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <signal.h>
#include <stddef.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace arvl_test {

namespace {

constexpr int kPatience = 30000;  // milliseconds
constexpr std::size_t kShownText = 0x10000;

[[noreturn]] void fail(const std::string &what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

// ---- In the child, between fork and exec.

constexpr unsigned kHeldCalls[] = {
    SYS_write,      SYS_fsync, SYS_syncfs, SYS_renameat2,
#ifdef SYS_rename
    SYS_rename,
#endif
#ifdef SYS_renameat
    SYS_renameat,
#endif
    SYS_exit_group,
};

int installFilter() {
  std::vector<sock_filter> filter = {{BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)}};
  for (const unsigned call : kHeldCalls) {
    filter.push_back({BPF_JMP | BPF_JEQ | BPF_K, 0, 1, call});  // another call skips the next
    filter.push_back({BPF_RET | BPF_K, 0, 0, SECCOMP_RET_USER_NOTIF});
  }
  filter.push_back({BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW});
  sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  // Held calls are not restarted by a signal, which would show them twice.
  return static_cast<int>(
      syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER,
              SECCOMP_FILTER_FLAG_NEW_LISTENER | SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV, &program));
}

// A message of one byte, the minimum, with room for a descriptor.
struct DescriptorMessage {
  DescriptorMessage() {
    head.msg_iov = &data;
    head.msg_iovlen = 1;
    head.msg_control = control;
    head.msg_controllen = sizeof control;
  }
  DescriptorMessage(const DescriptorMessage &) = delete;
  DescriptorMessage &operator=(const DescriptorMessage &) = delete;

  char byte = 0;
  iovec data = {&byte, 1};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  msghdr head = {};
};

bool sendDescriptor(int socket, int fd) {
  DescriptorMessage message;
  cmsghdr *header = CMSG_FIRSTHDR(&message.head);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof fd);
  std::memcpy(CMSG_DATA(header), &fd, sizeof fd);
  return sendmsg(socket, &message.head, 0) == 1;
}

// Returns -1 if the peer closes the socket instead.
int receiveDescriptor(int socket) {
  DescriptorMessage message;
  const cmsghdr *header = nullptr;
  if (recvmsg(socket, &message.head, MSG_CMSG_CLOEXEC) == 1) {
    header = CMSG_FIRSTHDR(&message.head);
  }
  int fd = -1;
  if (header != nullptr) {
    std::memcpy(&fd, CMSG_DATA(header), sizeof fd);
  }
  return fd;
}

// ---- The held calls.

std::string fileOf(pid_t thread, std::uint64_t fd) {
  std::error_code error;
  return std::filesystem::read_symlink(
      "/proc/" + std::to_string(thread) + "/fd/" + std::to_string(fd), error);
}

std::string textOf(pid_t thread, std::uint64_t address, std::uint64_t size) {
  std::string text(std::min<std::uint64_t>(size, kShownText), '\0');
  const iovec here = {text.data(), text.size()};
  const iovec there = {reinterpret_cast<void *>(address), text.size()};
  const ssize_t got = process_vm_readv(thread, &here, 1, &there, 1, 0);
  text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  return text;
}

// Resolves a relative path against the descriptor of its directory.
std::string pathOf(pid_t thread, std::uint64_t folder, std::uint64_t address) {
  const std::string name = textOf(thread, address, PATH_MAX).c_str();
  return name[0] == '/' ? name : fileOf(thread, folder) + "/" + name;
}

StorageCall storageCallOf(const seccomp_notif &call) {
  const auto thread = static_cast<pid_t>(call.pid);
  const auto *arguments = call.data.args;
  switch (call.data.nr) {
    case SYS_fsync:
      return {"fsync", fileOf(thread, arguments[0])};
    case SYS_syncfs:
      return {"syncfs", fileOf(thread, arguments[0])};
#ifdef SYS_rename
    case SYS_rename:
      return {"rename", textOf(thread, arguments[1], PATH_MAX).c_str()};
#endif
    default:
      return {"rename", pathOf(thread, arguments[2], arguments[3])};
  }
}

std::vector<pid_t> ownChildren() {
  const std::string self = std::to_string(getpid());
  std::ifstream list("/proc/" + self + "/task/" + self + "/children");
  return {std::istream_iterator<pid_t>(list), {}};
}

// ---- The run.

class Run {
 public:
  Run(const std::vector<std::string> &words, const std::vector<std::string> &variables,
      Supervisor &supervisor)
      : words_(words), variables_(variables), supervisor_(supervisor) {}
  ~Run();
  Run(const Run &) = delete;
  Run &operator=(const Run &) = delete;

  ProcessResult finish();

 private:
  enum Channel { kCalls, kChildren, kOut, kErr, kChannels };

  void start();
  [[noreturn]] void becomeProgram(int socket, int out, int err);
  void handleCall();
  void handleWrite(const seccomp_notif &call);
  void goOn(std::uint64_t id);
  void releaseExits();
  void read(Channel channel, std::string &text);
  void close(Channel channel);
  bool reap();

  const std::vector<std::string> &words_;
  const std::vector<std::string> &variables_;
  Supervisor &supervisor_;

  sigset_t oldMask_ = {};
  pid_t program_ = -1;
  pollfd channels_[kChannels] = {
      {-1, POLLIN, 0}, {-1, POLLIN, 0}, {-1, POLLIN, 0}, {-1, POLLIN, 0}};
  std::vector<std::pair<std::uint64_t, pid_t>> heldExits_;
  ProcessResult result_;
};

void Run::start() {
  int socket[2];
  int out[2];
  int err[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, socket) != 0 ||
      pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) {
    fail("cannot make the channels");
  }
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  sigset_t child;
  sigemptyset(&child);
  sigaddset(&child, SIGCHLD);
  sigprocmask(SIG_BLOCK, &child, &oldMask_);
  channels_[kChildren].fd = signalfd(-1, &child, SFD_CLOEXEC | SFD_NONBLOCK);

  program_ = fork();
  if (program_ == 0) {
    becomeProgram(socket[1], out[1], err[1]);
  }
  for (const int fd : {socket[1], out[1], err[1]}) {
    ::close(fd);
  }
  channels_[kCalls].fd = receiveDescriptor(socket[0]);
  ::close(socket[0]);
  channels_[kOut].fd = out[0];
  channels_[kErr].fd = err[0];
  if (program_ < 0 || channels_[kCalls].fd < 0) {
    throw std::runtime_error("cannot supervise a program here");
  }
}

void Run::becomeProgram(int socket, int out, int err) {
  for (const std::string &variable : variables_) {
    putenv(const_cast<char *>(variable.c_str()));
  }
  std::vector<char *> argv;
  for (const std::string &word : words_) {
    argv.push_back(const_cast<char *>(word.c_str()));
  }
  argv.push_back(nullptr);
  sigprocmask(SIG_SETMASK, &oldMask_, nullptr);
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // nothing would release the held calls
  const int calls = installFilter();
  if (calls >= 0 && sendDescriptor(socket, calls)) {
    execv(argv[0], argv.data());
  }
  _exit(126);
}

Run::~Run() {
  close(kCalls);  // held calls now fail
  for (std::vector<pid_t> left = ownChildren(); !left.empty(); left = ownChildren()) {
    for (const pid_t child : left) {
      kill(child, SIGKILL);
      waitpid(child, nullptr, 0);
    }
  }
  for (const Channel channel : {kChildren, kOut, kErr}) {
    close(channel);
  }
  sigprocmask(SIG_SETMASK, &oldMask_, nullptr);
}

ProcessResult Run::finish() {
  start();
  while (!reap()) {
    const int ready = poll(channels_, kChannels, kPatience);
    if (ready < 0 && errno != EINTR) {
      fail("poll");
    }
    if (ready == 0) {
      throw std::runtime_error("a process is left and does nothing");
    }
    if ((channels_[kCalls].revents & POLLIN) != 0) {
      handleCall();
    } else if (channels_[kCalls].revents != 0) {
      close(kCalls);
    }
    releaseExits();
    read(kOut, result_.out);
    read(kErr, result_.err);
  }
  while (channels_[kOut].fd >= 0 || channels_[kErr].fd >= 0) {
    poll(channels_, kChannels, -1);
    read(kOut, result_.out);
    read(kErr, result_.err);
  }
  return result_;
}

void Run::handleCall() {
  seccomp_notif call = {};
  if (ioctl(channels_[kCalls].fd, SECCOMP_IOCTL_NOTIF_RECV, &call) != 0) {
    return;  // the thread has been killed
  }
  switch (call.data.nr) {
    case SYS_exit_group:
      heldExits_.emplace_back(call.id, static_cast<pid_t>(call.pid));
      return;
    case SYS_write:
      handleWrite(call);
      break;
    default:
      supervisor_.onStorage(storageCallOf(call));
  }
  goOn(call.id);
}

void Run::handleWrite(const seccomp_notif &call) {
  PendingWrite write;
  write.program = program_;
  write.thread = static_cast<pid_t>(call.pid);
  write.file = fileOf(write.thread, call.data.args[0]);
  write.text = textOf(write.thread, call.data.args[1], call.data.args[2]);
  supervisor_.onWrite(write);
}

void Run::goOn(std::uint64_t id) {
  seccomp_notif_resp answer = {};
  answer.id = id;
  answer.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
  ioctl(channels_[kCalls].fd, SECCOMP_IOCTL_NOTIF_SEND,
        &answer);  // fails if the thread has been killed
}

void Run::releaseExits() {
  const auto release = [this](const std::pair<std::uint64_t, pid_t> &held) {
    if (!supervisor_.mayExit(held.second)) {
      return false;
    }
    goOn(held.first);
    return true;
  };
  heldExits_.erase(std::remove_if(heldExits_.begin(), heldExits_.end(), release), heldExits_.end());
}

void Run::read(Channel channel, std::string &text) {
  if (channels_[channel].fd < 0 || channels_[channel].revents == 0) {
    return;
  }
  char buffer[65536];
  const ssize_t size = ::read(channels_[channel].fd, buffer, sizeof buffer);
  if (size <= 0) {
    close(channel);
  } else {
    text.append(buffer, static_cast<std::size_t>(size));
  }
}

void Run::close(Channel channel) {
  if (channels_[channel].fd >= 0) {
    ::close(channels_[channel].fd);
  }
  channels_[channel].fd = -1;
  channels_[channel].revents = 0;
}

// Reaps ended children. Returns true when no process is left.
bool Run::reap() {
  signalfd_siginfo event;
  while (::read(channels_[kChildren].fd, &event, sizeof event) > 0) {
  }
  int status = 0;
  pid_t pid = 0;
  while ((pid = waitpid(-1, &status, WNOHANG)) > 0) {
    if (pid == program_) {
      result_.status = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    }
  }
  return pid < 0;
}

}  // namespace

ProcessResult runSupervised(const std::vector<std::string> &words,
                            const std::vector<std::string> &variables, Supervisor &supervisor) {
  return Run(words, variables, supervisor).finish();
}

}  // namespace arvl_test
