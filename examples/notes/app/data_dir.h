// The directory that holds an application's data, and how the whole of it is replaced at once.
//
//   DIR/notes.db              the database; SQLite keeps notes.db-wal and notes.db-shm next to it
//   DIR/attachments/          one file per content, named by its SHA-256; only ever added to
//   DIR/.export/              scratch: the snapshot of an export
//   .NAME.import next to DIR  scratch: the data of an import, until it takes the place of DIR
//   .NAME.old next to DIR     DIR itself, during a replacement on a file system without RENAME_EXCHANGE
//
// A process holds a shared lock on DIR while it works with the data; a replacement holds an exclusive
// one.
#ifndef NOTES_APP_DATA_DIR_H_
#define NOTES_APP_DATA_DIR_H_

#include <filesystem>
#include <stdexcept>
#include <string>

#include "app/dir_lock.h"

namespace notes {

// Thrown if DIR must not be replaced, because it holds files of others.
class ForeignFiles : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class DataDir {
 public:
  // Makes the path absolute and resolves symbolic links; nothing needs to exist.
  explicit DataDir(const std::filesystem::path &path);

  const std::filesystem::path &path() const { return path_; }
  std::filesystem::path database() const { return databaseIn(path_); }
  std::filesystem::path attachments() const { return attachmentsIn(path_); }
  std::filesystem::path exportScratch() const { return path_ / ".export"; }
  std::filesystem::path importScratch() const { return sibling(".import"); }

  // Return the paths of the same layout in a directory that will become DIR.
  static std::filesystem::path databaseIn(const std::filesystem::path &directory);
  static std::filesystem::path attachmentsIn(const std::filesystem::path &directory);

  // Undoes or completes an operation of a killed process, and removes its scratch files.
  void recover() const;

  // Keeps the data from being replaced while the lock lives. Throws std::system_error if there is
  // no such directory.
  DirLock share() const;

  // Throws ForeignFiles unless DIR is missing or holds only the application's files.
  void requireOwnFilesOnly() const;

  // Replaces DIR by the scratch directory. Other processes, also after a crash, find either the old
  // or the new DIR. On failure DIR is the old one.
  void replaceWith(ScratchDir &scratch) const;

 private:
  std::filesystem::path sibling(const std::string &suffix) const;
  std::filesystem::path retired() const { return sibling(".old"); }
  void restoreRetired() const;
  void replaceInTwoSteps(ScratchDir &scratch) const;

  std::filesystem::path path_;
};

}  // namespace notes

#endif  // NOTES_APP_DATA_DIR_H_
