#include "backup/entry_path.h"

#include "files/file_error.h"

namespace arvl_host {

std::string checkEntryPath(const std::string &path, std::size_t begin) {
  std::string problem;
  if (path.find('\0') != std::string::npos) {
    problem = "it holds a NUL";
  }
  for (std::size_t end = 0; end != std::string::npos; begin = end + 1) {
    end = path.find('/', begin);
    const std::string component = path.substr(begin, end - begin);
    if (component.empty() || component == "." || component == "..") {
      problem = "it has a component \"" + component + "\"";
    }
  }
  return problem.empty() ? "" : "invalid path " + quoted(path) + ": " + problem;
}

std::pair<std::string, std::string> splitEntryPath(const std::string &path) {
  const std::size_t slash = path.rfind('/');
  return {path.substr(0, slash), path.substr(slash + 1)};
}

}  // namespace arvl_host
