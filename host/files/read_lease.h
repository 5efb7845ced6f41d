// Tells whether a process has a file open for writing.
#ifndef ARVL_HOST_FILES_READ_LEASE_H_
#define ARVL_HOST_FILES_READ_LEASE_H_

#include "files/unique_fd.h"

namespace arvl_host {

// A lease on a regular file, which the kernel grants only while no process has the file open for writing. A
// process that opens it for writing waits until the lease is gone: hold it for a short time.
class ReadLease {
 public:
  // path is an O_PATH descriptor.
  explicit ReadLease(int path);

  // Returns true if no process has opened the file for writing since the lease was taken, and none is
  // waiting to open it. Returns false if a lease is not possible: on some file systems, and for another
  // user's file.
  bool isHeld() const;
  bool isRefusedByWriter() const { return isRefusedByWriter_; }

 private:
  UniqueFd file_;  // the lease ends when it is closed
  bool isRefusedByWriter_ = false;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_FILES_READ_LEASE_H_
