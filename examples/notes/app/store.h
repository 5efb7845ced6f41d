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

// Access to the notes. Any number of processes may have a Store on the same directory. While one
// exists, an import cannot replace the data. Exceptions have a text for the user.
class Store {
 public:
  // Creates an empty store; does nothing if one exists.
  static void init(const DataDir &dir);
  // Migrates an older store to the current version.
  static void upgrade(const DataDir &dir);
  // Removes the unused files that a crash may have left, and returns their number. Needs exclusive
  // access to the directory.
  static std::int64_t clean(const DataDir &dir);

  // Opens a store of the current version.
  explicit Store(const DataDir &dir);

  // Stores an attachment. Call it before adding the note, so that a crash between the two leaves an
  // unused file, but never a note without its file.
  Attachment keep(const std::string &name, std::istream &content);
  std::int64_t add(const NewNote &note);
  // Adds all notes, or none on failure.
  void addAll(const std::vector<NewNote> &notes);
  void edit(std::int64_t id, const std::string &body);

  // Returns the notes without their bodies; of all notebooks if the name is empty.
  std::vector<Note> list(const std::string &notebook);
  // Returns the notes that contain all of the words.
  std::vector<Note> search(const std::string &words);
  Note note(std::int64_t id);
  std::vector<Attachment> attachmentsOf(std::int64_t id);
  Counts count();

  // Returns each complete note as one line of JSON, in the order of creation.
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
