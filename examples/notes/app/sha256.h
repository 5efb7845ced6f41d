// SHA-256 (FIPS 180-4), fed piece by piece.
#ifndef NOTES_APP_SHA256_H_
#define NOTES_APP_SHA256_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace notes {

class Sha256 {
 public:
  void update(const char *bytes, std::size_t size);

  // Returns the digest in lower-case hexadecimal. Nothing may be added afterwards.
  std::string finish();

 private:
  void addBlock();

  std::array<std::uint32_t, 8> state_ = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                         0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  std::array<unsigned char, 64> block_ = {};
  std::size_t used_ = 0;      // bytes in block_
  std::uint64_t length_ = 0;  // bytes in all
};

}  // namespace notes

#endif  // NOTES_APP_SHA256_H_
