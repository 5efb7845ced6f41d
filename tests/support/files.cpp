#include "support/files.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

namespace arvl_test {

std::string bytesOf(const std::filesystem::path &file) {
  std::ifstream stream(file, std::ios::binary);
  EXPECT_TRUE(stream) << file;
  return {std::istreambuf_iterator<char>(stream), {}};
}

void writeBytes(const std::filesystem::path &file, const std::string &content) {
  std::ofstream stream(file, std::ios::binary);
  stream << content;
  EXPECT_TRUE(stream.flush()) << file;
}

std::set<std::string> namesIn(const std::filesystem::path &directory) {
  std::set<std::string> names;
  for (const std::filesystem::directory_entry &entry :
       std::filesystem::directory_iterator(directory)) {
    names.insert(entry.path().filename());
  }
  return names;
}

}  // namespace arvl_test
