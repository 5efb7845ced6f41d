#include "examples/program_run.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/fs.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "protocol/json_text.h"
#include "protocol/packet_frame.h"
#include "protocol/packet_table.h"
#include "support/files.h"
#include "support/json.h"

namespace fs = std::filesystem;
using namespace ZARN::ARVLAPP;

namespace arvl_test {
namespace {

[[noreturn]] void fail(const std::string &what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

// ---- Processes

// Runs in the child, between fork and exec.
void install(SystemCallFault fault) {
  if (fault.kind == SystemCallFault::Kind::kNone) {
    return;
  }
  const bool kill = fault.kind == SystemCallFault::Kind::kKill;
  const auto number = static_cast<std::uint32_t>(kill ? fault.number : SYS_renameat2);
  const std::uint32_t verdict =
      kill ? std::uint32_t{SECCOMP_RET_KILL_PROCESS} : std::uint32_t{SECCOMP_RET_ERRNO} | EINVAL;
  constexpr std::uint32_t kNumber = offsetof(seccomp_data, nr);
  constexpr std::uint32_t kFlags = offsetof(seccomp_data, args) + 4 * sizeof(std::uint64_t);
  sock_filter filter[] = {
      {BPF_LD | BPF_W | BPF_ABS, 0, 0, kNumber},
      {BPF_JMP | BPF_JEQ | BPF_K, 0, 4, number},
      {BPF_JMP | BPF_JA, 0, 0, kill ? 2U : 0U},  // whatever the arguments
      {BPF_LD | BPF_W | BPF_ABS, 0, 0, kFlags},
      {BPF_JMP | BPF_JSET | BPF_K, 0, 1, RENAME_EXCHANGE},
      {BPF_RET | BPF_K, 0, 0, verdict},
      {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
  };
  sock_fprog program = {static_cast<unsigned short>(std::size(filter)), filter};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
    _exit(126);
  }
}

// Starts a program with these descriptors as its standard streams; -1 leaves a stream unchanged. The
// program inherits other descriptors only if they are not close-on-exec.
pid_t start(const std::vector<std::string> &command, const int (&streams)[3],
            SystemCallFault fault) {
  std::vector<char *> argv;
  for (const std::string &word : command) {
    argv.push_back(const_cast<char *>(word.c_str()));
  }
  argv.push_back(nullptr);
  const pid_t pid = fork();
  if (pid < 0) {
    fail("fork");
  }
  if (pid == 0) {
    for (int i = 0; i < 3; ++i) {
      if (streams[i] >= 0 && dup2(streams[i], i) < 0) {
        _exit(126);
      }
    }
    install(fault);
    execv(argv[0], argv.data());
    _exit(127);
  }
  return pid;
}

template <typename Outcome>
void waitFor(pid_t pid, Outcome &outcome) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) {
      fail("waitpid");
    }
  }
  outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  outcome.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

int openFile(const fs::path &file, int flags) {
  const int fd = open(file.c_str(), flags | O_CLOEXEC, 0600);
  if (fd < 0) {
    fail(file);
  }
  return fd;
}

// ---- Frames

bool readExactly(int fd, void *bytes, std::size_t size) {
  auto *at = static_cast<char *>(bytes);
  while (size > 0) {
    const ssize_t got = read(fd, at, size);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return false;
    }
    at += got;
    size -= static_cast<std::size_t>(got);
  }
  return true;
}

std::optional<Packet> readPacket(int fd) {
  PacketHeaderBytes bytes;
  if (!readExactly(fd, bytes.data(), bytes.size())) {
    return std::nullopt;
  }
  PacketHeader header;
  if (decodePacketHeader(bytes.data(), header) != HeaderStatus::kOk) {
    ADD_FAILURE() << "invalid packet header";
    return std::nullopt;
  }
  std::string text(header.payloadLength, '\0');
  if (!readExactly(fd, text.data(), text.size())) {
    return std::nullopt;
  }
  Packet packet;
  packet.type = static_cast<PACKET_TYPE>(header.type);
  if (!text.empty()) {
    packet.payload = parseJson(text);
  }
  EXPECT_TRUE(Util::isValidPacket(packet.type, packet.payload)) << packet.type << " " << text;
  return packet;
}

