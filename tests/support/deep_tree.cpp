#include "support/deep_tree.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace arvl_test {

namespace {

void check(bool isDone, const std::string &what) {
  if (!isDone) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

}  // namespace

void makeDeepTree(const std::string &top, unsigned levels) {
  const std::string name(100, 'd');
  check(mkdir(top.c_str(), 0755) == 0, top);
  int directory = open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  check(directory >= 0, top);
  for (unsigned level = 1; level < levels; ++level) {
    check(mkdirat(directory, name.c_str(), 0755) == 0, top);
    const int next = openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    check(next >= 0, top);
    close(directory);
    directory = next;
  }
  close(openat(directory, "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  close(directory);
}

DescriptorLimit::DescriptorLimit(unsigned long count) {
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  old_ = limit.rlim_cur;
  limit.rlim_cur = count;
  check(setrlimit(RLIMIT_NOFILE, &limit) == 0, "RLIMIT_NOFILE");
}

DescriptorLimit::~DescriptorLimit() {
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = old_;
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace arvl_test
