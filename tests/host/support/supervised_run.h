// Runs a program with all that it starts, and sees each write and each end before it happens.
#ifndef ARVL_TESTS_HOST_SUPPORT_SUPERVISED_RUN_H_
#define ARVL_TESTS_HOST_SUPPORT_SUPERVISED_RUN_H_

#include <sys/types.h>

#include <string>
#include <vector>

#include "host/support/command.h"

namespace arvl_test {

// The thread that makes it is held in the kernel meanwhile.
struct PendingWrite {
  pid_t program = -1;  // that was run
  pid_t thread = -1;   // of it, or of something that it started
  std::string file;    // as /proc names the descriptor
  std::string text;    // the beginning, if it is long
};

// A call on which it depends what a loss of power leaves.
struct StorageCall {
  std::string name;  // "fsync", "syncfs", "rename"
  std::string file;  // that is synced, or the new name
};

class Supervisor {
 public:
  virtual ~Supervisor() = default;
  // The write is made afterwards, unless its process has been killed.
  virtual void onWrite(const PendingWrite &write) = 0;
  // Likewise of the call.
  virtual void onStorage(const StorageCall &) {}
  // False: the process is held until a later call returns true. Asked again after whatever happens.
  virtual bool mayExit(pid_t process) = 0;
};

// Returns when the program and every process that came of it are gone. Throws if nothing happens for
// thirty seconds, and kills what is left; throws where the kernel cannot supervise.
ProcessResult runSupervised(const std::vector<std::string> &words,
                            const std::vector<std::string> &variables, Supervisor &supervisor);

}  // namespace arvl_test

#endif  // ARVL_TESTS_HOST_SUPPORT_SUPERVISED_RUN_H_
