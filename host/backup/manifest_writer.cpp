#include "backup/manifest_writer.h"

#include <cstdio>
#include <string>

#include "backup/checksums.h"
#include "backup/directory.h"
#include "files/file_error.h"
#include "files/temporary_file.h"
#include "text/json_line.h"
#include "text/strict_json.h"

namespace arvl_host {

namespace {

using Checkpoint = std::function<void()>;

std::string member(const char *name, const Json::Value &value) {
  std::string text;
  appendJsonString(text, name);
  text += ':';
  if (!appendJson(text, value, JsonLayout::kCompact)) {
    throw StoreError(std::string("the manifest cannot hold ") + name + ": it nests too deep");
  }
  return text;
}

std::string modeText(unsigned mode) {
  char text[16];
  std::snprintf(text, sizeof text, "%04o", mode);
  return text;
}

std::string recordLine(const FileRecord &record) {
  JsonLine line;
  line.string("path", record.path)
      .string("type", fileTypeText(record.type))
      .number("size", record.size)
      .string("mode", modeText(record.mode))
      .number("mtime", record.mtime)
      .number("mtime_nsec", record.mtimeNsec);
  if (record.type != FileType::kDir) {
    line.string("sha256", record.sha256);
  }
  if (record.type == FileType::kSymlink) {
    line.string("target", record.target);
  }
  return std::string(line.finish());
}

Place placeIn(const UniqueFd &folder, const std::filesystem::path &path, const char *name) {
  return {folder.get(), name, path / name};
}

// Writes the manifest and returns its checksum.
std::string writeTo(TextWriter &text, const Manifest &manifest, FileIndex &files,
                    const Checkpoint &checkpoint) {
  text.add("{\"format\":\"" + std::string(kManifestFormat) +
           "\",\"version\":" + std::to_string(kManifestVersion) + ",\n");
  const Json::Value head = headJson(manifest);
  for (auto value = head.begin(); value != head.end(); ++value) {
    text.add(member(value.name().c_str(), *value) + ",\n");
  }
  text.add(kFilesBegin);
  const char *separator = "\n";
  files.forEach([&](const FileRecord &record) {
    checkpoint();
    text.add(separator + recordLine(record));
    separator = ",\n";
  });
  text.add("\n" + std::string(kFilesEnd) + "\n");
  return text.finish();
}

void writeTo(TextWriter &text, FileIndex &files, const std::string &manifestSha256,
             const Checkpoint &checkpoint) {
  files.forEach([&](const FileRecord &record) {
    checkpoint();
    if (record.type == FileType::kFile) {
      text.add(checksumLine(record.sha256, kDataName + record.path) + "\n");
    }
  });
  text.add(checksumLine(manifestSha256, kManifestName) + "\n");
  text.finish();
}

}  // namespace

// SHA256SUMS needs the checksum of the whole manifest, but the manifest gets its name last.
void writeManifest(const std::filesystem::path &folder, const Manifest &manifest, FileIndex &files,
                   const Checkpoint &checkpoint) {
  const UniqueFd fd = openDirectory(folder);
  const Place manifestPlace = placeIn(fd, folder, kManifestName);
  const Place checksumsPlace = placeIn(fd, folder, kChecksumsName);
  TemporaryFile manifestFile(manifestPlace);
  TextWriter manifestText(manifestFile);
  const std::string sha256 = writeTo(manifestText, manifest, files, checkpoint);

  TemporaryFile checksumsFile(checksumsPlace);
  TextWriter checksumsText(checksumsFile);
  writeTo(checksumsText, files, sha256, checkpoint);
  checksumsFile.commit(Durability::kEachFile);
  manifestFile.commit(Durability::kEachFile);
}

}  // namespace arvl_host
