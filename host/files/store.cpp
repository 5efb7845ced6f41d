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

// JSON may put a NUL into a path, and the kernel would take what stands before it.
void checkText(const std::string &path) {
  if (path.find('\0') != std::string::npos) {
    throw StoreError(quoted(path) + " is no path: it holds a NUL");
  }
}

// A path without a last component, or with one that is no name, holds nothing that could be written.
SplitPath split(const std::string &path) {
  checkText(path);
  std::string trimmed = path;
  while (trimmed.size() > 1 && trimmed.back() == '/') {
    trimmed.pop_back();
  }
  const std::size_t slash = trimmed.rfind('/');
  SplitPath parts;
  parts.folder = trimmed.substr(0, slash + 1);
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
    throw StoreError(quoted(shown) + " is neither a file, a folder nor a link");
  }
  if (*found != type) {
    throw StoreError(quoted(shown) + " is of type " + fileTypeText(*found) + ", not " +
                     fileTypeText(type));
  }
}

// A local folder; links on the way to it are the user's own.
UniqueFd openLocalFolder(const std::string &path) {
  UniqueFd folder(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!folder) {
    failWith(errno, "cannot open the folder " + quoted(path));
  }
  return folder;
}

// False for what does not exist, and for a link that leads to itself, which is replaced as any other.
bool isFolder(const std::string &path) {
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
    throw StoreError("no such type of file: " + quoted(text));
  }
  return *type;
}

std::optional<StoreEntry> StoreListing::next() {
  while (const char *name = reader_.next()) {
    struct stat status;
    if (fstatat(reader_.fd(), name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT) {
        continue;  // gone meanwhile
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

Store::Store(const std::string &folder, const StoreOptions &options)
    : root_(open(folder.c_str(),
                 O_PATH | O_DIRECTORY | O_CLOEXEC | (options.isReadOnly ? O_NOFOLLOW : 0))),
      rootLength_(folder.size()),
      options_(options) {
  if (!root_) {
    failWith(errno, "cannot open the store " + quoted(folder));
  }
}

// Returns an empty descriptor on failure, with errno set.
UniqueFd Store::tryOpen(const std::string &path, int flags, std::uint64_t resolve) const {
  checkText(path);
  open_how how = {};
  how.flags = static_cast<std::uint64_t>(flags | O_CLOEXEC);
  how.resolve = RESOLVE_IN_ROOT | resolve;
  UniqueFd fd;
  do {  // EAGAIN: a rename went on beside, and the kernel could not tell that the path stays inside
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

// What has been opened, by its one path inside the store, "" for the store itself: a request may have come
// by way of links. A store that is moved meanwhile leaves the path of the request.
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

// Bytes that a path may have below the folder, its first slash included.
std::size_t Store::roomIn(const UniqueFd &folder, const std::string &path) const {
  const std::size_t length = rootLength_ + realPath(folder.get(), path).size();
  return length < PATH_MAX ? PATH_MAX - 1 - length : 0;
}

void Store::checkWritable() const {
  if (options_.isReadOnly) {
    throw StoreError("what is restored from is not written to");
  }
}

StoreListing Store::list(const std::string &path) const {
  const UniqueFd folder = openInside(path, O_PATH | O_DIRECTORY);
  const std::string real = realPath(folder.get(), path);
  if (options_.copies.watcher != nullptr && !real.empty()) {
    struct stat status;
    if (fstat(folder.get(), &status) != 0) {
      failWith(errno, "cannot examine " + quoted(path));
    }
    options_.copies.watcher->onEntry(real, status);
  }
  return StoreListing(FolderReader(folder.get(), path), real, options_.copies.watcher);
}

void Store::createDir(const std::string &path) const {
  checkWritable();
  checkText(path);
  std::vector<SplitPath> made;
  try {
    makeFolders(path, made);
  } catch (const StoreError &) {
    removeFolders(made);
    throw;
  }
}

void Store::makeFolders(const std::string &path, std::vector<SplitPath> &made) const {
  std::string reached = "/";
  for (const std::filesystem::path &part : std::filesystem::path(path).relative_path()) {
    if (part.empty()) {
      continue;
    }
    const UniqueFd parent = openInside(reached, O_PATH | O_DIRECTORY);
    if (mkdirat(parent.get(), part.c_str(), 0777) == 0) {
      made.push_back({reached, part});
      if (part.native().size() + 1 > roomIn(parent, reached)) {
        throw PathTooLong(path);
      }
    } else if (errno != EEXIST) {
      failWith(errno, "cannot make the folder " + quoted(path));
    }
    reached += part.string() + "/";
  }
  openInside(reached, O_PATH | O_DIRECTORY);  // it may be there as something else
}

// The innermost first. One that somebody else has put something into stays.
void Store::removeFolders(const std::vector<SplitPath> &made) const {
  for (auto folder = made.rbegin(); folder != made.rend(); ++folder) {
    try {
      const UniqueFd parent = openInside(folder->folder, O_PATH | O_DIRECTORY);
      unlinkat(parent.get(), folder->name.c_str(), AT_REMOVEDIR);
    } catch (const StoreError &) {
      return;  // the request is denied for its own reason
    }
  }
}

void Store::upload(const std::string &source, FileType type, bool isTemporary,
                   const std::string &destination) const {
  checkWritable();
  const SplitPath from = split(source);
  const SplitPath to = split(destination);
  const UniqueFd folder = openLocalFolder(from.folder);
  const UniqueFd entry(openat(folder.get(), from.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!entry) {
    failWith(errno, (errno == ENOENT ? "cannot find " : "cannot open ") + quoted(source));
  }
  expectType(entry, type, source);
  const UniqueFd target = openInside(to.folder, O_PATH | O_DIRECTORY);

  const std::size_t room = roomIn(target, to.folder);
  const std::size_t needed = to.name.size() + 1;
  if (needed > room) {
    throw PathTooLong(destination);
  }
  CopyOptions options = options_.copies;
  options.maxBelow = room - needed;
  const Place place = {target.get(), to.name, destination};
  transfer(options, [&](Copier &copier) {
    if (isTemporary) {
      copier.move({folder.get(), from.name, source}, place);
    } else {
      copier.copy(entry.get(), source, place);
    }
  });
}

void Store::download(const std::string &source, FileType type,
                     const std::string &destination) const {
  const SplitPath from = split(source);
  checkText(destination);
  const bool into = isFolder(destination);
  if (!into && type != FileType::kDir && destination.back() == '/') {
    throw StoreError(quoted(destination) + " is not a folder");
  }
  const SplitPath to = into ? SplitPath{destination, from.name} : split(destination);
  const std::string shownTo = into ? destination + "/" + from.name : destination;
  const UniqueFd target = openLocalFolder(to.folder);

  // A link is meant itself; of anything else, links inside the store lead to it.
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
