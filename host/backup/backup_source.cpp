#include "backup/backup_source.h"

#include <optional>
#include <stdexcept>

#include "backup/checksums.h"
#include "backup/manifest_reader.h"
#include "framework/framework.h"

namespace fs = std::filesystem;

namespace arvl_host {

namespace {

Manifest readManifest(const fs::path &folder, FileIndex &index,
                      const std::function<void()> &checkpoint) {
  ManifestReader reader(folder);
  checkPlace(reader.manifest(), folder);
  checkManifestFile(folder);
  while (const std::optional<FileRecord> record = reader.next()) {
    checkpoint();
    index.add(*record);
  }
  return reader.manifest();
}

}  // namespace

Json::Value exportResultOf(const Manifest &manifest, const std::string &shown) {
  Json::Value content(Json::objectValue);
  content["export_result"] = manifest.exportResult;
  content["external_handler_result"] = manifest.externalHandlerResult;
  try {
    return makeExportResult(content);
  } catch (const std::runtime_error &error) {
    throw StoreError(shown + ": " + error.what());
  }
}

BackupSource::BackupSource(const fs::path &folder, TransferMeter &meter,
                           const std::function<void()> &checkpoint)
    : manifest_(readManifest(folder, index_, checkpoint)),
      exportResult_(exportResultOf(manifest_, quoted(folder / kManifestName))),
      watcher_(index_, meter),
      store_(folder / kDataName, {{&watcher_, Durability::kEachFile}, true}) {}

}  // namespace arvl_host
