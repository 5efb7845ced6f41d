#include "backup/verify.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <optional>
#include <utility>

#include "backup/backup_file.h"
#include "backup/backup_source.h"
#include "backup/checksums.h"
#include "backup/entry_path.h"
#include "backup/file_index.h"
#include "backup/manifest_reader.h"
#include "files/folder_reader.h"
#include "files/sha256.h"
#include "files/store.h"
#include "text/durations.h"

namespace fs = std::filesystem;

namespace arvl_host {

namespace {

std::string targetOf(const UniqueFd &link) {
  char target[PATH_MAX];
  const ssize_t size = readlinkat(link.get(), "", target, sizeof target);
  return size < 0 ? "" : std::string(target, static_cast<std::size_t>(size));
}

class Verifier {
 public:
  Verifier(fs::path folder, const OnProblem &onProblem, const OnVerifyProgress &onProgress)
      : folder_(std::move(folder)), onProblem_(onProblem), onProgress_(onProgress) {
    progress_.step = "verify";
    progress_.stage = folder_.parent_path().filename().string() + " " + folder_.filename().string();
  }

  Verification verify();

 private:
  void readManifest();
  void checkExportResult(const Manifest &manifest);
  void openData();
  void checkRecord(const FileRecord &record);
  void checkEntry(const FileRecord &record, const std::string &name);
  void checkContent(const FileRecord &record, const std::string &name);
  void checkChecksums();
  void checkLine(const ChecksumsReader::Line &line);
  void findExtra();
  void findExtraIn(const std::string &path);
  void showProgress();
  void report(const std::string &path, const std::string &problem);

