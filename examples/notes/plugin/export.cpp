// The steps of a backup. The application continues to write during them.

#include <zarn/arvlapp/storage_usage.h>
#include <zarn/arvlapp/summary_info.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "app/schema.h"
#include "plugin/failure.h"
#include "plugin/meter.h"
#include "plugin/steps.h"

namespace fs = std::filesystem;

namespace notes {
namespace {

constexpr int kSnapshotPercentage = 10;  // reached when the database has been copied

DirLock shareExisting(const DataDir &dir) {
  if (!fs::exists(dir.database())) {
    throw Failure("database_missing", dir.database().string() + " does not exist");
  }
  return orFail<DirInUse>("application_busy", [&] { return dir.share(); });
}

DataVersion exportableVersion(Database &database) {
  const DataVersion version = orFail("database_damaged", [&] { return readVersion(database); });
  if (version < kOldestVersion || kCurrentVersion < version) {
    throw Failure("database_newer", "the database holds data version " + version.text() +
                                        ", this plug-in knows up to " + kCurrentVersion.text());
  }
  return version;
}

void requireNotebooks(Database &database, const ExportScope &scope) {
  Statement query(database, "SELECT 1 FROM notebooks WHERE name = ?");
  for (const std::string &notebook : scope.notebooks) {
    if (!query.bind(notebook).step()) {
      throw Failure("notebook_unknown", "there is no notebook [" + notebook + "]");
    }
  }
}

void requireSound(Database &database) {
  const std::vector<std::string> faults = databaseFaults(database);
  if (!faults.empty()) {
    throw Failure("database_damaged", "the database is damaged: " + faults.front());
  }
}

// Checks only the size, to be quick. The content is checked before the upload.
void requireAttachment(const AttachmentFile &file, const fs::path &folder) {
  std::error_code error;
  const auto size = fs::file_size(folder / file.name, error);
  if (error || static_cast<std::int64_t>(size) != file.size) {
    throw Failure("attachment_damaged",
                  (folder / file.name).string() +
                      (error ? ": " + error.message() : " has not the recorded size"));
  }
}

// Notes and attachments are deleted with their notebook.
void deleteOtherNotebooks(Database &database, const std::vector<std::string> &kept) {
  std::vector<std::string> others;
  Statement names(database, "SELECT name FROM notebooks");
  while (names.step()) {
    if (std::find(kept.begin(), kept.end(), names.text(0)) == kept.end()) {
      others.push_back(names.text(0));
    }
  }
  Statement remove(database, "DELETE FROM notebooks WHERE name = ?");
  for (const std::string &name : others) {
    remove.bind(name).run();
  }
}

// Removes everything outside the scope from a copy of the database, also from the index, which
// keeps deleted words for a while, and from free pages.
void reduceTo(const ExportScope &scope, Database &copy) {
  if (scope.attachments && scope.notebooks.empty()) {
    return;
  }
  if (!scope.notebooks.empty()) {
    requireNotebooks(copy, scope);
    deleteOtherNotebooks(copy, scope.notebooks);
  }
  if (!scope.attachments) {
    copy.execute("DELETE FROM attachments");
  }
  copy.execute("INSERT INTO notes_index (notes_index) VALUES ('rebuild')");
  copy.execute("VACUUM");
}

struct Snapshot {
  DataVersion version;
  std::vector<AttachmentFile> attachments;
};

// Writes one file: the database as of one moment, reduced to the scope.
Snapshot takeSnapshot(Session &session, const DataDir &dir, const ExportScope &scope,
                      const fs::path &file) {
  Database live(dir.database());
  Snapshot snapshot;
  snapshot.version = exportableVersion(live);
  // Not at the end: the framework also complains about a failed export without a version.
  session.agent().setAppDataVersion(snapshot.version.major, snapshot.version.minor);
  int shown = -1;
  live.copyTo(file, [&](int done, int total) {
    const auto percentage = static_cast<int>(std::int64_t{kSnapshotPercentage} * done / total);
    if (percentage != shown) {
      session.showProgress(session.texts().copyingDatabase, percentage);
      shown = percentage;
    }
  });

  Database copy(file);
  copy.execute("PRAGMA journal_mode = DELETE");  // one file: no log next to it
  reduceTo(scope, copy);
  snapshot.attachments = attachmentFiles(copy);
  return snapshot;
}

void uploadAll(Session &session, const DataDir &dir, const fs::path &database,
               const Snapshot &snapshot) {
  Meter meter(kSnapshotPercentage, 100);
  const auto databaseSize = static_cast<std::int64_t>(fs::file_size(database));
  meter.expect(databaseSize);
  for (const AttachmentFile &file : snapshot.attachments) {
    meter.expect(file.size);
  }

  session.showProgress(session.texts().uploading, kSnapshotPercentage);
  session.createDir(kRemoteDir);
  if (!snapshot.attachments.empty()) {
    session.createDir(kRemoteAttachments);
  }
  session.upload(database, kRemoteDatabase, Session::Source::kTemporary, meter.add(databaseSize));
  for (const AttachmentFile &file : snapshot.attachments) {
    const std::string fault = attachmentFault(file, dir.attachments(), snapshot.version);
    if (!fault.empty()) {
      throw Failure("attachment_damaged", fault);
    }
    session.upload(dir.attachments() / file.name, kRemoteAttachments + ("/" + file.name),
                   Session::Source::kStays, meter.add(file.size));
  }
}

}  // namespace

void summarize(Session &session) {
  const Texts &texts = session.texts();
  ZARN::ARVLAPP::SummaryInfo info;
  info.setSummaryInfo(texts.backupShort, texts.backupLong, texts.restoreShort, texts.restoreLong);
  session.agent().setSummaryInfo(info);
}

// Uses the live files, because the snapshot does not exist yet. It counts the whole database, also
// the parts that are not selected.
void estimateExportion(Session &session, const DataDir &dir) {
  const ExportScope scope = session.exportScope();
  const DirLock lock = shareExisting(dir);
  Database database(dir.database());
  exportableVersion(database);
  requireNotebooks(database, scope);

  ZARN::ARVLAPP::StorageUsage usage;
  bool counted = usage.addOne(dir.database());
  if (scope.attachments) {
    for (const AttachmentFile &file : attachmentFiles(database, scope.notebooks)) {
      counted = counted && usage.addOne(dir.attachments() / file.name);
    }
  }
  if (!counted) {
    throw Failure("attachment_missing", "a file of the notes cannot be examined");
  }
  session.agent().setStorageUsage(usage);
}

void canExport(Session &session, const DataDir &dir) {
  const ExportScope scope = session.exportScope();
  const DirLock lock = shareExisting(dir);
  Database database = orFail("database_damaged", [&] { return Database(dir.database()); });
  exportableVersion(database);
  requireSound(database);
  requireNotebooks(database, scope);
  if (scope.attachments) {
    for (const AttachmentFile &file : attachmentFiles(database, scope.notebooks)) {
      requireAttachment(file, dir.attachments());
    }
  }
}

void exportData(Session &session, const DataDir &dir) {
  const ExportScope scope = session.exportScope();
  const DirLock lock = shareExisting(dir);
  const ScratchDir scratch =
      orFail<DirInUse>("export_running", [&] { return ScratchDir(dir.exportScratch()); });
  const fs::path database = scratch.path() / "notes.db";
  const Snapshot snapshot =
      orFail("snapshot_failed", [&] { return takeSnapshot(session, dir, scope, database); });
  uploadAll(session, dir, database, snapshot);
}

}  // namespace notes
