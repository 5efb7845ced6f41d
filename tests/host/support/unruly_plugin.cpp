// A plug-in that misbehaves as the variable UNRULY says. A file with the name of the step in the directory
// UNRULY_SCRIPT lists the actions of the step, one per line, words separated by tabs. A first line "be" and
// a behaviour overrides UNRULY.

#include <fcntl.h>
#include <json/writer.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <list>
#include <sstream>
#include <string>
#include <vector>

#include "protocol/packet_frame.h"
#include "zarn/arvlapp/agent.h"

// Programs built with _FORTIFY_SOURCE call this instead of syslog.
extern "C" void __syslog_chk(int priority, int flag, const char *format, ...);

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
  ZARN::ARVLAPP::PacketHeader header;
  header.type = static_cast<std::uint16_t>(type);
  header.payloadLength = static_cast<std::uint32_t>(payload.size());
  const ZARN::ARVLAPP::PacketHeaderBytes bytes = ZARN::ARVLAPP::encodePacketHeader(header);
  return std::string(bytes.begin(), bytes.end()) + payload;
}

// Returns a request whose answer is as long as the request.
std::string echoed(std::size_t size) {
  return frame(16, "{\"path\":\"/" + std::string(size, 'x') + "\"}");
}

std::string uploadOf(const char *path) {
  return frame(3, std::string("{\"data\":[{\"source\":{\"type\":\"file\",\"path\":\"") + path +
                      "\"},\"destination\":{\"path\":\"/uploaded\"}}]}");
}

void waitForSignal(int number) {
  sigset_t awaited;
  sigemptyset(&awaited);
  sigaddset(&awaited, number);
  sigwait(&awaited, &number);
}

void holdBack(int number) {
  sigset_t held;
  sigemptyset(&held);
  sigaddset(&held, number);
  sigprocmask(SIG_BLOCK, &held, nullptr);
}

[[noreturn]] void sleepForever() {
  for (;;) {
    pause();
  }
}

// Behaviours that write to the socket directly.
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
  } else if (how == "completes with a text") {
    writeAll(fd, frame(15, getenv("UNRULY_TEXT")));
  } else if (how == "completes with an array") {
    std::string array = "0";
    for (int i = 1; i < atoi(getenv("UNRULY_ELEMENTS")); ++i) {
      array += ",0";
    }
    writeAll(fd, frame(15, R"({"success":true,"array":[)" + array + "]}"));
  } else if (how == "completes with a long text") {
    writeAll(fd, frame(15, R"({"success":true,"text":")" + std::string(33554400, 'x') + "\"}"));
  } else if (how ==
             "exports a result for no packet") {  // the answer has more than the result alone
    const std::string begin = R"({"success":true,"app_data_version":"1.0","text":")";
    writeAll(fd, frame(5, begin + std::string(0x2000000 - begin.size() - 2, 'x') + "\"}"));
  } else if (how == "a summary that JSON makes longer") {  // six bytes for each character
    std::string texts = R"({"success":true)";
    for (const char *name : {"backup_short", "backup_long", "restore_short", "restore_long"}) {
      texts += std::string(",\"") + name + "\":\"" + std::string(8388000, '\1') + '"';
    }
    writeAll(fd, frame(24, texts + "}"));
  } else if (how == "breaks the rule") {
    writeAll(fd, frame(15, "{\"success\":\"yes\"}"));
  } else if (how == "a packet after the completion") {
    writeAll(fd, frame(15, success) + frame(22, ""));
  } else if (how == "the framework's packet") {
    writeAll(fd, frame(26, success));
  } else if (how == "an unknown type") {
    writeAll(fd, frame(99, success));
  } else if (how == "asks with more than is read") {
    writeAll(fd, frame(22, R"({"data":[1]})") + frame(23, R"({"data":[1]})") + frame(15, success));
  } else if (how == "completes in depth") {
    writeAll(fd, frame(15, "{\"success\":true,\"deep\":" + std::string(500, '[') +
                               std::string(500, ']') + "}"));
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
    sleepForever();
  } else if (how == "closes and lives on") {
    close(fd);
    say("hanging");
    sleepForever();
  } else if (how == "closes and ignores TERM") {
    signal(SIGTERM, SIG_IGN);
    close(fd);
    say("hanging");
    sleepForever();
  } else if (how == "closes inside a packet and lives on") {
    writeAll(fd, frame(15, success).substr(0, 12));
    close(fd);
    say("hanging");
    sleepForever();
  } else if (how == "closes and exits with 3 when told") {
    holdBack(SIGUSR1);
    close(fd);
    say("closed");
    waitForSignal(SIGUSR1);
    _exit(3);
  } else if (how == "asks and never reads") {
    for (int i = 0; i < 64; ++i) {
      writeAll(fd, echoed(1 << 20));
    }
    writeAll(fd, frame(15, success));
  } else if (how == "completes without reading an answer") {
    holdBack(SIGUSR1);
    shutdown(fd, SHUT_RD);
    writeAll(fd, frame(25, R"({"progress_stage":"begun","progress_percentage":1})"));
    waitForSignal(SIGUSR1);
    writeAll(fd, frame(15, success));
  } else if (how == "uploads") {
    say("uploading");
    writeAll(fd, uploadOf(getenv("UNRULY_FILE")));
    sleepForever();
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
    signal(SIGSEGV, SIG_DFL);  // otherwise the handler of a sanitizer runs
    raise(SIGSEGV);
  } else if (how == "hangs") {
    say("hanging");
    sleepForever();
  } else if (how == "hangs and ignores TERM") {
    signal(SIGTERM, SIG_IGN);
    say("hanging");
    sleepForever();
  } else if (how == "leaves a child that holds its output") {
    const pid_t child = fork();
    if (child == 0) {
      signal(SIGTERM, SIG_IGN);
      sleepForever();
    }
    printf("child %d\n", static_cast<int>(child));
    fflush(stdout);
    _exit(3);
  } else {
    return false;
  }
  return true;
}

