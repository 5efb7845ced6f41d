// Memory that ends where reading faults. The sanitizers do not see into libraries that were built
// without them, such as the JSON parser; an unreadable page stops those as well.
#ifndef ARVL_FUZZ_SUPPORT_GUARD_PAGE_H_
#define ARVL_FUZZ_SUPPORT_GUARD_PAGE_H_

#include <cstddef>

namespace arvl_fuzz {

// A copy of bytes whose last one is the last of a page, before an unreadable page.
class GuardedBytes {
 public:
  GuardedBytes(const void *bytes, std::size_t size);
  ~GuardedBytes();
  GuardedBytes(const GuardedBytes &) = delete;
  GuardedBytes &operator=(const GuardedBytes &) = delete;

  const char *begin() const { return begin_; }
  const char *end() const { return begin_ + size_; }

 private:
  char *begin_;
  std::size_t size_;
};

// malloc, realloc and free with an unreadable page behind each block. A block is aligned for any type,
// so up to 15 bytes may lie between its end and the page.
void *guardedMalloc(std::size_t size);
void *guardedRealloc(void *block, std::size_t size);
void guardedFree(void *block);

}  // namespace arvl_fuzz

#endif  // ARVL_FUZZ_SUPPORT_GUARD_PAGE_H_
