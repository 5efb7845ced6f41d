#include "backup/catalog.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "backup/manifest.h"
#include "files/remove_tree.h"
#include "text/dates.h"
#include "text/utf8.h"

namespace fs = std::filesystem;

namespace arvl_host {

namespace {

constexpr const char *kLockName = ".lock";
constexpr const char *kPartial = ".partial";
constexpr const char *kLostAndFound = "lost+found";  // of the file system, where a store is one
constexpr std::int64_t kMillisecond = 1000;          // of microseconds

bool isId(const std::string &name) {
  static const std::string form = "00000000T000000.000Z";
  return name.size() == form.size() &&
         std::equal(name.begin(), name.end(), form.begin(), [](char c, char expected) {
           return expected == '0' ? c >= '0' && c <= '9' : c == expected;
         });
}

// In microseconds since the epoch; of what backupId() made.
std::int64_t timeOf(const std::string &id) {
  std::tm date = {};
  const char *rest = strptime(id.c_str(), "%Y%m%dT%H%M%S", &date);
  return timegm(&date) * 1000000 + std::strtol(rest + 1, nullptr, 10) * kMillisecond;
}

bool isPartial(const std::string &name) {
  const std::size_t end = name.size() - std::min(name.size(), std::string(kPartial).size());
  return name.substr(end) == kPartial && isId(name.substr(0, end));
}

std::int64_t now() {
  const auto time = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(time).count();
}

UniqueFd openFolder(const fs::path &path) {
  UniqueFd folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) {
    failWith(errno, "cannot open the folder " + quoted(path));
  }
  return folder;
}

void syncFolder(const fs::path &path) {
  if (fsync(openFolder(path).get()) != 0) {
    failWith(errno, "cannot sync the folder " + quoted(path));
  }
}

void makeFolder(const fs::path &path, mode_t mode) {
  if (mkdir(path.c_str(), mode) != 0 && errno != EEXIST) {
    failWith(errno, "cannot make the folder " + quoted(path));
  }
}

// A link to a folder may stand for it, where that is said.
enum class Links { kFollowed, kLeftOut };

std::vector<std::string> foldersBelow(const fs::path &folder, Links links) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code gone;
    if (entry->is_directory(gone) && (links == Links::kFollowed || !entry->is_symlink(gone))) {
      names.push_back(entry->path().filename());
    }
  }
  if (error) {
    failWith(error.value(), "cannot read the folder " + quoted(folder));
  }
  std::sort(names.begin(), names.end());
  return names;
}

template <typename Predicate>
std::vector<std::string> only(std::vector<std::string> names, Predicate isWanted) {
  names.erase(std::remove_if(names.begin(), names.end(),
                             [&](const std::string &name) { return !isWanted(name); }),
              names.end());
  return names;
}

std::string listOf(const std::vector<std::string> &names) {
  std::string text;
  for (const std::string &name : names) {
    text += (text.empty() ? "" : ", ") + visibleText(name);
  }
  return text;
}

Removal removePartials(const Catalog &catalog, const std::string &application) {
  const fs::path folder = catalog.folderOf(application);
  const UniqueFd open = openFolder(folder);
  Removal result;
  for (const std::string &name : catalog.unfinished(application)) {
    try {
      removeTree({open.get(), name, folder / name});
      result.removed.push_back(name);
    } catch (const StoreError &error) {
      result.errors.push_back(error.what());
    }
  }
  return result;
}

// The ids that a new backup cannot have, in order: an unfinished backup may be there for good.
std::vector<std::string> takenIds(const Catalog &catalog, const std::string &application) {
  std::vector<std::string> ids = catalog.backups(application);
  for (const std::string &name : catalog.unfinished(application)) {
    ids.push_back(name.substr(0, name.size() - std::string(kPartial).size()));
  }
  std::sort(ids.begin(), ids.end());
  return ids;
}

}  // namespace

std::string backupId(std::int64_t microseconds) {
  const std::time_t seconds = microseconds / 1000000;
  std::tm date = {};
  gmtime_r(&seconds, &date);
  char day[32];
  char text[48];
  std::strftime(day, sizeof day, "%Y%m%dT%H%M%S", &date);
  std::snprintf(text, sizeof text, "%s.%03dZ", day,
                static_cast<int>(microseconds % 1000000 / 1000));
  return text;
}

std::string checkApplicationName(const std::string &name) {
  if (name.empty() || name[0] == '.' || name.find('/') != std::string::npos ||
      visibleText(name) != name || name.size() > 200) {
    return "an application's name is the name of a folder, without a full stop in front, not " +
           quoted(name);
  }
  return "";
}

// ---- Catalog.

void makeStore(const fs::path &store) {
  makeFolder(store, 0777);
}

Catalog::Catalog(fs::path store) : store_(std::move(store)) {
  openFolder(store_);
}

fs::path Catalog::folderOf(const std::string &application) const {
  return store_ / application;
}

std::vector<std::string> Catalog::foldersIn(const std::string &application) const {
  return foldersBelow(folderOf(application), Links::kLeftOut);
}

