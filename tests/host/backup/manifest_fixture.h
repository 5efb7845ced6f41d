// Manifests for the tests of the writer and of the reader.
#ifndef ARVL_TESTS_HOST_BACKUP_MANIFEST_FIXTURE_H_
#define ARVL_TESTS_HOST_BACKUP_MANIFEST_FIXTURE_H_

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "backup/manifest_reader.h"
#include "backup/manifest_writer.h"
#include "host/support/store_error_of.h"
#include "support/json.h"
#include "support/temp_dir.h"

namespace arvl_test {

using arvl_host::FileRecord;
using arvl_host::FileType;
using arvl_host::Manifest;

inline FileRecord recordOf(const std::string &path, FileType type) {
  FileRecord record;
  record.path = path;
  record.type = type;
  record.mode = 0640;
  record.mtime = 1234567890;
  record.mtimeNsec = 5;
  if (type != FileType::kDir) {
    record.sha256 = std::string(64, 'a');
  }
  return record;
}

inline Manifest someManifest() {
  Manifest manifest;
  manifest.application = "an \"application\"";
  manifest.id = "20261121T092532.123Z";
  manifest.tool = "a tool 1.0";
  manifest.frameworkVersion = "2.3";
  manifest.started = "2026-11-21T09:25:32Z";
  manifest.finished = "2026-11-21T09:25:33Z";
  manifest.summary = parseJson(R"({"backup_short": "ä\n\u0001"})");
  manifest.estimate = parseJson(R"({"size": 3000000000, "file_count": -1})");
  manifest.isEstimateRefused = true;
  manifest.exportResult = parseJson(R"({"success": true, "app_data_version": "1.10"})");
  manifest.externalHandlerResult = parseJson(R"([{"handler": "h", "result": null}])");
  manifest.totals = {1, 2, 3, std::uint64_t(1) << 63};
  manifest.changed = {3, {"/a\xff", "/b"}};
  manifest.skipped = {3, {"/c\xff"}};
  manifest.denials = {7, {"one", "two\n"}};
  return manifest;
}

class ManifestFixture : public testing::Test {
 protected:
  void write(const Manifest &manifest) { arvl_host::writeManifest(dir_.path(), manifest, files_); }

  std::string path() const { return dir_.at("manifest.json"); }

  std::vector<FileRecord> records() const {
    arvl_host::ManifestReader reader(dir_.path());
    std::vector<FileRecord> records;
    while (const std::optional<FileRecord> record = reader.next()) {
      records.push_back(*record);
    }
    EXPECT_FALSE(reader.next());  // the end is reported again
    return records;
  }

  // Returns the error for a manifest with this text, without its path.
  std::string errorWith(const std::string &text) const {
    dir_.makeFile("manifest.json", text);
    const std::string error = storeErrorOf([this] { records(); });
    const std::string begin = "\"" + path() + "\", ";
    return error.compare(0, begin.size(), begin) == 0 ? error.substr(begin.size()) : error;
  }

  const TempDir dir_;
  arvl_host::FileIndex files_;
};

}  // namespace arvl_test

#endif  // ARVL_TESTS_HOST_BACKUP_MANIFEST_FIXTURE_H_
