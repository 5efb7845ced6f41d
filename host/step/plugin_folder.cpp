#include "step/plugin_folder.h"

#include <unistd.h>

#include <filesystem>
#include <stdexcept>

namespace fs = std::filesystem;

namespace arvl_host {

std::string findStep(const std::string &folder, const std::string &step) {
  const fs::path path = fs::absolute(folder) / step;
  std::error_code error;
  if (fs::symlink_status(path, error).type() == fs::file_type::not_found) {
    return "";
  }
  if (!fs::is_regular_file(path, error) || access(path.c_str(), X_OK) != 0) {
    throw std::runtime_error(path.string() + " is not an executable file");
  }
  return path;
}

}  // namespace arvl_host
