// A directory that is removed with the object.
#ifndef ARVL_TESTS_SUPPORT_TEMP_DIR_H_
#define ARVL_TESTS_SUPPORT_TEMP_DIR_H_

#include <filesystem>
#include <string>

namespace arvl_test {

// Creates an empty directory that every user can enter, and removes it with its content.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;

  const std::filesystem::path &path() const { return path_; }

  // Return the full path of a name in the directory; the last two create it.
  std::string at(const std::string &name) const { return path_ / name; }
  std::string makeFile(const std::string &name, const std::string &content = "") const;
  std::string makeDir(const std::string &name) const;  // parents included

 private:
  std::filesystem::path path_;
};

}  // namespace arvl_test

#endif  // ARVL_TESTS_SUPPORT_TEMP_DIR_H_
