#ifndef ARVL_TESTS_SUPPORT_SMALL_FILE_SYSTEM_H_
#define ARVL_TESTS_SUPPORT_SMALL_FILE_SYSTEM_H_

#include <string>

namespace arvl_test {

// Mounts a small file system on a directory; only this process and its children see it.
class SmallFileSystem {
 public:
  SmallFileSystem(std::string directory, const std::string &options);
  ~SmallFileSystem();
  SmallFileSystem(const SmallFileSystem &) = delete;
  SmallFileSystem &operator=(const SmallFileSystem &) = delete;

  bool isMounted() const { return isMounted_; }

 private:
  const std::string directory_;
  bool isMounted_ = false;
};

}  // namespace arvl_test

#endif  // ARVL_TESTS_SUPPORT_SMALL_FILE_SYSTEM_H_
