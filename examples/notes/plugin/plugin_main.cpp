// The plug-in of notes: one program that the framework runs under six names, one per step of a job.
// NOTES_DIR names the directory that holds the notes.

#include <syslog.h>
#include <zarn/arvlapp/agent.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "plugin/failure.h"
#include "plugin/steps.h"

using ZARN::ARVLAPP::Agent;

namespace notes {
namespace {

constexpr const char *kSection = "notes";  // of the messages that the framework shows

DataDir dataDir() {
  const char *path = std::getenv("NOTES_DIR");
  if (path == nullptr || *path == '\0') {
    throw Failure("directory_unset", "NOTES_DIR does not say where the notes are");
  }
  DataDir dir{std::filesystem::path(path)};
  dir.recover();
  return dir;
}

void runStep(const std::string &step, Session &session) {
  if (step == Agent::PLUGIN_NAME_SUMMARY) return summarize(session);
  if (step == Agent::PLUGIN_NAME_ESTIMATE_EXPORTION) return estimateExportion(session, dataDir());
  if (step == Agent::PLUGIN_NAME_CAN_EXPORT) return canExport(session, dataDir());
  if (step == Agent::PLUGIN_NAME_EXPORT) return exportData(session, dataDir());
  if (step == Agent::PLUGIN_NAME_CAN_IMPORT) return canImport(session, dataDir());
  return importData(session, dataDir());
}

}  // namespace
}  // namespace notes

int main(int argc, char **argv) {
  openlog("notes", LOG_PERROR, LOG_USER);  // also to standard error, for a run by hand
  Agent agent;                             // reports the outcome when it goes out of scope
  if (!agent.init(argc, argv)) {
    return EXIT_FAILURE;
  }
  notes::Session session(agent);
  try {
    const auto outcome = [&] {
      notes::runStep(std::filesystem::path(argv[0]).filename(), session);
    };
    notes::orFail("step_failed", outcome);
    agent.setSuccess();
  } catch (const notes::Failure &failure) {
    syslog(LOG_ERR, "%s", failure.what());
    agent.setErrorMsg(notes::kSection, failure.key());
  }
  return EXIT_SUCCESS;
}
