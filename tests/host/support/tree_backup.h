// A backup of a directory tree: files, a link and odd names.
#ifndef ARVL_TESTS_HOST_SUPPORT_TREE_BACKUP_H_
#define ARVL_TESTS_HOST_SUPPORT_TREE_BACKUP_H_

#include <filesystem>

#include "host/support/job_support.h"

namespace arvl_test {

// Writes the script of an export of two files, two directories and a link, 8 bytes in all.
class TreeBackup : public JobFolder {
 protected:
  TreeBackup() {
    dir_.makeDir("local/tree/folder");
    writeBytes(at("local/tree/folder/file"), "contents");
    writeBytes(at("local/tree/odd\nname"), "");
    std::filesystem::create_symlink("folder/file", at("local/tree/link"));
    script("export", {{"upload", "dir", at("local/tree"), "/tree"}});
  }
};

}  // namespace arvl_test

#endif  // ARVL_TESTS_HOST_SUPPORT_TREE_BACKUP_H_
