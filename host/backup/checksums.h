// SHA256SUMS, which sha256sum can check.
#ifndef ARVL_HOST_BACKUP_CHECKSUMS_H_
#define ARVL_HOST_BACKUP_CHECKSUMS_H_

#include <filesystem>
#include <optional>
#include <string>

#include "backup/line_reader.h"

namespace arvl_host {

constexpr const char *kChecksumsName = "SHA256SUMS";

// Returns a line in the form that sha256sum writes and reads, without its line feed.
std::string checksumLine(const std::string &sha256, const std::string &name);

// Reads SHA256SUMS line by line. Throws StoreError with the file and the line.
class ChecksumsReader {
 public:
  struct Line {
    std::string sha256;
    std::string name;  // relative to the directory of the backup
  };

  // Throws CannotExamine too.
  explicit ChecksumsReader(const std::filesystem::path &folder);

  // Returns the next line, or nothing at the end.
  std::optional<Line> next();

 private:
  LineReader lines_;
};

// Throws CannotExamine, and StoreError if SHA256SUMS holds another checksum of manifest.json than its own.
void checkManifestFile(const std::filesystem::path &folder);

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_CHECKSUMS_H_
