// The notes of one data directory.
#ifndef NOTES_APP_STORE_H_
#define NOTES_APP_STORE_H_

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

#include "app/data_dir.h"
#include "app/sqlite.h"

namespace notes {

struct Attachment {
  std::string name;  // as the user knows it
  std::int64_t size = 0;
  std::string sha256;
};

struct NewNote {
  std::string notebook;
  std::string title;
  std::string body;
  std::vector<Attachment> attachments;
};

struct Note {
  std::int64_t id = 0;
  std::string notebook;
  std::string title;
  std::string body;
  std::string created;  // UTC, ISO 8601
  std::string updated;
};

struct Counts {
  std::int64_t notes = 0;
  std::int64_t notebooks = 0;
  std::int64_t attachments = 0;
};

// Any number of processes may have a Store on the same directory. While one lives, the data is not
// replaced by a restored one. Failures are exceptions whose text is meant for the user.
class Store {
 public:
  // Makes an empty one; does nothing if there is one already.
  static void init(const DataDir &dir);
  // Brings an older one up to the current version.
  static void upgrade(const DataDir &dir);
  // Removes the files that no note refers to, which a crash may have left. Needs the directory for
  // itself. Returns their number.
  static std::int64_t clean(const DataDir &dir);

  // Opens one of the current version.
  explicit Store(const DataDir &dir);

  // Attachments go in before the note that refers to them, so that a crash between the two leaves a
  // file too many, but never a note without its file.
  Attachment keep(const std::string &name, std::istream &content);
  std::int64_t add(const NewNote &note);
  // All or none.
  void addAll(const std::vector<NewNote> &notes);
  void edit(std::int64_t id, const std::string &body);

  // Empty name: of all notebooks. Bodies are left out.
  std::vector<Note> list(const std::string &notebook);
  // The notes that hold all of the words.
  std::vector<Note> search(const std::string &words);
  Note note(std::int64_t id);
  std::vector<Attachment> attachmentsOf(std::int64_t id);
  Counts count();

  // Every note with all that belongs to it, one line of JSON each, in the order of their making.
  std::vector<std::string> dump();

  // Returns the faults of the data, one line each; empty if it is sound.
  std::vector<std::string> check();

 private:
  std::int64_t insert(const NewNote &note);

  DataDir dir_;
  DirLock lock_;
  Database database_;
};

}  // namespace notes

#endif  // NOTES_APP_STORE_H_
