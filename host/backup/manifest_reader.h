// Reads a manifest, one record after the other.
#ifndef ARVL_HOST_BACKUP_MANIFEST_READER_H_
#define ARVL_HOST_BACKUP_MANIFEST_READER_H_

#include <json/value.h>

#include <filesystem>
#include <optional>
#include <string>

#include "backup/file_record.h"
#include "backup/line_reader.h"
#include "backup/manifest.h"

namespace arvl_host {

// Owns the open manifest of a backup. Throws StoreError with the file and the line.
class ManifestReader {
 public:
  // Reads everything before the first record. Throws CannotExamine too.
  explicit ManifestReader(const std::filesystem::path &folder);

  const Manifest &manifest() const { return manifest_; }
  // Returns the next record, or nothing at the end.
  std::optional<FileRecord> next();

 private:
  void readVersion();
  void readHead();
  Json::Value parse(const std::string &text) const;

  LineReader lines_;
  Manifest manifest_;
  bool isAtEnd_ = false;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_MANIFEST_READER_H_
