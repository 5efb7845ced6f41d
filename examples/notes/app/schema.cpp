#include "app/schema.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <stdexcept>
#include <system_error>
#include <tuple>

#include "app/files.h"

namespace fs = std::filesystem;

namespace notes {
namespace {

constexpr int kApplicationId = 0x6e6f7465;  // "note"

constexpr const char *kSchema10 = R"(
  CREATE TABLE notebooks (
    id   INTEGER PRIMARY KEY,
    name TEXT NOT NULL UNIQUE);
  CREATE TABLE notes (
    id          INTEGER PRIMARY KEY AUTOINCREMENT,
    notebook_id INTEGER NOT NULL REFERENCES notebooks (id) ON DELETE CASCADE,
    title       TEXT NOT NULL,
    body        TEXT NOT NULL,
    created_at  INTEGER NOT NULL);
  CREATE TABLE attachments (
    id      INTEGER PRIMARY KEY,
    note_id INTEGER NOT NULL REFERENCES notes (id) ON DELETE CASCADE,
    name    TEXT NOT NULL,
    size    INTEGER NOT NULL,
    file    TEXT NOT NULL);
  CREATE INDEX notes_by_notebook ON notes (notebook_id);
  CREATE INDEX attachments_by_note ON attachments (note_id);

  CREATE VIRTUAL TABLE notes_index USING fts5 (title, body, content = 'notes', content_rowid = 'id');
  CREATE TRIGGER notes_inserted AFTER INSERT ON notes BEGIN
    INSERT INTO notes_index (rowid, title, body) VALUES (new.id, new.title, new.body);
  END;
  CREATE TRIGGER notes_deleted AFTER DELETE ON notes BEGIN
    INSERT INTO notes_index (notes_index, rowid, title, body)
      VALUES ('delete', old.id, old.title, old.body);
  END;
  CREATE TRIGGER notes_changed AFTER UPDATE OF title, body ON notes BEGIN
    INSERT INTO notes_index (notes_index, rowid, title, body)
      VALUES ('delete', old.id, old.title, old.body);
    INSERT INTO notes_index (rowid, title, body) VALUES (new.id, new.title, new.body);
  END;
)";

constexpr const char *kSchema11 = R"(
  ALTER TABLE notes ADD COLUMN updated_at INTEGER NOT NULL DEFAULT 0;
  UPDATE notes SET updated_at = created_at;
  ALTER TABLE attachments RENAME COLUMN file TO sha256;
)";

void writeVersion(Database &database, DataVersion version) {
  const int number = version.major * 100 + version.minor;
  database.execute("PRAGMA user_version = " + std::to_string(number));
}

// A restored database may name files outside the attachments' directory: reject them.
std::string plainName(const std::string &name) {
  if (name.empty() || name[0] == '.' || name.find('/') != std::string::npos) {
    throw std::runtime_error("the attachment name [" + name + "] is not acceptable");
  }
  return name;
}

// Gives the file its checksum as a second name. Both names must exist until the commit.
std::string linkByChecksum(const AttachmentFile &file, const fs::path &attachments) {
  const Digest digest = digestFile(attachments / file.name);
  if (digest.size != file.size) {
    throw std::runtime_error((attachments / file.name).string() + " has not the recorded size");
  }
  const fs::path target = attachments / digest.sha256;
  if (::link((attachments / file.name).c_str(), target.c_str()) != 0 && errno != EEXIST) {
    throwErrno(target);
  }
  return digest.sha256;
}

void migrateTo11(Database &database, const fs::path &attachments) {
  Transaction writing(database, Transaction::Kind::kWrite);
  if (!(readVersion(database) == DataVersion{1, 0})) {
    return;  // another process has migrated it
  }
  const std::vector<AttachmentFile> files = attachmentFiles(database);
  Statement rename(database, "UPDATE attachments SET file = ? WHERE file = ?");
  for (const AttachmentFile &file : files) {
    rename.bind(linkByChecksum(file, attachments), file.name).run();
  }
  if (!files.empty()) {
    syncDirectory(attachments);
  }
  database.execute(kSchema11);
  writeVersion(database, {1, 1});
  writing.commit();

  for (const AttachmentFile &file : files) {
    fs::remove(attachments / file.name);
  }
}

}  // namespace

