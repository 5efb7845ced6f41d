// The smallest useful plug-in: one program that the framework runs under six names, one per step of a
// job. MINIMAL_DIRS names the directories to back up, absolute and separated by colons; MINIMAL_TARGET
// is the directory to restore into.

#include <json/value.h>
#include <zarn/arvlapp/agent.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

using namespace ZARN::ARVLAPP;

namespace {

const std::string kStore = "/documents";  // where the framework keeps the data

std::string environment(const char *name) {
  const char *value = std::getenv(name);
  return value != nullptr ? value : "";
}

std::vector<std::string> directories() {
  std::istringstream list(environment("MINIMAL_DIRS"));
  std::vector<std::string> dirs;
  for (std::string dir; std::getline(list, dir, ':');) {
    dirs.push_back(dir);
  }
  return dirs;
}

// Records why the step fails, for the user to read.
bool fail(Agent &agent, const char *key) {
  agent.setErrorMsg("minimal", key);
  return false;
}

bool summarize(Agent &agent) {
  std::string language;
  const bool german = agent.getLanguage(language) && language == "ger";
  SummaryInfo info;
  if (german) {
    info.setSummaryInfo("Dokumente", "Alle Dokumente mit ihren Ordnern.", "Dokumente",
                        "Die Dokumente kommen zurück; neuere werden ersetzt.");
  } else {
    info.setSummaryInfo("Documents", "All documents, with their folders.", "Documents",
                        "The documents come back; newer ones are replaced.");
  }
  agent.setSummaryInfo(info);
  return true;
}

bool estimate(Agent &agent) {
  StorageUsage usage;
  for (const std::string &dir : directories()) {
    if (!usage.addDirRecursive(dir)) {
      return fail(agent, "directory_unreadable");
    }
  }
  agent.setStorageUsage(usage);
  return true;
}

bool canExport(Agent &agent) {
  SelectedSourceInfo selected;
  Json::Value config;
  if (!agent.getSelectedSource(selected) || !agent.getExportConfig(config)) {
    return fail(agent, "framework_too_old");
  }
  return config.get("enabled", true).asBool() || fail(agent, "export_disabled");
}

bool exportData(Agent &agent) {
  if (!agent.createDir(kStore)) {
    return fail(agent, "store_unavailable");
  }
  for (const std::string &dir : directories()) {
    FileInfo source;
    source.setPath(dir);
    source.setDirType();
    UploadInfo upload;
    upload.setSource(source);
    upload.setDestinationPath(kStore / std::filesystem::path(dir).filename());
    if (!agent.upload(upload)) {
      return fail(agent, "upload_failed");
    }
  }
  agent.setProgress("Exporting documents", 100);
  agent.setAppDataVersion(1, 0);  // the format of the data, for a later import
  return true;
}

bool canImport(Agent &agent) {
  int major = 0;
  int minor = 0;
  Json::Value result;
  if (!agent.getAppDataVersion(major, minor) || !agent.getExportResult(result)) {
    return fail(agent, "no_export");
  }
  return major == 1 || fail(agent, "version_unknown");
}

bool importData(Agent &agent) {
  std::list<ExternalDataInfo> handled;
  std::list<FileInfo> entries;
  if (!agent.getExternalHandleResult(handled) || !agent.listDir(kStore, entries)) {
    return fail(agent, "store_unavailable");
  }
  for (const FileInfo &entry : entries) {
    DownloadInfo download;
    download.setSource(entry);
    download.setDestinationPath(environment("MINIMAL_TARGET"));
    if (!agent.download(download)) {
      return fail(agent, "download_failed");
    }
  }
  return true;
}

bool run(const std::string &step, Agent &agent) {
  if (step == Agent::PLUGIN_NAME_SUMMARY) return summarize(agent);
  if (step == Agent::PLUGIN_NAME_ESTIMATE_EXPORTION) return estimate(agent);
  if (step == Agent::PLUGIN_NAME_CAN_EXPORT) return canExport(agent);
  if (step == Agent::PLUGIN_NAME_EXPORT) return exportData(agent);
  if (step == Agent::PLUGIN_NAME_CAN_IMPORT) return canImport(agent);
  return importData(agent);
}

}  // namespace

int main(int argc, char **argv) {
  Agent agent;  // reports the outcome when it goes out of scope
  if (!agent.init(argc, argv)) {
    return EXIT_FAILURE;
  }
  if (run(std::filesystem::path(argv[0]).filename(), agent)) {
    agent.setSuccess();
  }
  return EXIT_SUCCESS;
}