std::vector<std::string> Catalog::applications() const {
  return only(foldersBelow(store_, Links::kFollowed), [](const std::string &name) {
    return checkApplicationName(name).empty() && name != kLostAndFound;
  });
}

// A backup has its name only when it is whole.
std::vector<std::string> Catalog::backups(const std::string &application) const {
  return only(foldersIn(application), isId);
}

std::vector<std::string> Catalog::unfinished(const std::string &application) const {
  return only(foldersIn(application), isPartial);
}

std::string Catalog::find(const std::string &application, const std::string &id) const {
  const std::vector<std::string> all = applications();
  if (std::find(all.begin(), all.end(), application) == all.end()) {
    const std::vector<std::string> known =
        only(all, [this](const std::string &name) { return !backups(name).empty(); });
    throw NoSuchBackup("the store " + quoted(store_) + " has no backup of " +
                       visibleText(application) +
                       (known.empty() ? "" : "; it has backups of " + listOf(known)));
  }
  const std::vector<std::string> ids = backups(application);
  if (ids.empty()) {
    throw NoSuchBackup("the store " + quoted(store_) + " has no finished backup of " +
                       visibleText(application));
  }
  if (!id.empty() && std::find(ids.begin(), ids.end(), id) == ids.end()) {
    throw NoSuchBackup("there is no backup " + visibleText(id) + " of " + visibleText(application) +
                       "; there are " + listOf(ids));
  }
  return id.empty() ? ids.back() : id;
}

fs::path finishedBackup(const fs::path &path) {
  const fs::path folder = (fs::absolute(path) / "").lexically_normal().parent_path();
  const std::string name = folder.filename();
  if (isPartial(name)) {
    throw StoreError(quoted(path) + " is a backup that did not finish, or that runs now");
  }
  if (!isId(name)) {
    throw StoreError(
        quoted(path) +
        " is not the folder of a backup: give STORE/APPLICATION/ID as list shows them");
  }
  return folder;
}

// ---- ApplicationLock.

namespace {

std::string holderOf(int file) {
  char text[256];
  const ssize_t size = pread(file, text, sizeof text, 0);
  return size > 0 ? visibleText({text, static_cast<std::size_t>(size)}) : "another process";
}

std::string ownName() {
  char host[256] = "";
  gethostname(host, sizeof host - 1);
  return "process " + std::to_string(getpid()) + " on " + host + " since " + dateText(now());
}

}  // namespace

ApplicationLock::ApplicationLock(const fs::path &folder) {
  makeFolder(folder, 0777);
  const fs::path path = folder / kLockName;
  file_.reset(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0666));
  if (!file_) {
    failWith(errno, "cannot open " + quoted(path));
  }
  if (flock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK) {
      failWith(errno, "cannot lock " + quoted(path));
    }
    throw StoreBusy("the backups in " + quoted(folder) + " are in use by " + holderOf(file_.get()));
  }
  // For messages alone: a full disk must not keep prune from its work.
  const std::string name = ownName();
  if (ftruncate(file_.get(), 0) != 0 || pwrite(file_.get(), name.data(), name.size(), 0) < 0) {
    return;
  }
}

// ---- NewBackup.

NewBackup::NewBackup(Claim, const Catalog &catalog, const std::string &application)
    : parent_(catalog.folderOf(application)),
      lock_(parent_),
      unfinished_(removePartials(catalog, application)) {
  const std::vector<std::string> taken = takenIds(catalog, application);
  id_ = backupId(now());
  if (!taken.empty() && id_ <= taken.back()) {  // the clock has been set back, or stands still
    id_ = backupId(timeOf(taken.back()) + kMillisecond);
  }
}

// The claim is an object by now: if its folders cannot be made, the destructor removes what there is.
NewBackup::NewBackup(const Catalog &catalog, const std::string &application)
    : NewBackup(Claim(), catalog, application) {
  constexpr mode_t kOwnerAlone = 0700;  // as the folders that it is copied from may have been
  makeFolder(partialFolder(), kOwnerAlone);
  makeFolder(partialFolder() / kDataName, 0777);
  folderToSync_ = openFolder(partialFolder());
}

NewBackup::~NewBackup() {
  if (isFinished_) {
    return;
  }
  try {
    removeTree({openFolder(parent_).get(), id_ + kPartial, partialFolder()});
  } catch (const StoreError &) {  // the next backup tries again
  }
}

fs::path NewBackup::partialFolder() const {
  return parent_ / (id_ + kPartial);
}

void NewBackup::sync() const {
  if (syncfs(folderToSync_.get()) != 0) {
    failWith(errno, "cannot sync " + quoted(partialFolder()));
  }
}

void NewBackup::finish() {
  syncFolder(partialFolder());
  if (rename(partialFolder().c_str(), folder().c_str()) != 0) {
    failWith(errno, "cannot rename " + quoted(partialFolder()));
  }
  isFinished_ = true;
  syncFolder(parent_);
}

Removal removeUnfinished(const Catalog &catalog, const std::string &application) {
  if (catalog.unfinished(application).empty()) {
    return {};
  }
  const ApplicationLock lock(catalog.folderOf(application));
  return removePartials(catalog, application);
}

}  // namespace arvl_host
