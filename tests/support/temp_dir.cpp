#include "support/temp_dir.h"

#include <stdlib.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <system_error>

namespace arvl_test {

namespace fs = std::filesystem;

TempDir::TempDir() {
  std::string name = fs::temp_directory_path() / "arvl-test-XXXXXX";
  if (::mkdtemp(name.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), name);
  }
  path_ = name;
  fs::permissions(path_, fs::perms(0755));
}

TempDir::~TempDir() {
  std::error_code error;
  fs::remove_all(path_, error);
  if (error) {
    std::fprintf(stderr, "cannot remove \"%s\": %s\n", path_.c_str(), error.message().c_str());
  }
}

std::string TempDir::makeFile(const std::string &name, const std::string &content) const {
  std::ofstream file(path_ / name, std::ios::binary);
  file.exceptions(std::ios::failbit | std::ios::badbit);
  file << content;
  file.close();
  return at(name);
}

std::string TempDir::makeDir(const std::string &name) const {
  fs::create_directories(path_ / name);
  return at(name);
}

}  // namespace arvl_test
