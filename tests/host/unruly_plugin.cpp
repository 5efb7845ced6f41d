// A plug-in that behaves as UNRULY says: well, or in one of the ways that a host has to survive.

#include <arpa/inet.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "zarn/arvlapp/agent.h"

namespace {

void say(const char *text) {
  puts(text);
  fflush(stdout);
}

void writeAll(int fd, const std::string &bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
    if (n <= 0) {
      return;
    }
    done += static_cast<std::size_t>(n);
  }
}

std::string frame(unsigned type, const std::string &payload) {
  std::string bytes = "\xDC\x55";
  const std::uint16_t wireType = htons(static_cast<std::uint16_t>(type));
  const std::uint32_t length = htonl(static_cast<std::uint32_t>(payload.size()));
  bytes.append(reinterpret_cast<const char *>(&wireType), sizeof wireType);
  bytes.append(reinterpret_cast<const char *>(&length), sizeof length);
  return bytes + payload;
}

[[noreturn]] void sleepForGood() {
  for (;;) {
    pause();
  }
}

// What it does over the bare socket.
bool behaveRaw(const std::string &how, int fd) {
  const std::string success = "{\"success\":true}";
  if (how == "garbage") {
    writeAll(fd, "this is no packet at all");
  } else if (how == "over-long") {
    writeAll(fd, std::string("\xDC\x55\x00\x0F\x02\x00\x00\x01", 8));
  } else if (how == "half a packet") {
    writeAll(fd, frame(15, success).substr(0, 12));
  } else if (how == "another step's completion") {
    writeAll(fd, frame(1, success));
  } else if (how == "no JSON") {
    writeAll(fd, frame(15, "{\"success\":"));
  } else if (how == "breaks the rule") {
    writeAll(fd, frame(15, "{\"success\":\"yes\"}"));
  } else if (how == "a packet after the completion") {
    writeAll(fd, frame(15, success) + frame(22, ""));
  } else if (how == "the framework's packet") {
    writeAll(fd, frame(26, success));
  } else if (how == "an unknown type") {
    writeAll(fd, frame(99, success));
  } else if (how == "completes and exits with 3") {
    writeAll(fd, frame(15, success));
    _exit(3);
  } else if (how == "completes and crashes") {
    writeAll(fd, frame(15, success));
    abort();
  } else if (how == "completes and hangs") {
    writeAll(fd, frame(15, success));
    close(fd);
    say("hanging");
    sleepForGood();
  } else if (how == "an estimate of 3 GB") {
    writeAll(
        fd,
        frame(2,
              R"({"success":true,"file_count":1,"dir_count":1,"size":3000000000,"block_size":8})"));
  } else {
    return false;
  }
  return true;
}

bool behaveWithoutCompletion(const std::string &how) {
  if (how == "exits with 3") {
    _exit(3);
  } else if (how == "crashes") {
    raise(SIGSEGV);
  } else if (how == "hangs") {
    say("hanging");
    sleepForGood();
  } else if (how == "hangs and ignores TERM") {
    signal(SIGTERM, SIG_IGN);
    say("hanging");
    sleepForGood();
  } else if (how == "leaves a child that holds its output") {
    const pid_t child = fork();
    if (child == 0) {
      signal(SIGTERM, SIG_IGN);
      sleepForGood();
    }
    printf("child %d\n", static_cast<int>(child));
    fflush(stdout);
    _exit(3);
  } else {
    return false;
  }
  return true;
}

void behaveBeside(const std::string &how) {
  if (how == "writes to every channel") {
    say("to stdout");
    fputs("to stderr\n", stderr);
    fputs("without a line feed", stderr);
    fflush(stderr);
    syslog(LOG_INFO, "to syslog %d %%", 5);
    printf("a \x1b[31mred\x1b[0m bell \a and \xff\n");
    fflush(stdout);
  } else if (how == "floods") {
    const std::string line(99, 'x');
    for (int i = 0; i < 20000; ++i) {
      puts(line.c_str());
    }
    fflush(stdout);
  } else if (how == "a line of a megabyte") {
    say(std::string(1 << 20, 'y').c_str());
  } else if (how == "closes its output") {
    close(STDOUT_FILENO);
    close(STDERR_FILENO);
  }
}

void listDescriptors() {
  for (int fd = 0; fd < 1024; ++fd) {
    char target[256] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    if (readlink(link.c_str(), target, sizeof target - 1) > 0) {
      printf("descriptor %.*s\n", static_cast<int>(strcspn(target, ":[")), target);
    }
  }
  fflush(stdout);
}

}  // namespace

int main(int argc, char **argv) {
  const char *variable = getenv("UNRULY");
  const std::string how = variable != nullptr ? variable : "";
  if (behaveWithoutCompletion(how) || behaveRaw(how, atoi(argv[2]))) {
    return 0;
  }
  if (how == "lists its descriptors") {
    listDescriptors();
  }
  ZARN::ARVLAPP::Agent agent;
  if (!agent.init(argc, argv)) {
    return 1;
  }
  behaveBeside(how);
  if (how == "waits for a cancel") {
    say("waiting");
    while (agent.setProgress("waiting", 1)) {
      usleep(1000);
    }
    say("canceled");
    return 0;
  }
  if (how == "fails with a reason") {
    agent.setErrorMsg("a section", "a key");
    return 0;
  }
  agent.setAppDataVersion(1, 0);
  agent.setSuccess();
  return 0;
}
