// A directory that lives as long as the object.
#ifndef ARVL_TESTS_SUPPORT_TEMP_DIR_H_
#define ARVL_TESTS_SUPPORT_TEMP_DIR_H_

#include <filesystem>
#include <string>

namespace arvl_test {

// Fresh, empty, absolute, open to every user; removed with all that it holds.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;

  const std::filesystem::path &path() const { return path_; }

  // Below the directory; each returns the full path.
  std::string at(const std::string &name) const { return path_ / name; }
  std::string makeFile(const std::string &name, const std::string &content = "") const;
  std::string makeDir(const std::string &name) const;  // parents included

 private:
  std::filesystem::path path_;
};

}  // namespace arvl_test

#endif  // ARVL_TESTS_SUPPORT_TEMP_DIR_H_
