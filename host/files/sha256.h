// SHA-256, by the system's cryptographic library.
#ifndef ARVL_HOST_FILES_SHA256_H_
#define ARVL_HOST_FILES_SHA256_H_

#include <openssl/evp.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace arvl_host {

// The digest of what has been added. Throws std::runtime_error where the library offers no SHA-256.
class Sha256 {
 public:
  Sha256();

  void add(const void *data, std::size_t size);

  // In hexadecimal digits. Begins anew.
  std::string finish();

 private:
  void begin();

  struct Deleter {
    void operator()(EVP_MD_CTX *context) const { EVP_MD_CTX_free(context); }
  };
  std::unique_ptr<EVP_MD_CTX, Deleter> context_;
};

std::string sha256Of(std::string_view text);

// Of the rest of a file. What onBytes, which hears of each stretch that has been read, throws ends it.
// Throws StoreError; shown is how it names the file.
std::string sha256OfFile(int file, const std::string &shown,
                         const std::function<void(std::size_t)> &onBytes = {});

}  // namespace arvl_host

#endif  // ARVL_HOST_FILES_SHA256_H_
