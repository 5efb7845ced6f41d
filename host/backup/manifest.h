// What a backup says of itself: manifest.json and SHA256SUMS. docs/backup.md describes both.
#ifndef ARVL_HOST_BACKUP_MANIFEST_H_
#define ARVL_HOST_BACKUP_MANIFEST_H_

#include <json/value.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "backup/file_index.h"
#include "files/file_error.h"
#include "text/tally.h"

namespace arvl_host {

// Raised with every change that an older reader would misread.
constexpr int kManifestVersion = 1;

constexpr const char *kManifestName = "manifest.json";
constexpr const char *kChecksumsName = "SHA256SUMS";
constexpr const char *kDataName = "data";

struct Totals {
  std::uint64_t files = 0;
  std::uint64_t folders = 0;
  std::uint64_t links = 0;
  std::uint64_t bytes = 0;  // of the files' contents
};

void addTo(Totals &totals, const FileRecord &record);

struct Manifest {
  std::string application;
  std::string id;
  std::string tool;  // that made the backup, with its version
  std::string frameworkVersion;
  std::string started;  // UTC, "2026-11-21T09:25:32Z"
  std::string finished;
  Json::Value summary;             // the texts, as the plug-in gave them; null: it has no such step
  Json::Value estimate;            // likewise
  bool isEstimateRefused = false;  // it does not fit the protocol
  Json::Value exportResult;        // the plug-in's completion of the export
  Json::Value externalHandlerResult;  // an array; null: there is none
  Totals totals;                      // what really came
  std::vector<std::string> changed;   // local files that were written while they were copied
  Tally skipped;                      // entries that vanished before they were copied
  Tally denials;                      // what the plug-in was denied meanwhile

  std::string dataVersion() const;
  // The texts of the summary that a user reads before a restore; none without a summary.
  std::vector<std::string> restoreTexts() const;
};

// Its members but the files.
Json::Value headJson(const Manifest &manifest);
Json::Value totalsJson(const Totals &totals);
Json::Value arrayOf(const std::vector<std::string> &texts);

// The backup cannot be examined, which says nothing of whether it is sound: a later version of the host wrote
// its manifest, or this user may not read it.
class CannotExamine : public StoreError {
 public:
  using StoreError::StoreError;
};

// Both files, into the folder of the backup, the manifest last. SHA256SUMS has the manifest's checksum
// too. What checkpoint, which is called for each file, throws ends it. Throws StoreError.
void writeManifest(
    const std::filesystem::path &folder, const Manifest &manifest, FileIndex &files,
    const std::function<void()> &checkpoint = [] {});

// Throws StoreError if the manifest is not that of the backup in this folder.
void checkPlace(const Manifest &manifest, const std::filesystem::path &folder);

// Reads a manifest record by record. Throws StoreError that names the file and the line.
class ManifestReader {
 public:
  // Throws CannotExamine, too.
  explicit ManifestReader(const std::filesystem::path &folder);

  const Manifest &manifest() const { return manifest_; }
  // Nothing at the end.
  std::optional<FileRecord> next();

 private:
  [[noreturn]] void fail(const std::string &what) const;
  bool readLine(std::string &line);
  void readHead();
  Json::Value parse(const std::string &text) const;

  std::filesystem::path path_;
  std::ifstream stream_;
  std::uint64_t line_ = 0;
  Manifest manifest_;
  bool isAtEnd_ = false;
};

// A line of SHA256SUMS, in the form that sha256sum writes and reads; without its line feed.
std::string checksumLine(const std::string &sha256, const std::string &name);

// Reads SHA256SUMS line by line. Throws StoreError that names the file and the line.
class ChecksumsReader {
 public:
  struct Line {
    std::string sha256;
    std::string name;  // below the folder of the backup
  };

  explicit ChecksumsReader(const std::filesystem::path &folder);

  // Nothing at the end.
  std::optional<Line> next();

 private:
  [[noreturn]] void fail(const std::string &what) const;

  std::filesystem::path path_;
  std::ifstream stream_;
  std::uint64_t line_ = 0;
};

// Throws CannotExamine, and StoreError if manifest.json is not the file that SHA256SUMS has the checksum of.
void checkManifestFile(const std::filesystem::path &folder);

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_MANIFEST_H_
