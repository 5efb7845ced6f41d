#include "backup/manifest_reader.h"

#include <json/reader.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "backup/backup_file.h"
#include "backup/entry_path.h"
#include "text/strict_json.h"

namespace arvl_host {

namespace {

constexpr std::uint64_t kMaxHeadLines = 64;  // more than any version has

FileRecord recordOf(const Json::Value &json) {
  FileRecord record;
  record.path = restoreBytes(std::string_view(json["path"].asString()));
  const std::optional<FileType> type = fileTypeNamed(json["type"].asString());
  if (!type) {
    throw Json::LogicError("there is no type \"" + json["type"].asString() + "\"");
  }
  record.type = *type;
  record.size = json["size"].asInt64();
  record.mode = static_cast<unsigned>(std::strtoul(json["mode"].asCString(), nullptr, 8));
  record.mtime = json["mtime"].asInt64();
  record.mtimeNsec = json["mtime_nsec"].asInt64();
  if (record.mtimeNsec < 0 || record.mtimeNsec > 999999999) {
    throw Json::LogicError("invalid mtime_nsec " + std::to_string(record.mtimeNsec) +
                           ": it is not from 0 to 999999999");
  }
  record.sha256 = json["sha256"].asString();
  record.target = restoreBytes(std::string_view(json["target"].asString()));
  if (record.path.empty() || record.path[0] != '/') {
    throw Json::LogicError("a path does not begin with a slash");
  }
  if (const std::string problem = checkEntryPath(record.path, 1); !problem.empty()) {
    throw Json::LogicError(problem);
  }
  return record;
}

}  // namespace

ManifestReader::ManifestReader(const std::filesystem::path &folder)
    : lines_(folder / kManifestName) {
  readVersion();
  readHead();
}

Json::Value ManifestReader::parse(const std::string &text) const {
  static const Json::CharReaderBuilder builder;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  std::string errors;
  bool isObject = false;
  try {
    isObject =
        reader->parse(text.data(), text.data() + text.size(), &value, &errors) && value.isObject();
  } catch (const Json::Exception &) {  // nested too deep
  }
  if (!isObject) {
    lines_.fail("invalid manifest line");
  }
  return value;
}

// The version decides before anything else is read: a later one may differ in the rest.
void ManifestReader::readVersion() {
  std::string line;
  lines_.read(line);
  if (line.empty() || line.back() != ',') {
    lines_.fail("this is not the manifest of a backup");
  }
  line.back() = '}';
  const Json::Value first = parse(line);
  if (first["format"] != kManifestFormat || !first["version"].isInt()) {
    lines_.fail("this is not the manifest of a backup");
  }
  if (first["version"].asInt() > kManifestVersion) {
    throw CannotExamine(quoted(lines_.path()) + " is of version " + first["version"].asString() +
                        ", this arvl-host reads up to version " + std::to_string(kManifestVersion) +
                        ": use the newer one");
  }
}

void ManifestReader::readHead() {
  std::string line;
  std::string head = "{";
  while (lines_.number() <= kMaxHeadLines && lines_.read(line) && line != kFilesBegin) {
    line += '\n';
    head += line;
    std::string().swap(line);  // frees its memory: it may be longer than any payload
  }
  if (line != kFilesBegin) {
    lines_.fail("the manifest ends too early");
  }
  try {
    head += "\"files\":[]}";
    manifest_ = manifestOf(parse(head));
    manifest_.dataVersion();  // throws if the export result has another type
    manifest_.restoreTexts();
  } catch (const Json::Exception &error) {
    lines_.fail(error.what());
  }
}

std::optional<FileRecord> ManifestReader::next() {
  std::string line;
  if (isAtEnd_) {
    return std::nullopt;
  }
  do {
    if (!lines_.read(line)) {
      lines_.fail("the manifest ends too early");
    }
  } while (line.empty());
  if (line == kFilesEnd) {
    isAtEnd_ = true;
    return std::nullopt;
  }
  if (line.back() == ',') {
    line.pop_back();
  }
  try {
    return recordOf(parse(line));
  } catch (const Json::Exception &error) {
    lines_.fail(error.what());
  }
}

}  // namespace arvl_host
