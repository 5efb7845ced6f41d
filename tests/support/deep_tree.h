#ifndef ARVL_TESTS_SUPPORT_DEEP_TREE_H_
#define ARVL_TESTS_SUPPORT_DEEP_TREE_H_

#include <string>

namespace arvl_test {

// Three times the descriptors that DescriptorLimit(64) leaves. To remove 20,000 takes a busy disk most of a
// minute.
constexpr unsigned kManyLevels = 200;

// Makes a chain of directories, of long names, with a file in the deepest. The path of kManyLevels is longer
// than the system takes at once (4096 bytes).
void makeDeepTree(const std::string &top, unsigned levels = kManyLevels);

// Lowers the soft limit of open descriptors for the lifetime of the object.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(unsigned long count);
  ~DescriptorLimit();
  DescriptorLimit(const DescriptorLimit &) = delete;
  DescriptorLimit &operator=(const DescriptorLimit &) = delete;

 private:
  unsigned long old_;
};

}  // namespace arvl_test

#endif  // ARVL_TESTS_SUPPORT_DEEP_TREE_H_
