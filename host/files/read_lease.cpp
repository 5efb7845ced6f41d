#include "files/read_lease.h"

#include <fcntl.h>
#include <signal.h>

#include <cerrno>
#include <string>

namespace arvl_host {

ReadLease::ReadLease(int path)
    : file_(open(("/proc/self/fd/" + std::to_string(path)).c_str(),
                 O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
  // The kernel signals the holder when another process wants to write. SIGIO, its usual signal, would end this
  // process; SIGURG is ignored by default.
  if (!file_ || fcntl(file_.get(), F_SETSIG, SIGURG) != 0 ||
      fcntl(file_.get(), F_SETLEASE, F_RDLCK) != 0) {
    isRefusedByWriter_ = errno == EAGAIN;
  }
}

// F_GETLEASE already returns F_UNLCK while another process waits for the end of the lease.
bool ReadLease::isHeld() const {
  return file_ && fcntl(file_.get(), F_GETLEASE) == F_RDLCK;
}

}  // namespace arvl_host
