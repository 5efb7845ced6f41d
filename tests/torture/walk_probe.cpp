// Walks a tree and prints the counts, or "failed". For walk_torture_test.sh.

#include <cinttypes>
#include <cstdio>

#include "zarn/arvlapp/storage_usage.h"

int main(int argc, char **argv) {
  ZARN::ARVLAPP::StorageUsage usage;
  if (argc != 2 || !usage.addDirRecursive(argv[1])) {
    std::puts("failed");
    return 0;
  }
  std::printf("counted %" PRId64 " files, %" PRId64 " directories\n", usage.getFileCount(),
              usage.getDirCount());
  return 0;
}
