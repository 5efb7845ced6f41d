#ifndef ARVL_TESTS_SUPPORT_SMALL_FILE_SYSTEM_H_
#define ARVL_TESTS_SUPPORT_SMALL_FILE_SYSTEM_H_

#include <string>

namespace arvl_test {

// A small file system in place of the folder, for this process and its children alone.
class SmallFileSystem {
 public:
  SmallFileSystem(std::string folder, const std::string &options);
  ~SmallFileSystem();
  SmallFileSystem(const SmallFileSystem &) = delete;
  SmallFileSystem &operator=(const SmallFileSystem &) = delete;

  bool isMounted() const { return isMounted_; }

 private:
  const std::string folder_;
  bool isMounted_ = false;
};

}  // namespace arvl_test

#endif  // ARVL_TESTS_SUPPORT_SMALL_FILE_SYSTEM_H_
