#include "backup/verify.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "backup/file_index.h"

namespace fs = std::filesystem;

namespace arvl_host {

namespace {

// By which the lines are sorted.
std::pair<std::string, std::string> splitPath(const std::string &path) {
  const std::size_t slash = path.rfind('/');
  return {path.substr(0, slash), path.substr(slash + 1)};
}

class Verifier {
 public:
  Verifier(fs::path folder, const OnProblem &onProblem, const OnVerifyProgress &onProgress)
      : folder_(std::move(folder)), onProblem_(onProblem), onProgress_(onProgress) {}

  Verification verify();

 private:
  void readManifest();
  void checkRecord(const FileRecord &record);
  void checkContent(const FileRecord &record, const fs::path &path);
  void checkChecksums();
  void checkLine(const ChecksumsReader::Line &line);
  void findExtra();
  void report(const std::string &path, const std::string &problem);

  const fs::path folder_;
  const OnProblem &onProblem_;
  const OnVerifyProgress &onProgress_;
  FileIndex index_;
  Verification result_;
  VerifyProgress progress_;
};

Verification Verifier::verify() {
  std::string problem;
  try {
    checkManifestFile(folder_);
  } catch (const StoreError &error) {
    problem = error.what();
    report(kManifestName, problem);
  }
  try {
    readManifest();
  } catch (const NewerManifest &) {
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

void Verifier::readManifest() {
  ManifestReader reader(folder_);
  checkPlace(reader.manifest(), folder_);
  progress_.expectedBytes = reader.manifest().totals.bytes;
  while (const std::optional<FileRecord> record = reader.next()) {
    onProgress_(progress_);
    addTo(result_.totals, *record);
    index_.add(*record);
    checkRecord(*record);
  }
}

void Verifier::checkRecord(const FileRecord &record) {
  const std::string name = kDataName + record.path;
  const fs::path path = folder_ / name;
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) {
    report(name, errno == ENOENT || errno == ENOTDIR
                     ? "missing"
                     : std::string("cannot be examined: ") + std::strerror(errno));
    return;
  }
  const std::optional<FileType> type = fileTypeOf(status.st_mode);
  if (type != record.type) {
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
  checkContent(record, path);
}

void Verifier::checkContent(const FileRecord &record, const fs::path &path) {
  const std::string name = kDataName + record.path;
  std::error_code error;
  if (record.type == FileType::kSymlink && fs::read_symlink(path, error) != record.target) {
    report(name, "leads elsewhere");
  }
  if (record.type != FileType::kFile) {
    return;
  }
  const UniqueFd file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file) {
    report(name, std::string("cannot be opened: ") + std::strerror(errno));
    return;
  }
  std::string sha256;
  try {
    sha256 = sha256OfFile(file.get(), name, [this](std::size_t count) {
      progress_.bytes += count;
      onProgress_(progress_);
    });
  } catch (const StoreError &failure) {
    report(name, failure.what());
    return;
  }
  ++progress_.files;
  if (sha256 != record.sha256) {
    report(name, "damaged: its SHA-256 is " + sha256 + ", and was " + record.sha256);
  }
}

// The lines of SHA256SUMS say what the manifest says. The one of the manifest has been checked.
void Verifier::checkChecksums() {
  std::uint64_t files = 0;
  std::pair<std::string, std::string> last;
  try {
    ChecksumsReader reader(folder_);
    while (const std::optional<ChecksumsReader::Line> line = reader.next()) {
      onProgress_(progress_);
      if (line->name == kManifestName) {
        continue;
      }
      ++files;
      checkLine(*line);
      // Each once: as many lines as files could leave one out otherwise.
      const auto place = splitPath(line->name);
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
  const std::size_t prefix = (folder_ / kDataName).native().size();
  for (const fs::directory_entry &entry : fs::directory_iterator(folder_)) {
    const std::string name = entry.path().filename();
    if (name != kDataName && name != kManifestName && name != kChecksumsName) {
      report(name, "does not belong to the backup");
    }
  }
  std::error_code error;
  if (fs::is_symlink(folder_ / kDataName)) {
    report(kDataName, "is no longer of type dir");
  }
  const fs::recursive_directory_iterator data(folder_ / kDataName, error);
  if (error) {
    report(kDataName, "cannot be read: " + error.message());
  }
  for (const fs::directory_entry &entry : data) {
    onProgress_(progress_);
    const std::string path = entry.path().native().substr(prefix);
    if (!index_.find(path)) {
      report(kDataName + path, "is not in the manifest");
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
