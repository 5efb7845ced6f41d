// The manifest of a backup. docs/backup.md describes the file.
#ifndef ARVL_HOST_BACKUP_MANIFEST_H_
#define ARVL_HOST_BACKUP_MANIFEST_H_

#include <json/value.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "backup/file_record.h"
#include "text/tally.h"

namespace arvl_host {

// Increase it with every change that an older reader would misread.
constexpr int kManifestVersion = 1;

// The manifest is strict JSON that can be read and written line by line: the format and the version on the
// first line, one member on each of the next, and then one entry on each.
constexpr const char *kManifestFormat = "arvl-backup";
constexpr std::string_view kFilesBegin = "\"files\":[";
constexpr std::string_view kFilesEnd = "]}";

constexpr const char *kManifestName = "manifest.json";
constexpr const char *kDataName = "data";  // the directory with the entries

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
  std::string tool;  // the program that made the backup, with its version
  std::string frameworkVersion;
  std::string started;  // UTC, "2026-11-21T09:25:32Z"
  std::string finished;
  Json::Value summary;                // of the plug-in's summary step; null: it has no such step
  Json::Value estimate;               // likewise
  bool isEstimateRefused = false;     // the estimate does not fit the protocol
  Json::Value exportResult;           // the plug-in's completion of the export
  Json::Value externalHandlerResult;  // an array; null: there is none
  Totals totals;                      // the data that arrived
  Tally changed;                      // local files that were written while they were copied
  Tally skipped;                      // entries that vanished before they were copied
  Tally denials;                      // requests of the plug-in that were denied

  std::string dataVersion() const;
  // Returns the summary's texts for a user who restores; none without a summary.
  std::vector<std::string> restoreTexts() const;
};

// Returns all members of the file but "files".
Json::Value headJson(const Manifest &manifest);
// Creates a manifest from the result of headJson(). Throws Json::Exception.
Manifest manifestOf(const Json::Value &head);
Json::Value totalsJson(const Totals &totals);
Json::Value arrayOf(const std::vector<std::string> &texts);

// Throws StoreError if the manifest belongs to another backup than the one in this directory.
void checkPlace(const Manifest &manifest, const std::filesystem::path &folder);

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_MANIFEST_H_
