#include "backup/catalog.h"

#include <algorithm>
#include <utility>

#include "backup/backup_id.h"
#include "backup/directory.h"
#include "text/utf8.h"

namespace fs = std::filesystem;

namespace arvl_host {

namespace {

constexpr const char *kLostAndFound = "lost+found";  // of the file system, where a store is one

// Says whether a link to a directory counts as a directory.
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
    failWith(error.value(), "cannot read the directory " + quoted(folder));
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

}  // namespace

std::string checkApplicationName(const std::string &name) {
  if (name.empty() || name[0] == '.' || name.find('/') != std::string::npos ||
      visibleText(name) != name || name.size() > 200) {
    return "an application's name is the name of a directory, without a full stop in front, not " +
           quoted(name);
  }
  return "";
}

void makeStore(const fs::path &store) {
  makeDirectory(store, 0777);
}

Catalog::Catalog(fs::path store) : store_(std::move(store)) {
  openDirectory(store_);
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

// A backup gets this name when it is finished.
std::vector<std::string> Catalog::backups(const std::string &application) const {
  return only(foldersIn(application), isBackupId);
}

std::vector<std::string> Catalog::unfinished(const std::string &application) const {
  return only(foldersIn(application), isPartialName);
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
  if (isPartialName(name)) {
    throw StoreError(quoted(path) + " is a backup that did not finish, or that runs now");
  }
  if (!isBackupId(name)) {
    throw StoreError(
        quoted(path) +
        " is not the directory of a backup: give STORE/APPLICATION/ID as list shows them");
  }
  return folder;
}

}  // namespace arvl_host
