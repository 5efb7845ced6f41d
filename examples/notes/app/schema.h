// The database's tables, their versions, and the way from one version to the next.
#ifndef NOTES_APP_SCHEMA_H_
#define NOTES_APP_SCHEMA_H_

#include <filesystem>
#include <string>
#include <vector>

#include "app/sqlite.h"

namespace notes {

// The version of the data; a database carries it as its user_version.
struct DataVersion {
  int major = 0;
  int minor = 0;

  std::string text() const { return std::to_string(major) + "." + std::to_string(minor); }
};
bool operator==(DataVersion a, DataVersion b);
bool operator<(DataVersion a, DataVersion b);

// 1.0: notes, notebooks; attachments in files with running numbers for names.
// 1.1: a note knows when it was last changed; attachments are named by their SHA-256.
constexpr DataVersion kOldestVersion = {1, 0};
constexpr DataVersion kCurrentVersion = {1, 1};

// Throws std::runtime_error if the database is not one of this application's.
DataVersion readVersion(Database &database);

// Creates the tables of version 1.0 in an empty database, for migrate() to update.
void createOldestSchema(Database &database);

// Migrates database and attachments to the current version; does nothing if they have it. A crash
// leaves the old version or the new one, and possibly unused files.
void migrate(Database &database, const std::filesystem::path &attachments);

// A file that the database refers to, by its name in the attachments' directory.
struct AttachmentFile {
  std::string name;
  std::int64_t size = 0;
};

// Returns each file once, sorted by name, of these notebooks, or of all if none is given.
std::vector<AttachmentFile> attachmentFiles(Database &database,
                                            const std::vector<std::string> &notebooks = {});

// Returns the line that reports a fault of the full-text index.
std::string indexFault(const std::string &fault);

// Returns the faults of the database, one line each; empty if it is sound.
std::vector<std::string> databaseFaults(Database &database);

// Checks one attachment of a database of this version, including its content. Returns the fault, or an
// empty string.
std::string attachmentFault(const AttachmentFile &file, const std::filesystem::path &attachments,
                            DataVersion version);

}  // namespace notes

#endif  // NOTES_APP_SCHEMA_H_
