#include "support/small_file_system.h"

#include <sched.h>
#include <sys/mount.h>

#include <utility>

namespace arvl_test {

SmallFileSystem::SmallFileSystem(std::string directory, const std::string &options)
    : directory_(std::move(directory)),
      isMounted_(unshare(CLONE_NEWNS) == 0 &&
                 mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                 mount("tmpfs", directory_.c_str(), "tmpfs", 0, options.c_str()) == 0) {}

SmallFileSystem::~SmallFileSystem() {
  if (isMounted_) {
    umount2(directory_.c_str(), MNT_DETACH);
  }
}

}  // namespace arvl_test