  const fs::path folder_;
  const OnProblem &onProblem_;
  const OnVerifyProgress &onProgress_;
  std::optional<Store> data_;  // empty if the backup has no such directory
  FileIndex index_;
  Verification result_;
  StepProgress progress_;
  const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

Verification Verifier::verify() {
  std::string problem;
  try {
    checkManifestFile(folder_);
  } catch (const CannotExamine &) {
    throw;
  } catch (const StoreError &error) {
    problem = error.what();
    report(kManifestName, problem);
  }
  try {
    readManifest();
  } catch (const CannotExamine &) {
    throw;
  } catch (const StoreError &error) {
    if (error.what() != problem) {
      report(kManifestName, error.what());
    }
    return result_;
  }
  checkChecksums();
  findExtra();
  return result_;
}

void Verifier::report(const std::string &path, const std::string &problem) {
  ++result_.problems;
  onProblem_(path, problem);
}

void Verifier::showProgress() {
  progress_.seconds = secondsSince(begin_);
  onProgress_(progress_);
}

void Verifier::readManifest() {
  ManifestReader reader(folder_);
  checkPlace(reader.manifest(), folder_);
  checkExportResult(reader.manifest());
  openData();
  progress_.expectedBytes = reader.manifest().totals.bytes;
  while (const std::optional<FileRecord> record = reader.next()) {
    showProgress();
    addTo(result_.totals, *record);
    index_.add(*record);
    checkRecord(*record);
  }
}

// An import receives the export result.
void Verifier::checkExportResult(const Manifest &manifest) {
  try {
    exportResultOf(manifest, quoted(folder_ / kManifestName));
  } catch (const StoreError &error) {
    report(kManifestName, error.what());
  }
}

void Verifier::openData() {
  const fs::path path = folder_ / kDataName;
  const fs::file_status status = fs::symlink_status(path);
  if (!fs::exists(status)) {
    report(kDataName, "missing");
  } else if (!fs::is_directory(status)) {
    report(kDataName, "is no longer of type dir");
  } else {
    data_.emplace(path, StoreOptions{{}, true});
  }
}

void Verifier::checkRecord(const FileRecord &record) {
  if (!data_) {
    return;
  }
  const std::string name = kDataName + record.path;
  try {
    checkEntry(record, name);
  } catch (const StoreError &error) {
    report(name, error.what());
  }
}

void Verifier::checkEntry(const FileRecord &record, const std::string &name) {
  const UniqueFd entry = data_->openEntry(record.path, O_PATH);
  if (!entry) {
    report(name, "missing");
    return;
  }
  struct stat status;
  if (fstat(entry.get(), &status) != 0) {
    failWith(errno, "cannot be examined");
  }
  if (fileTypeOf(status.st_mode) != record.type) {
    report(name, std::string("is no longer of type ") + fileTypeText(record.type));
    return;
  }
  if (record.type != FileType::kSymlink && (status.st_mode & 07777) != record.mode) {
    report(name, "has another mode");
  }
  if (record.type == FileType::kFile &&
      (status.st_mtim.tv_sec != record.mtime || status.st_mtim.tv_nsec != record.mtimeNsec)) {
    report(name, "has another time of modification");
  }
  if (record.type == FileType::kFile && status.st_size != record.size) {
    report(name, "has " + std::to_string(status.st_size) + " bytes, and had " +
                     std::to_string(record.size));
  }
  if (record.type == FileType::kSymlink && targetOf(entry) != record.target) {
    report(name, "leads elsewhere");
  }
  if (record.type == FileType::kFile) {
    checkContent(record, name);
  }
}

void Verifier::checkContent(const FileRecord &record, const std::string &name) {
  const UniqueFd file = data_->openEntry(record.path, O_RDONLY | O_NONBLOCK);
  if (!file) {
    report(name, "missing");
    return;
  }
  const std::string sha256 = sha256OfFile(file.get(), name, [this](std::size_t count) {
    progress_.bytes += count;
    showProgress();
  });
  ++progress_.files;
  if (sha256 != record.sha256) {
    report(name, "damaged: its SHA-256 is " + sha256 + ", and was " + record.sha256);
  }
}

// Compares the lines of SHA256SUMS with the records. The line of the manifest has been checked.
void Verifier::checkChecksums() {
  std::uint64_t files = 0;
  std::pair<std::string, std::string> last;
  try {
    ChecksumsReader reader(folder_);
    while (const std::optional<ChecksumsReader::Line> line = reader.next()) {
      showProgress();
      if (line->name == kManifestName) {
        continue;
      }
      ++files;
      checkLine(*line);
      // Reject duplicates, or a repeated line could hide a missing one.
      const auto place = splitEntryPath(line->name);
      if (place <= last) {
        report(kChecksumsName, "names this file again, or out of its order: " + line->name);
      }
      last = place;
    }
  } catch (const StoreError &error) {
    report(kChecksumsName, error.what());
    return;
  }
  if (files != result_.totals.files) {
    report(kChecksumsName, "has " + std::to_string(files) + " files, and the manifest " +
                               std::to_string(result_.totals.files));
  }
}

void Verifier::checkLine(const ChecksumsReader::Line &line) {
  const std::string prefix = kDataName + std::string("/");
  const std::optional<FileRecord> record = line.name.compare(0, prefix.size(), prefix) == 0
                                               ? index_.find(line.name.substr(prefix.size() - 1))
                                               : std::nullopt;
  if (!record) {
    report(kChecksumsName, "names a file that the manifest does not know: " + line.name);
  } else if (record->sha256 != line.sha256) {
    report(kChecksumsName, "has another checksum of " + line.name + " than the manifest");
  }
}

void Verifier::findExtra() {
  for (const fs::directory_entry &entry : fs::directory_iterator(folder_)) {
    const std::string name = entry.path().filename();
    if (name != kDataName && name != kManifestName && name != kChecksumsName) {
      report(name, "does not belong to the backup");
    }
  }
  if (data_) {
    findExtraIn("");
  }
}

void Verifier::findExtraIn(const std::string &path) {
  const UniqueFd folder = data_->openEntry(path + "/", O_PATH | O_DIRECTORY);
  if (!folder) {
    return;  // removed meanwhile
  }
  FolderReader reader(folder.get(), (folder_ / kDataName).string() + path);
  while (const char *name = reader.next()) {
    showProgress();
    std::string entry = path;
    entry += '/';
    entry += name;
    if (!index_.find(entry)) {
      report(kDataName + entry, "is not in the manifest");
    }
    struct stat status;
    if (fstatat(reader.fd(), name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode)) {
      findExtraIn(entry);
    }
  }
}

}  // namespace

Verification verifyBackup(const fs::path &folder, const OnProblem &onProblem,
                          const OnVerifyProgress &onProgress) {
  try {
    return Verifier(folder, onProblem, onProgress).verify();
  } catch (const fs::filesystem_error &error) {
    throw StoreError(error.what());
  }
}

}  // namespace arvl_host
