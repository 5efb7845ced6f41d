#include "files/store.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>
#include <climits>
#include <filesystem>

namespace arvl_host {

namespace {

// A path from JSON may contain a NUL, at which the kernel would cut it.
void checkText(const std::string &path) {
  if (path.find('\0') != std::string::npos) {
    throw StoreError(quoted(path) + " is not a valid path: it contains a NUL byte");
  }
}

// Throws StoreError for a path that does not name an entry, such as "/" or "/..".
SplitPath split(const std::string &path) {
  checkText(path);
  std::string trimmed = path;
  while (trimmed.size() > 1 && trimmed.back() == '/') {
    trimmed.pop_back();
  }
  const std::size_t slash = trimmed.rfind('/');
  SplitPath parts;
  parts.directory = trimmed.substr(0, slash + 1);
  parts.name = trimmed.substr(slash + 1);
  if (parts.name.empty() || parts.name == "." || parts.name == "..") {
    throw StoreError(quoted(path) + " does not end in a name");
  }
  return parts;
}

void expectType(const UniqueFd &path, FileType type, const std::string &shown) {
  struct stat status;
  if (fstat(path.get(), &status) != 0) {
    failWith(errno, "cannot examine " + quoted(shown));
  }
  const std::optional<FileType> found = fileTypeOf(status.st_mode);
  if (!found) {
    throw StoreError(quoted(shown) + " is neither a file, a directory nor a link");
  }
  if (*found != type) {
    throw StoreError(quoted(shown) + " is of type " + fileTypeText(*found) + ", not " +
                     fileTypeText(type));
  }
}

// Follows links in the path: they are the user's own.
UniqueFd openLocalDirectory(const std::string &path) {
  UniqueFd directory(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!directory) {
    failWith(errno, "cannot open the directory " + quoted(path));
  }
  return directory;
}

// Returns false if the path does not exist, or is a link that leads to itself: a download replaces such a link.
bool isDirectory(const std::string &path) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  if (status.type() == std::filesystem::file_type::none && error.value() != ELOOP) {
    failWith(error.value(), "cannot examine " + quoted(path));
  }
  return std::filesystem::is_directory(status);
}

}  // namespace

FileType requireFileType(const std::string &text) {
  const std::optional<FileType> type = fileTypeNamed(text);
  if (!type) {
    throw StoreError("unknown file type " + quoted(text));
  }
  return *type;
}

std::optional<StoreEntry> StoreListing::next() {
  while (const char *name = reader_.next()) {
    struct stat status;
    if (fstatat(reader_.fd(), name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT) {
        continue;  // removed meanwhile
      }
      failWith(errno, "cannot examine " + quoted(path_ + "/" + name));
    }
    const std::optional<FileType> type = fileTypeOf(status.st_mode);
    if (!type) {
      continue;
    }
    ++entries_;
    if (watcher_ != nullptr) {
      watcher_->onEntry(path_ + "/" + name, status);
    }
    return StoreEntry{name, *type, status.st_size, status.st_mtim.tv_sec};
  }
  if (watcher_ != nullptr) {
    watcher_->onFolderEnd(path_, entries_);
  }
  return std::nullopt;
}

void StoreListing::rewind() {
  reader_.rewind();
  entries_ = 0;
}

Store::Store(const std::string &directory, const StoreOptions &options)
    : root_(open(directory.c_str(),
                 O_PATH | O_DIRECTORY | O_CLOEXEC | (options.isReadOnly ? O_NOFOLLOW : 0))),
      rootLength_(directory.size()),
      options_(options) {
  if (!root_) {
    failWith(errno, "cannot open the store " + quoted(directory));
  }
}

// Returns an empty descriptor on failure, with errno set.
UniqueFd Store::tryOpen(const std::string &path, int flags, std::uint64_t resolve) const {
  checkText(path);
  open_how how = {};
  how.flags = static_cast<std::uint64_t>(flags | O_CLOEXEC);
  how.resolve = RESOLVE_IN_ROOT | resolve;
  UniqueFd fd;
  do {  // EAGAIN: because of a rename, the kernel could not check that the path stays inside
    fd.reset(static_cast<int>(syscall(SYS_openat2, root_.get(), path.c_str(), &how, sizeof how)));
  } while (!fd && errno == EAGAIN);
  return fd;
}

UniqueFd Store::openEntry(const std::string &path, int flags) const {
  UniqueFd fd = tryOpen(path, flags | O_NOFOLLOW, RESOLVE_NO_SYMLINKS);
  if (!fd && errno != ENOENT && errno != ENOTDIR && errno != ELOOP) {
    failWith(errno, "cannot open " + quoted(path) + " in the store");
  }
  return fd;
}

UniqueFd Store::openInside(const std::string &path, int flags) const {
  UniqueFd fd = tryOpen(path, flags, RESOLVE_NO_MAGICLINKS);
  if (!fd) {
    failWith(errno, errno == ENOENT ? quoted(path) + " is not in the store"
                                    : "cannot open " + quoted(path) + " in the store");
  }
  return fd;
}

// Returns the path of an open entry inside the store, without links; "" for the store itself. Returns `path`
// if the store was moved meanwhile.
std::string Store::realPath(int fd, const std::string &path) const {
  const auto pathOf = [](int open) {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(open), error).string();
  };
  std::string root = pathOf(root_.get());
  if (root == "/") {
    root.clear();
  }
  const std::string whole = pathOf(fd);
  return whole.compare(0, root.size(), root) == 0 ? whole.substr(root.size()) : path;
}

