// Whole files and folders.
#ifndef ARVL_TESTS_SUPPORT_FILES_H_
#define ARVL_TESTS_SUPPORT_FILES_H_

#include <filesystem>
#include <set>
#include <string>

namespace arvl_test {

// A file that cannot be read fails the test.
std::string bytesOf(const std::filesystem::path &file);

// Likewise one that cannot be written. What was in it is gone.
void writeBytes(const std::filesystem::path &file, const std::string &content);

std::set<std::string> namesIn(const std::filesystem::path &folder);

}  // namespace arvl_test

#endif  // ARVL_TESTS_SUPPORT_FILES_H_
