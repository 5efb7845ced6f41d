#include "step/plugin_process.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>
#include <vector>

#include "step/log_channel.h"

namespace arvl_host {

namespace {

constexpr const char *kPreloadName = "libarvl-syslog-preload.so";

[[noreturn]] void fail(const std::string &what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

std::pair<UniqueFd, UniqueFd> makeSocketPair(int type) {
  int ends[2];
  if (socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends) != 0) {
    fail("cannot create a socket pair");
  }
  return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

// Returns the read end and the write end.
std::pair<UniqueFd, UniqueFd> makePipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    fail("cannot create a pipe");
  }
  return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

void makeNonBlocking(int fd) {
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

// Returns the path of the preload object, next to the program in the build tree or in the library directory
// of its prefix. Returns an empty string if there is none, or if its path has a character at which the loader
// splits LD_PRELOAD: syslog lines then go to the system log.
std::string findPreload() {
  std::error_code error;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
  for (const std::filesystem::path &candidate :
       {program.parent_path() / kPreloadName,
        program.parent_path() / ARVL_HOST_PRELOAD_DIR / kPreloadName}) {
    if (std::filesystem::exists(candidate, error)) {
      const std::string path = std::filesystem::weakly_canonical(candidate, error);
      return path.find_first_of(" :") == std::string::npos ? path : "";
    }
  }
  return "";
}

std::string inodeOf(int fd) {
  struct stat status;
  if (fstat(fd, &status) != 0) {
    fail("cannot examine a descriptor");
  }
  return std::to_string(status.st_ino);
}

// Returns a list variable with our entry in front of the entries of the user's environment.
std::string listVariable(const std::string &name, const std::string &ours) {
  const char *theirs = std::getenv(name.c_str());
  return name + "=" + ours + (theirs != nullptr ? ":" + std::string(theirs) : "");
}

std::vector<std::string> makeEnvironment(int logChannel) {
  const std::string preload = findPreload();
  std::vector<std::string> ours;
  if (!preload.empty()) {
    ours = {listVariable("LD_PRELOAD", preload),
            // A plug-in that was built with the address sanitizer would refuse to be preloaded.
            listVariable("ASAN_OPTIONS", "verify_asan_link_order=0"),
            kLogChannelVariable + std::string("=") + std::to_string(logChannel),
            kLogChannelInodeVariable + std::string("=") + inodeOf(logChannel)};
  }

  std::vector<std::string> environment = ours;
  for (char **variable = environ; *variable != nullptr; ++variable) {
    const std::string text = *variable;
    const std::string prefix = text.substr(0, text.find('=') + 1);
    const auto hasPrefix = [&](const std::string &own) { return own.rfind(prefix, 0) == 0; };
    if (std::none_of(ours.begin(), ours.end(), hasPrefix)) {
      environment.push_back(text);
    }
  }
  return environment;
}

std::vector<char *> pointersTo(std::vector<std::string> &texts) {
  std::vector<char *> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string &text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

void resetSignals() {
  for (int number = 1; number < NSIG; ++number) {
    signal(number, SIG_DFL);
  }
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Forks with all signals blocked, or a signal before exec would run the host's handlers in the child. They
// stay blocked in the child, where this returns 0.
pid_t forkQuietly() {
  sigset_t all;
  sigset_t mask;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, &mask);
  const pid_t pid = fork();
  if (pid != 0) {
    const int error = errno;
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    errno = error;
  }
  if (pid < 0) {
    fail("cannot start a process");
  }
  return pid;
}

// The limit before the host raised its own.
rlimit pluginDescriptors = {};

// Runs in the child between fork and exec, so it must not allocate. Returns only on failure, with the reason
// in errno.
void becomePlugin(char **arguments, char **environment, int socket, int output, int error,
                  int logChannel) {
  setpgid(0, 0);
  resetSignals();
  if (pluginDescriptors.rlim_max > 0) {
    setrlimit(RLIMIT_NOFILE, &pluginDescriptors);
  }
  const int null = open("/dev/null", O_RDONLY);
  if (null < 0 || dup2(null, STDIN_FILENO) < 0 || dup2(output, STDOUT_FILENO) < 0 ||
      dup2(error, STDERR_FILENO) < 0) {
    return;
  }
  close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
  if (fcntl(socket, F_SETFD, 0) != 0 || fcntl(logChannel, F_SETFD, 0) != 0) {
    return;
  }
  execve(arguments[0], arguments, environment);
}

}  // namespace

void raiseDescriptorLimit() {
  if (getrlimit(RLIMIT_NOFILE, &pluginDescriptors) == 0) {
    const rlimit raised = {pluginDescriptors.rlim_max, pluginDescriptors.rlim_max};
    setrlimit(RLIMIT_NOFILE, &raised);
  }
}

PluginProcess startPlugin(const std::string &executable, const std::string &frameworkVersion) {
  auto [socket, pluginSocket] = makeSocketPair(SOCK_STREAM);
  auto [logLines, pluginLog] = makeSocketPair(SOCK_DGRAM);
  auto [output, pluginOutput] = makePipe();
  auto [error, pluginError] = makePipe();
  auto [failure, pluginFailure] = makePipe();

  std::vector<std::string> arguments = {executable, "-f", std::to_string(pluginSocket.get()), "-v",
                                        frameworkVersion};
  std::vector<std::string> environment = makeEnvironment(pluginLog.get());
  const std::vector<char *> argv = pointersTo(arguments);
  const std::vector<char *> envp = pointersTo(environment);

  PluginProcess plugin;
  plugin.pid = forkQuietly();
  if (plugin.pid == 0) {
    becomePlugin(const_cast<char **>(argv.data()), const_cast<char **>(envp.data()),
                 pluginSocket.get(), pluginOutput.get(), pluginError.get(), pluginLog.get());
    const int reason = errno;
    [[maybe_unused]] const ssize_t sent = write(pluginFailure.get(), &reason, sizeof reason);
    _exit(127);
  }
  setpgid(plugin.pid, plugin.pid);  // the child may not have called it yet

  pluginFailure.reset();
  int reason = 0;
  ssize_t size = 0;
  do {
    size = read(failure.get(), &reason, sizeof reason);
  } while (size < 0 && errno == EINTR);
  if (size == sizeof reason) {
    waitpid(plugin.pid, nullptr, 0);
    errno = reason;
    fail("cannot run " + executable);
  }

  plugin.socket = std::move(socket);
  plugin.output = std::move(output);
  plugin.error = std::move(error);
  plugin.logLines = std::move(logLines);
  for (const UniqueFd *fd : {&plugin.socket, &plugin.output, &plugin.error, &plugin.logLines}) {
    makeNonBlocking(fd->get());
  }
  return plugin;
}

}  // namespace arvl_host
