// The manifest is strict JSON, laid out so that it can be read and written a line at a time: the version
// alone on the first line, one member on each of the next, and then one file on each.

#include "backup/manifest.h"

#include <fcntl.h>
#include <json/reader.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

#include "files/temporary_file.h"
#include "text/strict_json.h"
#include "text/utf8.h"

namespace arvl_host {

namespace {

constexpr const char *kFormat = "arvl-backup";
constexpr std::string_view kFilesBegin = "\"files\":[";
constexpr std::string_view kFilesEnd = "]}";
constexpr std::uint64_t kMaxHeadLines = 64;  // more than any version has

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

std::vector<std::string> textsOf(const Json::Value &array) {
  std::vector<std::string> texts;
  for (const Json::Value &text : array) {
    texts.push_back(restoreBytes(std::string_view(text.asString())));
  }
  return texts;
}

// A backup of an older version has the texts alone.
Tally tallyOf(const Json::Value &count, const Json::Value &texts) {
  Tally tally;
  tally.texts = textsOf(texts);
  tally.count = count.isNull() ? tally.texts.size() : count.asUInt64();
  return tally;
}

Totals totalsOf(const Json::Value &json) {
  Totals totals;
  totals.files = json["file_count"].asUInt64();
  totals.folders = json["dir_count"].asUInt64();
  totals.links = json["symlink_count"].asUInt64();
  totals.bytes = json["size"].asUInt64();
  return totals;
}

Manifest manifestOf(const Json::Value &head) {
  Manifest manifest;
  manifest.application = head["application"].asString();
  manifest.id = head["backup"].asString();
  manifest.tool = head["tool"].asString();
  manifest.frameworkVersion = head["framework_version"].asString();
  manifest.started = head["started"].asString();
  manifest.finished = head["finished"].asString();
  manifest.summary = head["summary"];
  manifest.estimate = head["estimate"];
  manifest.isEstimateRefused = head["estimate_refused"].asBool();
  manifest.totals = totalsOf(head["actual"]);
  manifest.exportResult = head["export_result"];
  manifest.externalHandlerResult = head["external_handler_result"];
  manifest.changed = textsOf(head["changed"]);
  manifest.skipped = tallyOf(head["skipped_count"], head["skipped"]);
  manifest.denials = tallyOf(head["denial_count"], head["denials"]);
  return manifest;
}

std::string modeText(unsigned mode) {
  char text[16];
  std::snprintf(text, sizeof text, "%04o", mode);
  return text;
}

std::string recordLine(const FileRecord &record) {
  std::string line = "{\"path\":";
  appendJsonString(line, record.path);
  line += ",\"type\":\"" + std::string(fileTypeText(record.type)) + "\"";
  line += ",\"size\":" + std::to_string(record.size);
  line += ",\"mode\":\"" + modeText(record.mode) + "\"";
  line += ",\"mtime\":" + std::to_string(record.mtime);
  line += ",\"mtime_nsec\":" + std::to_string(record.mtimeNsec);
  if (record.type != FileType::kDir) {
    line += ",\"sha256\":\"" + record.sha256 + "\"";
  }
  if (record.type == FileType::kSymlink) {
    line += ",\"target\":";
    appendJsonString(line, record.target);
  }
  return line + "}";
}

// Returns why a path, from `begin` on, is not that of an entry below the backup, or an empty string. Such a
// path could lead out of the backup, and no backup is written with one.
std::string checkPath(const std::string &path, std::size_t begin) {
  std::string problem;
  if (path.find('\0') != std::string::npos) {
    problem = "it holds a NUL";
  }
  for (std::size_t end = 0; end != std::string::npos; begin = end + 1) {
    end = path.find('/', begin);
    const std::string component = path.substr(begin, end - begin);
    if (component.empty() || component == "." || component == "..") {
      problem = "it has a component \"" + component + "\"";
    }
  }
  return problem.empty() ? "" : "invalid path " + quoted(path) + ": " + problem;
}

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
  if (const std::string problem = checkPath(record.path, 1); !problem.empty()) {
    throw Json::LogicError(problem);
  }
  return record;
}

UniqueFd openFolder(const std::filesystem::path &folder) {
  UniqueFd fd(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!fd) {
    failWith(errno, "cannot open the folder " + quoted(folder));
  }
  return fd;
}

Place placeIn(const UniqueFd &folder, const std::filesystem::path &path, const char *name) {
  return {folder.get(), name, path / name};
}

// The checksum of the manifest that has been written.
std::string writeTo(TextWriter &text, const Manifest &manifest, FileIndex &files,
                    const Checkpoint &checkpoint) {
  text.add("{\"format\":\"" + std::string(kFormat) +
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

void addTo(Totals &totals, const FileRecord &record) {
  switch (record.type) {
    case FileType::kFile:
      ++totals.files;
      totals.bytes += static_cast<std::uint64_t>(record.size);
      break;
    case FileType::kDir:
      ++totals.folders;
      break;
    case FileType::kSymlink:
      ++totals.links;
      break;
  }
}

Json::Value arrayOf(const std::vector<std::string> &texts) {
  Json::Value array(Json::arrayValue);
  for (const std::string &text : texts) {
    array.append(text);
  }
  return array;
}

// By the names that the protocol has for an estimate.
Json::Value totalsJson(const Totals &totals) {
  Json::Value json(Json::objectValue);
  json["file_count"] = Json::UInt64(totals.files);
  json["dir_count"] = Json::UInt64(totals.folders);
  json["symlink_count"] = Json::UInt64(totals.links);
  json["size"] = Json::UInt64(totals.bytes);
  return json;
}

Json::Value headJson(const Manifest &manifest) {
  Json::Value head(Json::objectValue);
  head["application"] = manifest.application;
  head["backup"] = manifest.id;
  head["tool"] = manifest.tool;
  head["framework_version"] = manifest.frameworkVersion;
  head["app_data_version"] = manifest.dataVersion();
  head["started"] = manifest.started;
  head["finished"] = manifest.finished;
  head["summary"] = manifest.summary;
  head["estimate"] = manifest.estimate;
  head["estimate_refused"] = manifest.isEstimateRefused;
  head["actual"] = totalsJson(manifest.totals);
  head["export_result"] = manifest.exportResult;
  head["external_handler_result"] = manifest.externalHandlerResult;
  head["changed"] = arrayOf(manifest.changed);
  head["skipped"] = arrayOf(manifest.skipped.texts);
  head["skipped_count"] = Json::UInt64(manifest.skipped.count);
  head["denials"] = arrayOf(manifest.denials.texts);
  head["denial_count"] = Json::UInt64(manifest.denials.count);
  return head;
}

std::string Manifest::dataVersion() const {
  return exportResult.get("app_data_version", "").asString();
}

std::vector<std::string> Manifest::restoreTexts() const {
  std::vector<std::string> texts;
  if (summary.isObject()) {
    for (const char *name : {"restore_short", "restore_long"}) {
      texts.push_back(summary[name].asString());
    }
  }
  return texts;
}

// The checksums need the manifest whole, and the manifest gets its name last.
void writeManifest(const std::filesystem::path &folder, const Manifest &manifest, FileIndex &files,
                   const Checkpoint &checkpoint) {
  const UniqueFd fd = openFolder(folder);
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

void checkPlace(const Manifest &manifest, const std::filesystem::path &folder) {
  const std::string application = folder.parent_path().filename();
  const std::string id = folder.filename();
  if (manifest.application != application || manifest.id != id) {
    throw StoreError(quoted(folder / kManifestName) + " is that of " +
                     visibleText(manifest.application + " " + manifest.id) + ", not of " +
                     visibleText(application + " " + id));
  }
}

// ---- Reading a manifest.

namespace {

// Only a regular file: reading anything else could wait for ever.
UniqueFd openFile(const std::filesystem::path &path) {
  UniqueFd file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file && (errno == EACCES || errno == EPERM)) {
    throw CannotExamine("cannot open " + quoted(path) + ": " + std::strerror(errno));
  }
  struct stat status;
  if (!file || fstat(file.get(), &status) != 0) {
    failWith(errno, "cannot open " + quoted(path));
  }
  if (!S_ISREG(status.st_mode)) {
    throw StoreError(quoted(path) + " is not a file");
  }
  return file;
}

std::ifstream openStream(const std::filesystem::path &path) {
  const UniqueFd file = openFile(path);
  return std::ifstream("/proc/self/fd/" + std::to_string(file.get()), std::ios::binary);
}

}  // namespace

ManifestReader::ManifestReader(const std::filesystem::path &folder)
    : path_(folder / kManifestName), stream_(openStream(path_)) {
  readHead();
}

void ManifestReader::fail(const std::string &what) const {
  throw StoreError(quoted(path_) + ", line " + std::to_string(line_) + ": " + what);
}

bool ManifestReader::readLine(std::string &line) {
  ++line_;
  if (!std::getline(stream_, line)) {
    if (stream_.bad()) {
      failWith(errno, "cannot read " + quoted(path_));
    }
    return false;
  }
  return true;
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
    fail("this is not what a manifest holds");
  }
  return value;
}

void ManifestReader::readHead() {
  std::string line;
  readLine(line);
  if (line.empty() || line.back() != ',') {
    fail("this is not the manifest of a backup");
  }
  line.back() = '}';
  const Json::Value first = parse(line);
  if (first["format"] != kFormat || !first["version"].isInt()) {
    fail("this is not the manifest of a backup");
  }
  if (first["version"].asInt() > kManifestVersion) {
    throw CannotExamine(quoted(path_) + " is of version " + first["version"].asString() +
                        ", this arvl-host reads up to version " + std::to_string(kManifestVersion) +
                        ": use the newer one");
  }
  std::string head = "{";
  while (line_ <= kMaxHeadLines && readLine(line) && line != kFilesBegin) {
    line += '\n';
    head += line;
    std::string().swap(
        line);  // it may be longer than any payload, and an assignment would keep its memory
  }
  if (line != kFilesBegin) {
    fail("the manifest ends too early");
  }
  try {
    head += "\"files\":[]}";
    manifest_ = manifestOf(parse(head));
    manifest_.dataVersion();  // of an export result that is not one
    manifest_.restoreTexts();
  } catch (const Json::Exception &error) {
    fail(error.what());
  }
}

std::optional<FileRecord> ManifestReader::next() {
  std::string line;
  if (isAtEnd_) {
    return std::nullopt;
  }
  do {
    if (!readLine(line)) {
      fail("the manifest ends too early");
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
    fail(error.what());
  }
}

// ---- Checksums.

namespace {

// Whether sha256sum writes the name another way, and says so by a backslash in front of the line.
bool isEscaped(const std::string &name) {
  return name.find_first_of("\\\n\r") != std::string::npos;
}

std::string escape(const std::string &name) {
  std::string text;
  for (const char c : name) {
    switch (c) {
      case '\\':
        text += "\\\\";
        break;
      case '\n':
        text += "\\n";
        break;
      case '\r':
        text += "\\r";
        break;
      default:
        text += c;
    }
  }
  return text;
}

std::string unescape(std::string_view text) {
  std::string name;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '\\' || at + 1 == text.size()) {
      name += text[at];
      continue;
    }
    ++at;
    name += text[at] == 'n' ? '\n' : text[at] == 'r' ? '\r' : text[at];
  }
  return name;
}

constexpr std::size_t kDigits = 64;  // of a SHA-256

}  // namespace

std::string checksumLine(const std::string &sha256, const std::string &name) {
  return isEscaped(name) ? "\\" + sha256 + "  " + escape(name) : sha256 + "  " + name;
}

ChecksumsReader::ChecksumsReader(const std::filesystem::path &folder)
    : path_(folder / kChecksumsName), stream_(openStream(path_)) {}

void ChecksumsReader::fail(const std::string &what) const {
  throw StoreError(quoted(path_) + ", line " + std::to_string(line_) + ": " + what);
}

std::optional<ChecksumsReader::Line> ChecksumsReader::next() {
  ++line_;
  std::string text;
  if (!std::getline(stream_, text)) {
    if (stream_.bad()) {
      failWith(errno, "cannot read " + quoted(path_));
    }
    return std::nullopt;
  }
  const bool escaped = !text.empty() && text[0] == '\\';
  const std::size_t begin = escaped ? 1 : 0;
  if (text.find_first_not_of("0123456789abcdef", begin) != begin + kDigits ||
      text.compare(begin + kDigits, 2, "  ") != 0) {
    fail("this is not a checksum and a name");
  }
  const std::string written = text.substr(begin + kDigits + 2);
  const std::string name = escaped ? unescape(written) : written;
  if (const std::string problem = checkPath(name, 0); !problem.empty()) {
    fail(problem);
  }
  return Line{text.substr(begin, kDigits), name};
}

void checkManifestFile(const std::filesystem::path &folder) {
  const std::filesystem::path path = folder / kManifestName;
  const UniqueFd file = openFile(path);
  const std::string sha256 = sha256OfFile(file.get(), path);
  ChecksumsReader checksums(folder);
  while (const std::optional<ChecksumsReader::Line> line = checksums.next()) {
    if (line->name == kManifestName) {
      if (line->sha256 != sha256) {
        throw StoreError(quoted(path) + " is not the file that " + kChecksumsName +
                         " has the checksum of: one of the two is damaged");
      }
      return;
    }
  }
  throw StoreError(quoted(folder / kChecksumsName) + " has no checksum of " + kManifestName);
}

}  // namespace arvl_host
