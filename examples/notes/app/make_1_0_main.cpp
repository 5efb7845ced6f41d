// Writes a directory of notes in the format of release 1.0, to test the migration.
// usage: notes-make-1.0 DIR NOTES ATTACHMENTS

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>

#include "app/arguments.h"
#include "app/data_dir.h"
#include "app/sample.h"
#include "app/schema.h"

namespace fs = std::filesystem;

namespace notes {
namespace {

constexpr std::int64_t kFirstCreated = 1'600'000'000;  // September 2020

void addNote(Database &database, std::int64_t number) {
  Statement(database, "INSERT INTO notebooks (name) VALUES (?) ON CONFLICT DO NOTHING")
      .bind(sampleNotebook(number))
      .run();
  Statement(database,
            "INSERT INTO notes (id, notebook_id, title, body, created_at) "
            "SELECT ?, id, ?, ?, ? FROM notebooks WHERE name = ?")
      .bind(number, sampleTitle(number), sampleBody(number), kFirstCreated + number,
            sampleNotebook(number))
      .run();
}

void addAttachment(Database &database, const fs::path &folder, std::int64_t number,
                   std::int64_t note) {
  const std::string content = sampleAttachment(number);
  std::ofstream file(folder / std::to_string(number), std::ios::binary);
  if (!(file << content).flush()) {
    throw std::runtime_error("writing an attachment failed");
  }
  Statement(database, "INSERT INTO attachments (note_id, name, size, file) VALUES (?, ?, ?, ?)")
      .bind(note, "sample-" + std::to_string(number) + ".bin",
            static_cast<std::int64_t>(content.size()), std::to_string(number))
      .run();
}

void make(const DataDir &dir, std::int64_t notes, std::int64_t attachments) {
  fs::create_directories(dir.attachments());
  Database database(dir.database(), Database::Mode::kCreate);
  database.execute("PRAGMA journal_mode = WAL");
  Transaction writing(database, Transaction::Kind::kWrite);
  createOldestSchema(database);
  for (std::int64_t i = 1; i <= notes; ++i) {
    addNote(database, i);
  }
  for (std::int64_t i = 1; i <= attachments; ++i) {
    addAttachment(database, dir.attachments(), i, (i - 1) % notes + 1);
  }
  writing.commit();
}

}  // namespace
}  // namespace notes

int main(int argc, char **argv) {
  try {
    const notes::Arguments arguments(argc, argv);
    if (arguments.words().size() != 3) {
      throw notes::UsageError("usage: notes-make-1.0 DIR NOTES ATTACHMENTS");
    }
    notes::make(notes::DataDir(arguments.words()[0]),
                notes::Arguments::parseNumber(arguments.words()[1]),
                notes::Arguments::parseNumber(arguments.words()[2]));
    return EXIT_SUCCESS;
  } catch (const std::exception &error) {
    std::cerr << "notes-make-1.0: " << error.what() << '\n';
    return EXIT_FAILURE;
  }
}