bool operator==(DataVersion a, DataVersion b) {
  return std::tie(a.major, a.minor) == std::tie(b.major, b.minor);
}

bool operator<(DataVersion a, DataVersion b) {
  return std::tie(a.major, a.minor) < std::tie(b.major, b.minor);
}

DataVersion readVersion(Database &database) {
  if (database.integer("PRAGMA application_id") != kApplicationId) {
    throw std::runtime_error("the database is not one of notes");
  }
  const auto number = static_cast<int>(database.integer("PRAGMA user_version"));
  return {number / 100, number % 100};
}

void createOldestSchema(Database &database) {
  database.execute(kSchema10);
  database.execute("PRAGMA application_id = " + std::to_string(kApplicationId));
  writeVersion(database, kOldestVersion);
}

void migrate(Database &database, const fs::path &attachments) {
  if (readVersion(database) == DataVersion{1, 0}) {
    migrateTo11(database, attachments);
  }
}

std::vector<AttachmentFile> attachmentFiles(Database &database,
                                            const std::vector<std::string> &notebooks) {
  const char *column = readVersion(database) == DataVersion{1, 0} ? "file" : "sha256";
  const std::string all = std::string("SELECT ") + column + ", size FROM attachments";
  std::map<std::string, std::int64_t> files;
  const auto collect = [&files](Statement &query) {
    while (query.step()) {
      files.emplace(plainName(query.text(0)), query.integer(1));
    }
  };
  if (notebooks.empty()) {
    Statement query(database, all);
    collect(query);
  }
  Statement ofNotebook(database, all +
                                     " JOIN notes ON notes.id = note_id "
                                     "JOIN notebooks ON notebooks.id = notebook_id "
                                     "WHERE notebooks.name = ?");
  for (const std::string &notebook : notebooks) {
    collect(ofNotebook.bind(notebook));
  }

  std::vector<AttachmentFile> list;
  list.reserve(files.size());
  for (const auto &[name, size] : files) {
    list.push_back({name, size});
  }
  return list;
}

std::string indexFault(const std::string &fault) {
  return "full-text index: " + fault;
}

std::vector<std::string> databaseFaults(Database &database) {
  // From release 3.44 on, SQLite examines the index as well and names it. A path may hold that name, too.
  const auto named = [](const std::string &fault) {
    const bool isOfIndex = fault.find("notes_index", fault.rfind('/') + 1) != std::string::npos;
    return isOfIndex ? indexFault(fault) : fault;
  };
  std::vector<std::string> faults;
  try {
    Statement integrity(database, "PRAGMA integrity_check");
    while (integrity.step()) {
      if (integrity.text(0) != "ok") {
        faults.push_back(named(integrity.text(0)));
      }
    }
    Statement references(database, "PRAGMA foreign_key_check");
    while (references.step()) {
      faults.push_back("table " + references.text(0) + ", row " + references.text(1) +
                       ": refers to a missing row of " + references.text(2));
    }
  } catch (const SqliteError &error) {  // too damaged to be examined
    faults.push_back(named(error.what()));
  }
  return faults;
}

std::string attachmentFault(const AttachmentFile &file, const fs::path &attachments,
                            DataVersion version) {
  try {
    const Digest digest = digestFile(attachments / file.name);
    if (digest.size != file.size) {
      return "attachment " + file.name + " has " + std::to_string(digest.size) +
             " bytes instead of " + std::to_string(file.size);
    }
    if (!(version < DataVersion{1, 1}) && digest.sha256 != file.name) {
      return "attachment " + file.name + " has another content";
    }
    return "";
  } catch (const std::system_error &error) {
    return "attachment " + std::string(error.what());
  }
}

}  // namespace notes
