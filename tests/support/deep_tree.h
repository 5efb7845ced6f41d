#ifndef ARVL_TESTS_SUPPORT_DEEP_TREE_H_
#define ARVL_TESTS_SUPPORT_DEEP_TREE_H_

#include <string>

namespace arvl_test {

// Three times the descriptors that DescriptorLimit(64) leaves. Removing 20,000 levels takes most of a minute on
// a busy disk.
constexpr unsigned kManyLevels = 200;

// Makes a chain of directories with long names, and a file in the deepest one. The path of kManyLevels is longer
// than PATH_MAX.
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
