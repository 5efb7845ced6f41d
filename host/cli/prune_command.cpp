#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "backup/catalog.h"
#include "backup/new_backup.h"
#include "backup/report.h"
#include "cli/each_application.h"
#include "cli/exit_code_text.h"
#include "cli/output_options.h"
#include "cli/store_options.h"
#include "cli/subcommands.h"
#include "step/exit_code.h"

namespace arvl_host {

namespace {

int prune(const StoreCommandOptions &options) {
  const Catalog catalog(options.store);
  OutputDisplay display(options.output);
  Json::Value removed(Json::arrayValue);
  Json::Value busy(Json::arrayValue);
  std::vector<std::string> lines;
  std::string firstError;
  const auto clear = [&](const std::string &application) {
    const Removal result = removeUnfinished(catalog, application);
    for (const std::string &name : result.removed) {
      const std::string path = catalog.folderOf(application) / name;
      removed.append(path);
      lines.push_back("removed " + path);
    }
    for (const std::string &error : result.errors) {
      display.error(error);
      firstError = firstError.empty() ? error : firstError;
    }
  };
  const std::string other =
      forEachApplication(catalog, options.name, display, [&](const std::string &application) {
        try {
          clear(application);
        } catch (const StoreBusy &holder) {
          busy.append(holder.what());
          display.warning(holder.what());
        }
      });
  const std::string error = firstError.empty() ? other : firstError;
  Json::Value report = errorJson("prune", error.empty() ? kExitSuccess : kExitHostError, error);
  report["removed"] = removed;
  report["busy"] = busy;
  writeReport(options.output, report, lines);
  return error.empty() ? kExitSuccess : kExitHostError;
}

}  // namespace

std::function<int()> addPruneCommand(CLI::App &app) {
  CLI::App *command = app.add_subcommand("prune", "Remove unfinished backups");
  command->footer(exitCodeHelp({kExitSuccess, kExitHostError}) +
                  "Backups that run now are left alone.\n");
  auto options = std::make_shared<StoreCommandOptions>();
  addStoreOptions(*command, *options);
  return [options] { return prune(*options); };
}

}  // namespace arvl_host