void sendPacket(int fd, PACKET_TYPE type, const Json::Value &payload) {
  const std::string text = toJsonText(payload);
  const PacketHeaderBytes header = encodePacketHeader(
      {static_cast<std::uint16_t>(type), static_cast<std::uint32_t>(text.size())});
  std::string frame(header.begin(), header.end());
  frame += text;
  const char *at = frame.data();
  for (std::size_t left = frame.size(); left > 0;) {
    const ssize_t sent = send(fd, at, left, MSG_NOSIGNAL);
    if (sent < 0) {
      return;  // the plug-in has closed; its outcome shows why
    }
    at += sent;
    left -= static_cast<std::size_t>(sent);
  }
}

// ---- The framework

class Framework {
 public:
  explicit Framework(const FrameworkScript &script) : script_(script) {}

  Json::Value answer(const Packet &request) {
    Json::Value response;
    response["success"] = true;
    fill(request, response);
    const auto refusal = script_.refusals.find(request.type);
    if (refusal != script_.refusals.end()) {
      response["success"] = false;
      response["error"] = refusal->second;
    }
    return response;
  }

 private:
  void fill(const Packet &request, Json::Value &response) {
    const bool refused = script_.refusals.count(request.type) > 0;
    switch (request.type) {
      case PACKET_LANGUAGE_REQUEST:
        response["language"] = script_.language;
        return;
      case PACKET_EXPORT_CONFIG_REQUEST:
        response["export_config"] = script_.exportConfig;
        return;
      case PACKET_SELECTED_SOURCE_REQUEST:
        response["backup_apps"] = Json::Value(Json::arrayValue);
        response["backup_folders"] = Json::Value(Json::arrayValue);
        for (const std::string &folder : script_.folders) {
          response["backup_folders"].append(Json::Value(Json::objectValue))["object"] = folder;
        }
        return;
      case PACKET_EXPORT_RESULT_REQUEST:
        response["export_result"]["success"] = true;
        response["export_result"]["app_data_version"] = script_.appDataVersion;
        return;
      case PACKET_LIST_DIR_REQUEST:
        return list(request.payload, response);
      case PACKET_CREATE_DIR_REQUEST:
        response["request"] = request.payload;
        if (!refused) {
          fs::create_directories(local(request.payload["path"].asString()));
        }
        return;
      case PACKET_UPLOAD_REQUEST:
      case PACKET_DOWNLOAD_REQUEST:
        response["data"][0] = request.payload["data"][0];
        response["data"][0]["success"] = !refused;
        if (refused) {
          response["data"][0]["error"] = script_.refusals.at(request.type);
        } else {
          transfer(request);
        }
        return;
      default:
        return;
    }
  }

  fs::path local(const std::string &remote) const { return script_.data / remote.substr(1); }

  void transfer(const Packet &request) {
    const Json::Value &source = request.payload["data"][0]["source"];
    const std::string from = source["path"].asString();
    const std::string to = request.payload["data"][0]["destination"]["path"].asString();
    if (request.type == PACKET_DOWNLOAD_REQUEST) {
      fs::copy_file(local(from), to, fs::copy_options::overwrite_existing);
      return;
    }
    if (source["is_temp"].asBool()) {
      fs::rename(from, local(to));
    } else {
      fs::copy_file(from, local(to), fs::copy_options::overwrite_existing);
    }
  }

  // The token of a page is the path and the number of the first entry.
  void list(const Json::Value &request, Json::Value &response) {
    response["request"] = request;
    std::string path = request["path"].asString();
    std::size_t first = 0;
    if (request.isMember("request_id")) {
      const std::string token = request["request_id"].asString();
      path = token.substr(0, token.find('\n'));
      first = std::stoul(token.substr(token.find('\n') + 1));
    }
    std::map<std::string, fs::path> entries;  // sorted by name
    for (const fs::directory_entry &entry : fs::directory_iterator(local(path))) {
      entries[entry.path().filename()] = entry.path();
    }
    response["entry_list"] = Json::Value(Json::arrayValue);
    std::size_t index = 0;
    for (const auto &[name, file] : entries) {
      if (index >= first && index < first + script_.pageSize) {
        response["entry_list"].append(describe(path + "/" + name, file));
      }
      ++index;
    }
    response["list_complete"] = index <= first + script_.pageSize;
    response["request_id"] = path + "\n" + std::to_string(first + script_.pageSize);
  }

