// The steps of a restore. Everything is fetched, checked and migrated in a directory next to the live
// one, which then takes its place at once. The live data is not touched before.

#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "app/schema.h"
#include "plugin/failure.h"
#include "plugin/meter.h"
#include "plugin/steps.h"

namespace fs = std::filesystem;

namespace notes {
namespace {

constexpr int kDatabasePercentage = 10;  // reached with the database
constexpr int kDownloadPercentage = 90;  // reached with the last attachment

using Listing = std::map<std::string, long>;  // size by name

Listing listRemote(Session &session, const char *remote) {
  Listing listing;
  for (const ZARN::ARVLAPP::FileInfo &file : session.filesIn(remote)) {
    listing[fs::path(file.getPath()).filename()] = file.getSizeByte();
  }
  return listing;
}

void requireReplaceable(const DataDir &dir) {
  orFail<ForeignFiles>("directory_foreign", [&] { dir.requireOwnFilesOnly(); });
  const fs::path parent = dir.path().parent_path();
  if (::access(parent.c_str(), W_OK | X_OK) != 0) {
    throw Failure("directory_unwritable", parent.string() + " cannot be written to");
  }
}

void requireSound(Database &database, DataVersion version) {
  const std::vector<std::string> faults = databaseFaults(database);
  if (!faults.empty()) {
    throw Failure("data_damaged", "the restored database is damaged: " + faults.front());
  }
  const DataVersion found = readVersion(database);
  if (!(found == version)) {
    throw Failure("data_damaged", "the restored database holds data version " + found.text() +
                                      " instead of " + version.text());
  }
}

void downloadDatabase(Session &session, const fs::path &file) {
  if (listRemote(session, kRemoteDir).count("notes.db") == 0) {
    throw Failure("data_incomplete", "the backup holds no notes.db");
  }
  session.download(kRemoteDatabase, file, kDatabasePercentage);
}

// Throws unless all attachments are listed. Called before the first download.
void requireListed(Session &session, const std::vector<AttachmentFile> &files) {
  const Listing listing = listRemote(session, kRemoteAttachments);
  for (const AttachmentFile &file : files) {
    const auto found = listing.find(file.name);
    if (found == listing.end() || found->second != file.size) {
      throw Failure("data_incomplete",
                    "the backup holds no attachment " + file.name + " of the recorded size");
    }
  }
}

void downloadAttachments(Session &session, const std::vector<AttachmentFile> &files,
                         const fs::path &folder, DataVersion version) {
  if (files.empty()) {
    return;
  }
  requireListed(session, files);
  Meter meter(kDatabasePercentage, kDownloadPercentage);
  for (const AttachmentFile &file : files) {
    meter.expect(file.size);
  }
  for (const AttachmentFile &file : files) {
    session.download(kRemoteAttachments + ("/" + file.name), folder / file.name,
                     meter.add(file.size));
    const std::string fault = attachmentFault(file, folder, version);
    if (!fault.empty()) {
      throw Failure("data_damaged", "restored " + fault);
    }
  }
}

// Fills the directory with data of the current version, ready for use.
void fetch(Session &session, const fs::path &directory) {
  const DataVersion version = session.importedVersion();
  const fs::path attachments = DataDir::attachmentsIn(directory);
  fs::create_directory(attachments);

  session.showProgress(session.texts().downloading, 0);
  downloadDatabase(session, DataDir::databaseIn(directory));
  orFail("data_damaged", [&] {
    Database database(DataDir::databaseIn(directory));
    requireSound(database, version);
    downloadAttachments(session, attachmentFiles(database), attachments, version);
    session.showProgress(session.texts().checking, kDownloadPercentage);
    migrate(database, attachments);
    database.execute("PRAGMA journal_mode = WAL");
  });
}

}  // namespace

void canImport(Session &session, const DataDir &dir) {
  session.importedVersion();
  requireReplaceable(dir);
}

void importData(Session &session, const DataDir &dir) {
  requireReplaceable(dir);
  ScratchDir scratch =
      orFail<DirInUse>("import_running", [&] { return ScratchDir(dir.importScratch()); });
  fetch(session, scratch.path());
  session.requireNotCanceled();
  const auto replace = [&] { dir.replaceWith(scratch); };
  const auto replaceOwnFiles = [&] { orFail<ForeignFiles>("directory_foreign", replace); };
  const auto replaceWhenIdle = [&] { orFail<DirInUse>("application_busy", replaceOwnFiles); };
  orFail("replace_failed", replaceWhenIdle);
}

}  // namespace notes
