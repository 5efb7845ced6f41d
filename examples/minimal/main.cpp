// The smallest useful plug-in: one program that the framework runs under six names, one per step of
// a job. MINIMAL_DIRS names the directories to back up, absolute and separated by colons.

#include <zarn/arvlapp/agent.h>
#include <zarn/arvlapp/storage_usage.h>
#include <zarn/arvlapp/summary_info.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>

using ZARN::ARVLAPP::Agent;

namespace {

bool summarize(Agent &agent) {
  ZARN::ARVLAPP::SummaryInfo info;
  info.setSummaryInfo("Documents", "All documents, with their folders.",  // of a backup
                      "Documents",
                      "Documents come back; newer ones are replaced.");  // of a restore
  agent.setSummaryInfo(info);
  return true;
}

bool estimate(Agent &agent) {
  const char *dirs = std::getenv("MINIMAL_DIRS");
  std::istringstream list(dirs != nullptr ? dirs : "");
  ZARN::ARVLAPP::StorageUsage usage;
  for (std::string dir; std::getline(list, dir, ':');) {
    if (!usage.addDirRecursive(dir)) {
      agent.setErrorMsg("estimate", "directory_unreadable");
      return false;
    }
  }
  agent.setStorageUsage(usage);
  return true;
}

bool exportData(Agent &agent) {
  agent.setAppDataVersion(1, 0);  // the format of the data, for the import to come
  return true;
}

bool run(const std::string &step, Agent &agent) {
  if (step == Agent::PLUGIN_NAME_SUMMARY) return summarize(agent);
  if (step == Agent::PLUGIN_NAME_ESTIMATE_EXPORTION) return estimate(agent);
  if (step == Agent::PLUGIN_NAME_EXPORT) return exportData(agent);
  return true;  // can_export, can_import, import: nothing to say but success
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