// Returns the longest path that fits below the directory, in bytes, with its leading slash.
std::size_t Store::roomIn(const UniqueFd &directory, const std::string &path) const {
  const std::size_t length = rootLength_ + realPath(directory.get(), path).size();
  return length < PATH_MAX ? PATH_MAX - 1 - length : 0;
}

void Store::checkWritable() const {
  if (options_.isReadOnly) {
    throw StoreError("the store is read-only during a restore");
  }
}

StoreListing Store::list(const std::string &path) const {
  const UniqueFd directory = openInside(path, O_PATH | O_DIRECTORY);
  const std::string real = realPath(directory.get(), path);
  if (options_.copies.watcher != nullptr && !real.empty()) {
    struct stat status;
    if (fstat(directory.get(), &status) != 0) {
      failWith(errno, "cannot examine " + quoted(path));
    }
    options_.copies.watcher->onEntry(real, status);
  }
  return StoreListing(FolderReader(directory.get(), path), real, options_.copies.watcher);
}

void Store::createDir(const std::string &path) const {
  checkWritable();
  checkText(path);
  std::vector<SplitPath> created;
  try {
    createDirectories(path, created);
  } catch (const StoreError &) {
    removeDirectories(created);
    throw;
  }
}

void Store::createDirectories(const std::string &path, std::vector<SplitPath> &created) const {
  std::string reached = "/";
  for (const std::filesystem::path &part : std::filesystem::path(path).relative_path()) {
    if (part.empty()) {
      continue;
    }
    const UniqueFd parent = openInside(reached, O_PATH | O_DIRECTORY);
    if (mkdirat(parent.get(), part.c_str(), 0777) == 0) {
      created.push_back({reached, part});
      if (part.native().size() + 1 > roomIn(parent, reached)) {
        throw PathTooLong(path);
      }
    } else if (errno != EEXIST) {
      failWith(errno, "cannot create the directory " + quoted(path));
    }
    reached += part.string() + "/";
  }
  openInside(reached, O_PATH | O_DIRECTORY);  // fails if it exists with another type
}

// Removes the innermost first. A directory that is no longer empty stays.
void Store::removeDirectories(const std::vector<SplitPath> &created) const {
  for (auto directory = created.rbegin(); directory != created.rend(); ++directory) {
    try {
      const UniqueFd parent = openInside(directory->directory, O_PATH | O_DIRECTORY);
      unlinkat(parent.get(), directory->name.c_str(), AT_REMOVEDIR);
    } catch (const StoreError &) {
      return;  // the first error is the one to report
    }
  }
}

void Store::upload(const std::string &source, FileType type, bool isTemporary,
                   const std::string &destination) const {
  checkWritable();
  const SplitPath from = split(source);
  const SplitPath to = split(destination);
  const UniqueFd directory = openLocalDirectory(from.directory);
  const UniqueFd entry(openat(directory.get(), from.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!entry) {
    failWith(errno, (errno == ENOENT ? "cannot find " : "cannot open ") + quoted(source));
  }
  expectType(entry, type, source);
  const UniqueFd target = openInside(to.directory, O_PATH | O_DIRECTORY);

  const std::size_t room = roomIn(target, to.directory);
  const std::size_t needed = to.name.size() + 1;
  if (needed > room) {
    throw PathTooLong(destination);
  }
  CopyOptions options = options_.copies;
  options.maxBelow = room - needed;
  const Place place = {target.get(), to.name, destination};
  transfer(options, [&](Copier &copier) {
    if (isTemporary) {
      copier.move({directory.get(), from.name, source}, place);
    } else {
      copier.copy(entry.get(), source, place);
    }
  });
}

void Store::download(const std::string &source, FileType type,
                     const std::string &destination) const {
  const SplitPath from = split(source);
  checkText(destination);
  const bool into = isDirectory(destination);
  if (!into && type != FileType::kDir && destination.back() == '/') {
    throw StoreError(quoted(destination) + " is not a directory");
  }
  const SplitPath to = into ? SplitPath{destination, from.name} : split(destination);
  const std::string shownTo = into ? destination + "/" + from.name : destination;
  const UniqueFd target = openLocalDirectory(to.directory);

  // A link is downloaded itself. For other types, links in the store are followed.
  const UniqueFd entry = type == FileType::kSymlink ? openInside(source, O_PATH | O_NOFOLLOW)
                                                    : openInside(source, O_PATH);
  expectType(entry, type, source);
  const Place place = {target.get(), to.name, shownTo};
  transfer(options_.copies,
           [&](Copier &copier) { copier.copy(entry.get(), realPath(entry.get(), source), place); });
}

void Store::transfer(const CopyOptions &options, const std::function<void(Copier &)> &work) const {
  TransferWatcher *watcher = options.watcher;
  Copier copier(canceled_, options);
  try {
    work(copier);
  } catch (...) {
    if (watcher != nullptr) {
      watcher->onTransferEnd(false);
    }
    throw;
  }
  if (watcher != nullptr) {
    watcher->onTransferEnd(true);
  }
}

}  // namespace arvl_host
