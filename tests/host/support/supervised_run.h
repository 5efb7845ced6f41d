// Runs a program and reports each write and exit of its processes before it happens.
#ifndef ARVL_TESTS_HOST_SUPPORT_SUPERVISED_RUN_H_
#define ARVL_TESTS_HOST_SUPPORT_SUPERVISED_RUN_H_

#include <sys/types.h>

#include <string>
#include <vector>

#include "host/support/command.h"

namespace arvl_test {

// A write() whose thread the kernel holds.
struct PendingWrite {
  pid_t program = -1;  // the program that was run
  pid_t thread = -1;   // thread of the program or of a descendant
  std::string file;    // path from /proc/PID/fd
  std::string text;    // the beginning, if it is long
};

// A call that decides which data survives a loss of power.
struct StorageCall {
  std::string name;  // "fsync", "syncfs", "rename"
  std::string file;  // the synced file, or the new name
};

class Supervisor {
 public:
  virtual ~Supervisor() = default;
  // Called before the write, which follows unless its process has been killed.
  virtual void onWrite(const PendingWrite &write) = 0;
  // Called before the call, which follows unless its process has been killed.
  virtual void onStorage(const StorageCall &) {}
  // Returns false to hold the process. Called again after each event until it returns true.
  virtual bool mayExit(pid_t process) = 0;
};

// Returns when the program and all its descendants have ended. Throws if nothing happens for thirty
// seconds, after killing the rest, and if the kernel cannot supervise processes.
ProcessResult runSupervised(const std::vector<std::string> &words,
                            const std::vector<std::string> &variables, Supervisor &supervisor);

}  // namespace arvl_test

#endif  // ARVL_TESTS_HOST_SUPPORT_SUPERVISED_RUN_H_
