#include "app/store.h"

#include <sstream>
#include <stdexcept>
#include <system_error>
#include <unordered_set>

#include "app/schema.h"

namespace fs = std::filesystem;

namespace notes {
namespace {

constexpr const char *kNoteColumns =
    "SELECT notes.id, notebooks.name, title, "
    "strftime('%Y-%m-%dT%H:%M:%SZ', created_at, 'unixepoch'), "
    "strftime('%Y-%m-%dT%H:%M:%SZ', updated_at, 'unixepoch'), body "
    "FROM notes JOIN notebooks ON notebooks.id = notebook_id ";

Note readNote(const Statement &row) {
  return {row.integer(0), row.text(1), row.text(2), row.text(5), row.text(3), row.text(4)};
}

std::vector<Note> readNotes(Statement &query) {
  std::vector<Note> notes;
  while (query.step()) {
    notes.push_back(readNote(query));
  }
  return notes;
}

// Quotes the words for the index's query language, so that none is an operator.
std::string quoteWords(const std::string &words) {
  std::istringstream in(words);
  std::string query;
  for (std::string word; in >> word;) {
    query += '"';
    for (const char c : word) {
      query += c == '"' ? std::string("\"\"") : std::string(1, c);
    }
    query += "\" ";
  }
  return query;
}

DirLock shareExisting(const DataDir &dir) {
  if (!fs::exists(dir.database())) {
    throw std::runtime_error("there are no notes in " + dir.path().string() + "; see notes init");
  }
  return dir.share();
}

void requireCurrentVersion(Database &database, const DataDir &dir) {
  const DataVersion version = readVersion(database);
  if (version == kCurrentVersion) {
    return;
  }
  throw std::runtime_error(
      dir.path().string() + " holds data version " + version.text() +
      (version < kCurrentVersion ? "; see notes upgrade" : ", which this release does not know"));
}

}  // namespace

void Store::init(const DataDir &dir) {
  dir.requireOwnFilesOnly();
  fs::create_directories(dir.path());
  fs::permissions(dir.path(), fs::perms::owner_all);
  const DirLock lock = dir.share();
  fs::create_directories(dir.attachments());

  Database database(dir.database(), Database::Mode::kCreate);
  database.execute("PRAGMA journal_mode = WAL");
  {
    Transaction writing(database, Transaction::Kind::kWrite);
    if (database.integer("SELECT count(*) FROM sqlite_schema") > 0) {
      requireCurrentVersion(database, dir);
      return;
    }
    createOldestSchema(database);
    writing.commit();
  }
  migrate(database, dir.attachments());
}

void Store::upgrade(const DataDir &dir) {
  const DirLock lock = shareExisting(dir);
  Database database(dir.database());
  migrate(database, dir.attachments());
  requireCurrentVersion(database, dir);
}

std::int64_t Store::clean(const DataDir &dir) {
  shareExisting(dir);
  const DirLock lock(dir.path(), DirLock::Kind::kExclusive, std::chrono::seconds(5));
  Database database(dir.database());
  std::unordered_set<std::string> known;
  for (const AttachmentFile &file : attachmentFiles(database)) {
    known.insert(file.name);
  }
  std::vector<fs::path> unknown;
  for (const fs::directory_entry &entry : fs::directory_iterator(dir.attachments())) {
    if (known.count(entry.path().filename()) == 0) {
      unknown.push_back(entry.path());
    }
  }
  for (const fs::path &file : unknown) {
    fs::remove(file);
  }
  return static_cast<std::int64_t>(unknown.size());
}

Store::Store(const DataDir &dir) : dir_(dir), lock_(shareExisting(dir)), database_(dir.database()) {
  requireCurrentVersion(database_, dir_);
}

Attachment Store::keep(const std::string &name, std::istream &content) {
  const Digest digest = keepContent(content, dir_.attachments());
  return {name, digest.size, digest.sha256};
}

std::int64_t Store::add(const NewNote &note) {
  Transaction writing(database_, Transaction::Kind::kWrite);
  const std::int64_t id = insert(note);
  writing.commit();
  return id;
}

void Store::addAll(const std::vector<NewNote> &notes) {
  Transaction writing(database_, Transaction::Kind::kWrite);
  for (const NewNote &note : notes) {
    insert(note);
  }
  writing.commit();
}

std::int64_t Store::insert(const NewNote &note) {
  Statement(database_, "INSERT INTO notebooks (name) VALUES (?) ON CONFLICT DO NOTHING")
      .bind(note.notebook)
      .run();
  Statement(database_,
            "INSERT INTO notes (notebook_id, title, body, created_at, updated_at) "
            "SELECT id, ?, ?, unixepoch(), unixepoch() FROM notebooks WHERE name = ?")
      .bind(note.title, note.body, note.notebook)
      .run();
  const std::int64_t id = database_.lastInsertId();
  for (const Attachment &attachment : note.attachments) {
    Statement(database_,
              "INSERT INTO attachments (note_id, name, size, sha256) VALUES (?, ?, ?, ?)")
        .bind(id, attachment.name, attachment.size, attachment.sha256)
        .run();
  }
  return id;
}

void Store::edit(std::int64_t id, const std::string &body) {
  Statement(database_, "UPDATE notes SET body = ?, updated_at = unixepoch() WHERE id = ?")
      .bind(body, id)
      .run();
  if (sqlite3_changes(database_.handle()) == 0) {
    throw std::runtime_error("there is no note " + std::to_string(id));
  }
}

std::vector<Note> Store::list(const std::string &notebook) {
  Statement query(database_, std::string(kNoteColumns) +
                                 "WHERE ?1 = '' OR notebooks.name = ?1 ORDER BY notes.id");
  return readNotes(query.bind(notebook));
}

std::vector<Note> Store::search(const std::string &words) {
  Statement query(database_, std::string(kNoteColumns) +
                                 "WHERE notes.id IN (SELECT rowid FROM notes_index WHERE "
                                 "notes_index MATCH ?) ORDER BY notes.id");
  return readNotes(query.bind(quoteWords(words)));
}

Note Store::note(std::int64_t id) {
  Statement query(database_, std::string(kNoteColumns) + "WHERE notes.id = ?");
  if (!query.bind(id).step()) {
    throw std::runtime_error("there is no note " + std::to_string(id));
  }
  return readNote(query);
}

std::vector<Attachment> Store::attachmentsOf(std::int64_t id) {
  Statement query(database_,
                  "SELECT name, size, sha256 FROM attachments WHERE note_id = ? ORDER BY id");
  query.bind(id);
  std::vector<Attachment> attachments;
  while (query.step()) {
    attachments.push_back({query.text(0), query.integer(1), query.text(2)});
  }
  return attachments;
}

Counts Store::count() {
  return {database_.integer("SELECT count(*) FROM notes"),
          database_.integer("SELECT count(*) FROM notebooks"),
          database_.integer("SELECT count(*) FROM attachments")};
}

std::vector<std::string> Store::dump() {
  Statement query(database_,
                  "SELECT json_object('id', notes.id, 'notebook', notebooks.name, 'title', title, "
                  "'body', body, 'created_at', created_at, 'updated_at', updated_at, "
                  "'attachments', (SELECT json_group_array(json_object("
                  "'name', name, 'size', size, 'sha256', sha256)) FROM "
                  "(SELECT * FROM attachments WHERE note_id = notes.id ORDER BY id))) "
                  "FROM notes JOIN notebooks ON notebooks.id = notebook_id ORDER BY notes.id");
  std::vector<std::string> lines;
  while (query.step()) {
    lines.push_back(query.text(0));
  }
  return lines;
}

std::vector<std::string> Store::check() {
  std::vector<std::string> faults = databaseFaults(database_);
  if (!faults.empty()) {
    return faults;
  }
  try {  // rank 1 compares the index with the notes
    database_.execute("INSERT INTO notes_index (notes_index, rank) VALUES ('integrity-check', 1)");
  } catch (const SqliteError &error) {
    faults.push_back(indexFault(error.what()));
  }
  for (const AttachmentFile &file : attachmentFiles(database_)) {
    const std::string fault = attachmentFault(file, dir_.attachments(), kCurrentVersion);
    if (!fault.empty()) {
      faults.push_back(fault);
    }
  }
  return faults;
}

}  // namespace notes