  static Json::Value describe(const std::string &remote, const fs::path &file) {
    Json::Value entry;
    entry["path"] = remote;
    entry["type"] = fs::is_directory(file) ? "dir" : "file";
    entry["size"] = fs::is_directory(file) ? 0 : static_cast<int>(fs::file_size(file));
    entry["mtime"] = 1;
    return entry;
  }

  const FrameworkScript &script_;
};

void serve(int fd, pid_t pid, const FrameworkScript &script, StepOutcome &outcome) {
  Framework framework(script);
  while (std::optional<Packet> packet = readPacket(fd)) {
    const PacketInfo *info = findPacket(packet->type);
    if (info == nullptr) {
      return;  // the rule book has rejected it
    }
    if (info->kind == PacketKind::kCompletion) {
      outcome.completion = std::move(packet);
      continue;
    }
    const std::size_t index = outcome.requests.size();
    outcome.requests.push_back(*packet);
    if (script.onRequest) {
      script.onRequest(*packet);
    }
    if (script.killAt == index) {
      kill(pid, SIGKILL);
      return;
    }
    if (script.closeAt == index) {
      return;
    }
    sendPacket(fd, info->answer, framework.answer(*packet));
  }
}

}  // namespace

ProgramOutcome runProgram(const std::vector<std::string> &command, const std::string &input,
                          SystemCallFault fault) {
  const TempDir files;
  std::ofstream(files.path() / "in", std::ios::binary) << input;
  const int streams[3] = {openFile(files.path() / "in", O_RDONLY),
                          openFile(files.path() / "out", O_WRONLY | O_CREAT),
                          openFile(files.path() / "err", O_WRONLY | O_CREAT)};
  ProgramOutcome outcome;
  waitFor(start(command, streams, fault), outcome);
  for (const int fd : streams) {
    close(fd);
  }
  outcome.output = bytesOf(files.path() / "out");
  outcome.errors = bytesOf(files.path() / "err");
  return outcome;
}

BackgroundProgram::BackgroundProgram(const std::vector<std::string> &command) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    fail("pipe2");
  }
  output_ = ends[0];
  pid_ = start(command, {-1, ends[1], -1}, {});
  close(ends[1]);
}

BackgroundProgram::~BackgroundProgram() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    ProgramOutcome ignored;
    waitFor(pid_, ignored);
  }
  close(output_);
}

std::string BackgroundProgram::readLine() {
  std::string line;
  for (char byte = 0; read(output_, &byte, 1) == 1 && byte != '\n';) {
    line += byte;
  }
  return line;
}

ProgramOutcome BackgroundProgram::wait() {
  ProgramOutcome outcome;
  for (char byte = 0; read(output_, &byte, 1) == 1;) {
    outcome.output += byte;
  }
  waitFor(std::exchange(pid_, -1), outcome);
  return outcome;
}

std::vector<PACKET_TYPE> StepOutcome::requestTypes() const {
  std::vector<PACKET_TYPE> types;
  for (const Packet &request : requests) {
    types.push_back(request.type);
  }
  return types;
}

bool StepOutcome::succeeded() const {
  return completion.has_value() && completion->payload["success"].asBool();
}

std::string StepOutcome::errorKey() const {
  if (!completion.has_value() || !completion->payload.isMember("err_msg")) {
    return "";
  }
  const Json::Value &message = completion->payload["err_msg"];
  return message["section"].asString() + "." + message["key"].asString();
}

StepOutcome runStep(const fs::path &executable, const FrameworkScript &script) {
  const TempDir files;
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    fail("socketpair");
  }
  const int errors = openFile(files.path() / "err", O_WRONLY | O_CREAT);
  const int inherited = dup(ends[1]);  // without close-on-exec
  const pid_t pid = start({executable, "-f", std::to_string(inherited), "-v", script.version},
                          {-1, -1, errors}, script.fault);
  close(inherited);
  close(ends[1]);
  close(errors);

  StepOutcome outcome;
  serve(ends[0], pid, script, outcome);
  close(ends[0]);
  waitFor(pid, outcome);
  outcome.errors = bytesOf(files.path() / "err");
  return outcome;
}

}  // namespace arvl_test