__attribute__((format(printf, 2, 3))) void vsyslogOf(int priority, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vsyslog(priority, format, arguments);
  va_end(arguments);
}

// Replaces the descriptor of the log channel by a socket of the plug-in.
void logOverAnotherDescriptor() {
  int own[2];
  if (socketpair(AF_UNIX, SOCK_DGRAM, 0, own) != 0 ||
      dup2(own[0], atoi(getenv("ARVL_HOST_LOG_FD"))) < 0) {
    abort();
  }
  syslog(LOG_ERR, "not for this socket");
  char byte;
  say(recv(own[1], &byte, 1, MSG_DONTWAIT) < 0 ? "nothing arrived" : "it arrived");
}

// ---- Scripts.

using ZARN::ARVLAPP::Agent;
using ZARN::ARVLAPP::FileInfo;
using Arguments = std::vector<std::string>;

std::vector<Arguments> scriptOf(const std::string &step) {
  std::vector<Arguments> script;
  const char *folder = getenv("UNRULY_SCRIPT");
  std::ifstream file(folder != nullptr ? folder + ("/" + step) : "");
  for (std::string line; std::getline(file, line);) {
    Arguments &words = script.emplace_back();
    std::istringstream text(line);
    for (std::string word; std::getline(text, word, '\t');) {
      words.push_back(word);
    }
  }
  return script;
}

std::string behaviourOf(const std::vector<Arguments> &script) {
  if (!script.empty() && script[0][0] == "be") {
    return script[0].at(1);
  }
  const char *variable = getenv("UNRULY");
  return variable != nullptr ? variable : "";
}

FileInfo fileOf(const std::string &type, const std::string &path) {
  FileInfo file;
  file.setPath(path);
  if (type == "dir") {
    file.setDirType();
  } else if (type == "symlink") {
    file.setSymlinkType();
  } else {
    file.setRegType();
  }
  return file;
}

bool upload(Agent &agent, const Arguments &words) {
  FileInfo source = fileOf(words.at(1), words.at(2));
  source.setTemp(words[0] == "move");
  ZARN::ARVLAPP::UploadInfo info;
  info.setSource(source);
  info.setDestinationPath(words.at(3));
  return agent.upload(info);
}

bool download(Agent &agent, const Arguments &words) {
  ZARN::ARVLAPP::DownloadInfo info;
  info.setSource(fileOf(words.at(1), words.at(2)));
  info.setDestinationPath(words.at(3));
  return agent.download(info);
}

