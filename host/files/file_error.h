// File errors and their messages.
#ifndef ARVL_HOST_FILES_FILE_ERROR_H_
#define ARVL_HOST_FILES_FILE_ERROR_H_

#include <stdexcept>
#include <string>

namespace arvl_host {

// Why a request is denied or a store cannot be used, in words for the plug-in's author.
class StoreError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// An entry could not be reached by its whole path, which a backup is recorded and verified by.
class PathTooLong : public StoreError {
 public:
  explicit PathTooLong(const std::string &path);
};

// Throws StoreError: what, and the system's text for the error.
[[noreturn]] void failWith(int error, const std::string &what);

// A path or name as messages show it.
std::string quoted(const std::string &shown);

}  // namespace arvl_host

#endif  // ARVL_HOST_FILES_FILE_ERROR_H_
