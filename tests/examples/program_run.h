// Runs programs for the tests: as ordinary programs, or as a plug-in whose framework a script plays.
#ifndef ARVL_TESTS_EXAMPLES_PROGRAM_RUN_H_
#define ARVL_TESTS_EXAMPLES_PROGRAM_RUN_H_

#include <json/value.h>
#include <sys/types.h>
#include <zarn/arvlapp/protocol_util.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/temp_dir.h"

namespace arvl_test {

// A fault of one system call of the program. The kernel injects it before the call has any effect.
struct SystemCallFault {
  enum class Kind { kNone, kKill, kRefuseExchange };
  Kind kind = Kind::kNone;
  long number = 0;  // kKill: SIGKILL at this call

  static SystemCallFault killAt(long number) { return {Kind::kKill, number}; }
  // renameat2 with RENAME_EXCHANGE fails with EINVAL, as on a file system without support for it.
  static SystemCallFault refuseExchange() { return {Kind::kRefuseExchange, 0}; }
};

struct ProgramOutcome {
  int exitCode = -1;  // -1: ended by a signal
  int signal = 0;
  std::string output;
  std::string errors;
};

ProgramOutcome runProgram(const std::vector<std::string> &command, const std::string &input = "",
                          SystemCallFault fault = {});

// A program that runs in the background and is killed by the destructor. Reads its output line by line.
class BackgroundProgram {
 public:
  explicit BackgroundProgram(const std::vector<std::string> &command);
  ~BackgroundProgram();
  BackgroundProgram(const BackgroundProgram &) = delete;
  BackgroundProgram &operator=(const BackgroundProgram &) = delete;

  std::string readLine();  // waits for a line; returns an empty string at the end of the output
  ProgramOutcome wait();   // waits for the end; returns the rest of the output, without errors

 private:
  pid_t pid_ = -1;
  int output_ = -1;
};

struct Packet {
  ZARN::ARVLAPP::PACKET_TYPE type = ZARN::ARVLAPP::PACKET_TYPE_NONE;
  Json::Value payload;
};

// The framework's answers and faults in one step.
struct FrameworkScript {
  std::string version = "2.3";
  std::string language = "enu";
  std::vector<std::string> folders;
  Json::Value exportConfig;
  std::string appDataVersion = "1.1";
  std::filesystem::path data;   // uploads to "/x" go to data/"x", downloads come from there
  std::size_t pageSize = 1000;  // of a listing

  std::map<int, std::string> refusals;            // by type of request: the error text
  std::function<void(const Packet &)> onRequest;  // before the answer
  std::optional<std::size_t> closeAt;  // closes instead of answering this request, counted from 0
  std::optional<std::size_t> killAt;   // kills the plug-in instead of answering this request
  SystemCallFault fault;
};

struct StepOutcome {
  std::vector<Packet> requests;
  std::optional<Packet> completion;
  int exitCode = -1;
  int signal = 0;
  std::string errors;

  std::vector<ZARN::ARVLAPP::PACKET_TYPE> requestTypes() const;
  bool succeeded() const;
  std::string errorKey() const;  // "section.key" of a failure; empty without one
};

// Runs the executable with -f and -v in the current environment until it ends. Fails the test if a
// request breaks its rule.
StepOutcome runStep(const std::filesystem::path &executable, const FrameworkScript &script);

}  // namespace arvl_test

#endif  // ARVL_TESTS_EXAMPLES_PROGRAM_RUN_H_
