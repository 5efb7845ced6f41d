#include "plugin/session.h"

#include <json/value.h>
#include <zarn/arvlapp/download_info.h>
#include <zarn/arvlapp/selected_source_info.h>
#include <zarn/arvlapp/upload_info.h>

#include "plugin/failure.h"

using ZARN::ARVLAPP::DownloadInfo;
using ZARN::ARVLAPP::FileInfo;
using ZARN::ARVLAPP::SelectedSourceInfo;
using ZARN::ARVLAPP::UploadInfo;

namespace notes {
namespace {

bool attachmentsWanted(const Json::Value &config) {
  if (!config.isObject() || !config.isMember("attachments")) {
    return true;
  }
  if (!config["attachments"].isBool()) {
    throw Failure("config_invalid", "export_config: attachments is neither true nor false");
  }
  return config["attachments"].asBool();
}

// Returns the notebook that a selected directory names: "private" for "/private".
std::string notebookOf(const std::string &folder) {
  const std::size_t start = folder.find_first_not_of('/');
  return start != std::string::npos ? folder.substr(start) : "";
}

FileInfo regularFile(const std::string &path) {
  FileInfo file;
  file.setPath(path);
  file.setRegType();
  return file;
}

}  // namespace

const Texts &Session::texts() {
  if (texts_ == nullptr) {
    std::string language;
    if (hasQueries()) {
      agent_.getLanguage(language);  // without an answer it stays empty
    }
    texts_ = &textsIn(language);
  }
  return *texts_;
}

ExportScope Session::exportScope() {
  ExportScope scope;
  if (!hasQueries()) {
    return scope;
  }
  Json::Value config;
  requireAnswer(agent_.getExportConfig(config), "framework_failed", "the export's configuration");
  scope.attachments = attachmentsWanted(config);

  SelectedSourceInfo selected;
  requireAnswer(agent_.getSelectedSource(selected), "framework_failed", "the selected folders");
  for (const std::string &folder : selected.getSelectedFolders()) {
    scope.notebooks.push_back(notebookOf(folder));
  }
  return scope;
}

DataVersion Session::importedVersion() {
  DataVersion version;
  requireAnswer(agent_.getAppDataVersion(version.major, version.minor), "framework_failed",
                "the version of the exported data");
  if (version < kOldestVersion || kCurrentVersion < version) {
    throw Failure("version_unsupported", "the backup holds data version " + version.text() +
                                             ", this release knows " + kOldestVersion.text() +
                                             " to " + kCurrentVersion.text());
  }
  return version;
}

void Session::requireNotCanceled() {
  Json::Value result;
  requireAnswer(agent_.getExportResult(result), "framework_failed", "the export's result");
}

void Session::showProgress(const char *stage, int percentage) {
  if (hasQueries()) {
    agent_.setProgress(stage, percentage);
  }
  if (isCanceled()) {
    throw Failure("canceled", "canceled");
  }
}

void Session::createDir(const std::string &remote) {
  requireAnswer(agent_.createDir(remote), "upload_failed", remote);
}

void Session::upload(const std::filesystem::path &file, const std::string &remote, Source source,
                     int percentage) {
  FileInfo local = regularFile(file);
  local.setTemp(source == Source::kTemporary);
  UploadInfo info;
  info.setSource(local);
  info.setDestinationPath(remote);
  info.setPercentage(percentage);
  requireAnswer(agent_.upload(info), "upload_failed", file);
}

void Session::download(const std::string &remote, const std::filesystem::path &file,
                       int percentage) {
  DownloadInfo info;
  info.setSource(regularFile(remote));
  info.setDestinationPath(file);
  info.setPercentage(percentage);
  requireAnswer(agent_.download(info), "download_failed", remote);
}

std::list<FileInfo> Session::filesIn(const std::string &remote) {
  std::list<FileInfo> entries;
  requireAnswer(agent_.listDir(remote, entries), "download_failed", "the listing of " + remote);
  entries.remove_if([](const FileInfo &entry) { return !entry.isRegType(); });
  return entries;
}

void Session::requireAnswer(bool answered, const char *key, const std::string &what) {
  if (answered) {
    return;
  }
  if (isCanceled()) {
    throw Failure("canceled", "canceled at " + what);
  }
  throw Failure(key, what + ": " + agent_.getErrorString());
}

}  // namespace notes
