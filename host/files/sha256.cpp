#include "files/sha256.h"

#include <openssl/evp.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <vector>

#include "files/file_error.h"
#include "text/hex.h"

namespace arvl_host {

namespace {

constexpr std::size_t kChunk = 0x40000;  // bytes that are read at once

// Looked up only once: a lookup takes longer than the digest of a short text.
const EVP_MD *algorithm() {
  static EVP_MD *const found = EVP_MD_fetch(nullptr, "SHA256", nullptr);
  return found;
}

}  // namespace

struct Sha256::Context {
  Context() = default;
  ~Context() { EVP_MD_CTX_free(evp); }
  Context(const Context &) = delete;
  Context &operator=(const Context &) = delete;

  EVP_MD_CTX *const evp = EVP_MD_CTX_new();
};

Sha256::Sha256() : context_(std::make_unique<Context>()) {
  begin();
}

Sha256::~Sha256() = default;

void Sha256::begin() {
  if (context_->evp == nullptr || algorithm() == nullptr ||
      EVP_DigestInit_ex(context_->evp, algorithm(), nullptr) != 1) {
    throw std::runtime_error("cannot compute SHA-256 checksums");
  }
}

void Sha256::add(const void *data, std::size_t size) {
  EVP_DigestUpdate(context_->evp, data, size);
}

std::string Sha256::finish() {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  EVP_DigestFinal_ex(context_->evp, digest, &size);
  begin();
  return toHex({reinterpret_cast<const char *>(digest), size});
}

std::string sha256Of(std::string_view text) {
  Sha256 digest;
  digest.add(text.data(), text.size());
  return digest.finish();
}

std::string sha256OfFile(int file, const std::string &shown,
                         const std::function<void(std::size_t)> &onBytes) {
  Sha256 digest;
  std::vector<char> buffer(kChunk);
  for (;;) {
    const ssize_t size = read(file, buffer.data(), buffer.size());
    if (size == 0) {
      return digest.finish();
    }
    if (size < 0 && errno != EINTR) {
      failWith(errno, "cannot read " + quoted(shown));
    }
    if (size > 0) {
      digest.add(buffer.data(), static_cast<std::size_t>(size));
      if (onBytes) {
        onBytes(static_cast<std::size_t>(size));
      }
    }
  }
}

}  // namespace arvl_host
