#include "support/guard_page.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "support/check.h"

namespace arvl_fuzz {

namespace {

constexpr std::size_t kPageSize = 4096;
constexpr std::size_t kAlignment = alignof(std::max_align_t);

constexpr std::size_t roundUp(std::size_t size, std::size_t unit) {
  return (size + unit - 1) / unit * unit;
}

// The last `size` bytes before an unreadable page.
char *mapBytes(std::size_t size) {
  const std::size_t readable = roundUp(size, kPageSize);
  void *map = mmap(nullptr, readable + kPageSize, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  FUZZ_CHECK(map != MAP_FAILED);
  char *guard = static_cast<char *>(map) + readable;
  FUZZ_CHECK(mprotect(guard, kPageSize, PROT_NONE) == 0);
  return guard - size;
}

void unmapBytes(char *bytes, std::size_t size) {
  const std::size_t readable = roundUp(size, kPageSize);
  FUZZ_CHECK(munmap(bytes + size - readable, readable + kPageSize) == 0);
}

// Returns the size of a block, which is stored before it.
std::size_t &sizeOf(void *block) {
  return *reinterpret_cast<std::size_t *>(static_cast<char *>(block) - kAlignment);
}

}  // namespace

GuardedBytes::GuardedBytes(const void *bytes, std::size_t size)
    : begin_(mapBytes(size)), size_(size) {
  if (size > 0) {
    std::memcpy(begin_, bytes, size);
  }
}

GuardedBytes::~GuardedBytes() {
  unmapBytes(begin_, size_);
}

void *guardedMalloc(std::size_t size) {
  char *block = mapBytes(kAlignment + roundUp(size, kAlignment)) + kAlignment;
  sizeOf(block) = size;
  return block;
}

void *guardedRealloc(void *block, std::size_t size) {
  void *moved = guardedMalloc(size);
  if (block != nullptr) {
    std::memcpy(moved, block, std::min(size, sizeOf(block)));
    guardedFree(block);
  }
  return moved;
}

void guardedFree(void *block) {
  if (block != nullptr) {
    const std::size_t size = kAlignment + roundUp(sizeOf(block), kAlignment);
    unmapBytes(static_cast<char *>(block) - kAlignment, size);
  }
}

}  // namespace arvl_fuzz
