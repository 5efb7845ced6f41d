#ifndef ARVL_TESTS_SUPPORT_DEEP_TREE_H_
#define ARVL_TESTS_SUPPORT_DEEP_TREE_H_

#include <string>

namespace arvl_test {

// Makes a chain of directories with a file in the deepest. Its path may be far longer than the system takes
// at once.
void makeDeepTree(const std::string &top, unsigned levels);

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
