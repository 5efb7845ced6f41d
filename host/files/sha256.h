// SHA-256 checksums of texts and files.
#ifndef ARVL_HOST_FILES_SHA256_H_
#define ARVL_HOST_FILES_SHA256_H_

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace arvl_host {

// Computes the digest of the bytes that are added. Throws std::runtime_error if the library offers no SHA-256.
class Sha256 {
 public:
  Sha256();
  ~Sha256();

  void add(const void *data, std::size_t size);

  // Returns the digest in hexadecimal digits and starts a new one.
  std::string finish();

 private:
  struct Context;  // of the cryptographic library

  void begin();

  const std::unique_ptr<Context> context_;
};

std::string sha256Of(std::string_view text);

// Returns the digest of the rest of a file, which `shown` names in errors. Calls `onBytes` with the size of each
// read; an exception from it propagates. Throws StoreError.
std::string sha256OfFile(int file, const std::string &shown,
                         const std::function<void(std::size_t)> &onBytes = {});

}  // namespace arvl_host

#endif  // ARVL_HOST_FILES_SHA256_H_
