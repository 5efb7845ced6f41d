// Walks a tree and says what was counted, or that it failed; for walk_torture_test.sh.

#include <cinttypes>
#include <cstdio>

#include "zarn/arvlapp/storage_usage.h"

int main(int argc, char **argv) {
  ZARN::ARVLAPP::StorageUsage usage;
  if (argc != 2 || !usage.addDirRecursive(argv[1])) {
    std::puts("failed");
    return 0;
  }
  std::printf("counted %" PRId64 " files, %" PRId64 " folders\n", usage.getFileCount(),
              usage.getDirCount());
  return 0;
}
