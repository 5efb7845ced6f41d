#include "backup/application_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "backup/directory.h"
#include "text/dates.h"
#include "text/utf8.h"

namespace arvl_host {

namespace {

constexpr const char *kLockName = ".lock";

std::string holderOf(int file) {
  char text[256];
  const ssize_t size = pread(file, text, sizeof text, 0);
  return size > 0 ? visibleText({text, static_cast<std::size_t>(size)}) : "another process";
}

std::string ownName() {
  char host[256] = "";
  gethostname(host, sizeof host - 1);
  return "process " + std::to_string(getpid()) + " on " + host + " since " +
         dateText(microsecondsNow());
}

}  // namespace

ApplicationLock::ApplicationLock(const std::filesystem::path &folder) {
  makeDirectory(folder, 0777);
  const std::filesystem::path path = folder / kLockName;
  file_.reset(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0666));
  if (!file_) {
    failWith(errno, "cannot open " + quoted(path));
  }
  if (flock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK) {
      failWith(errno, "cannot lock " + quoted(path));
    }
    throw StoreBusy("the backups in " + quoted(folder) + " are in use by " + holderOf(file_.get()));
  }
  // Only messages use the name: prune must work on a full disk.
  const std::string name = ownName();
  if (ftruncate(file_.get(), 0) != 0 || pwrite(file_.get(), name.data(), name.size(), 0) < 0) {
    return;
  }
}

}  // namespace arvl_host
