#include "host/support/command.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace arvl_test {

namespace {

// Reads once. Returns false, and closes the descriptor, at the end of the stream.
bool readSome(int &fd, std::string &text) {
  char buffer[65536];
  const ssize_t size = read(fd, buffer, sizeof buffer);
  if (size <= 0) {
    close(fd);
    fd = -1;
    return false;
  }
  text.append(buffer, static_cast<std::size_t>(size));
  return true;
}

}  // namespace

Command::Command(const std::vector<std::string> &words, const std::vector<std::string> &variables) {
  int out[2];
  int err[2];
  if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) {
    std::abort();
  }
  std::vector<char *> argv;
  for (const std::string &word : words) {
    argv.push_back(const_cast<char *>(word.c_str()));
  }
  argv.push_back(nullptr);
  pid_ = fork();
  if (pid_ == 0) {
    for (const std::string &variable : variables) {
      putenv(const_cast<char *>(variable.c_str()));
    }
    dup2(out[1], STDOUT_FILENO);
    dup2(err[1], STDERR_FILENO);
    execv(argv[0], argv.data());
    _exit(126);
  }
  close(out[1]);
  close(err[1]);
  out_ = out[0];
  err_ = err[0];
}

Command::~Command() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    finish();
  }
}

bool Command::readMore() {
  pollfd both[2] = {{out_, POLLIN, 0}, {err_, POLLIN, 0}};
  if ((out_ < 0 && err_ < 0) || poll(both, 2, -1) < 0) {
    return false;
  }
  if (both[0].revents != 0) {
    readSome(out_, result_.out);
  }
  if (both[1].revents != 0) {
    readSome(err_, result_.err);
  }
  return true;
}

bool Command::waitFor(const std::string &text) {
  while (result_.out.find(text) == std::string::npos) {
    if (!readMore()) {
      return false;
    }
  }
  return true;
}

void Command::signal(int number) const {
  kill(pid_, number);
}

ProcessResult Command::finish() {
  while (readMore()) {
  }
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  result_.status = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
  return result_;
}

ProcessResult run(const std::vector<std::string> &words,
                  const std::vector<std::string> &variables) {
  return Command(words, variables).finish();
}

testing::AssertionResult holds(const std::string &text, const std::string &part) {
  if (text.find(part) != std::string::npos) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << "no \"" << part << "\" in:\n" << text;
}

std::string lastLine(const std::string &text) {
  const std::size_t end = text.find_last_not_of('\n');
  const std::size_t begin = text.rfind('\n', end);
  return text.substr(begin + 1, end - begin);
}

}  // namespace arvl_test
