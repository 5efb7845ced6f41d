// File errors and their messages.
#ifndef ARVL_HOST_FILES_FILE_ERROR_H_
#define ARVL_HOST_FILES_FILE_ERROR_H_

#include <stdexcept>
#include <string>

namespace arvl_host {

// A failed file operation, with a message for the plug-in's author.
class StoreError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Thrown if the path of an entry would be too long to open.
class PathTooLong : public StoreError {
 public:
  explicit PathTooLong(const std::string &path);
};

// Throws StoreError with "what: " and the system's text for the error.
[[noreturn]] void failWith(int error, const std::string &what);

// Returns a path or name in quotes, as messages show it.
std::string quoted(const std::string &shown);

}  // namespace arvl_host

#endif  // ARVL_HOST_FILES_FILE_ERROR_H_
