// Reads and writes whole files, and lists directories.
#ifndef ARVL_TESTS_SUPPORT_FILES_H_
#define ARVL_TESTS_SUPPORT_FILES_H_

#include <filesystem>
#include <set>
#include <string>

namespace arvl_test {

// Returns the bytes of a file. Fails the test if the file cannot be read.
std::string bytesOf(const std::filesystem::path &file);

// Replaces the content of a file. Fails the test if the file cannot be written.
void writeBytes(const std::filesystem::path &file, const std::string &content);

std::set<std::string> namesIn(const std::filesystem::path &directory);

}  // namespace arvl_test

#endif  // ARVL_TESTS_SUPPORT_FILES_H_