bool list(Agent &agent, const std::string &path) {
  std::list<FileInfo> entries;
  const bool isListed = agent.listDir(path, entries);
  for (const FileInfo &entry : entries) {
    say((entry.getTypeStr() + " " + entry.getPath() + " " + std::to_string(entry.getSizeByte()))
            .c_str());
  }
  return isListed;
}

bool showExternalResults(Agent &agent) {
  std::list<ZARN::ARVLAPP::ExternalDataInfo> results;
  const bool isGiven = agent.getExternalHandleResult(results);
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  for (const ZARN::ARVLAPP::ExternalDataInfo &result : results) {
    say((result.getExternalHandleName() + " " + result.getExternalHandleType() + " " +
         Json::writeString(writer, result.getExternalHandleResult()))
            .c_str());
  }
  return isGiven;
}

// Waits until a test opens the FIFO.
bool waitFor(const std::string &fifo) {
  say("waiting");
  return open(fifo.c_str(), O_RDONLY | O_CLOEXEC) >= 0;
}

bool perform(Agent &agent, const Arguments &words) {
  const std::string &verb = words[0];
  if (verb == "upload" || verb == "move") {
    return upload(agent, words);
  }
  if (verb == "download") {
    return download(agent, words);
  }
  if (verb == "list") {
    return list(agent, words.at(1));
  }
  if (verb == "create") {
    return agent.createDir(words.at(1));
  }
  if (verb == "show external results") {
    return showExternalResults(agent);
  }
  return verb == "wait" ? waitFor(words.at(1)) : verb == "be";
}

// Runs a script. Goes on after a refused request. "fail", a section and a key end the script.
bool follow(Agent &agent, const std::vector<Arguments> &script) {
  for (const Arguments &words : script) {
    if (words[0] == "fail") {
      agent.setErrorMsg(words.at(1), words.at(2));
      return false;
    }
    if (!perform(agent, words)) {
      say((words[0] + ": refused").c_str());
    }
  }
  return true;
}

void behaveDuringTheStep(const std::string &how) {
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
  } else if (how == "logs in every way") {
    errno = EACCES;
    for (int priority = LOG_EMERG; priority <= LOG_DEBUG; ++priority) {
      __extension__ syslog(LOG_USER | priority, "%m");
    }
    printf("errno is %s\n", errno == EACCES ? "kept" : "changed");
    fflush(stdout);
    syslog(LOG_ERR, "%s|", std::string(3000, 'l').c_str());
    syslog(LOG_ERR, "%s|", std::string(1 << 20, 'm').c_str());
    vsyslogOf(LOG_ERR, "by %s", "vsyslog");
    __syslog_chk(LOG_ERR, 1, "by %s", "__syslog_chk");
  } else if (how == "logs for good") {
    for (;;) {
      syslog(LOG_ERR, "again");
    }
  } else if (how == "closes the log channel") {
    logOverAnotherDescriptor();
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
  const std::string step = std::filesystem::path(argv[0]).filename();
  const std::vector<Arguments> script = scriptOf(step);
  const std::string how = behaviourOf(script);
  if (behaveWithoutCompletion(how) || behaveRaw(how, atoi(argv[2]))) {
    return 0;
  }
  if (how == "lists its descriptors") {
    listDescriptors();
  }
  if (how == "shows its limit of descriptors") {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    say(("at most " + std::to_string(limit.rlim_cur)).c_str());
  }
  if (how == "shows what is preloaded") {
    say(getenv("LD_PRELOAD"));
  }
  Agent agent;
  if (!agent.init(argc, argv)) {
    return 1;
  }
  behaveDuringTheStep(how);
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
  if (!follow(agent, script)) {
    return 0;
  }
  if (step == Agent::PLUGIN_NAME_SUMMARY) {
    ZARN::ARVLAPP::SummaryInfo summary;
    summary.setSummaryInfo("a short text", "a long text", "a short return", "a long return");
    agent.setSummaryInfo(summary);
  }
  agent.setAppDataVersion(1, 0);
  agent.setSuccess();
  return 0;
}
