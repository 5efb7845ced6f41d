#include "cli/store_commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "backup/catalog.h"
#include "backup/manifest_reader.h"
#include "backup/new_backup.h"
#include "backup/report.h"
#include "backup/verify.h"
#include "cli/output_options.h"
#include "cli/plugin_options.h"
#include "display/cells.h"
#include "step/exit_code.h"
#include "step/interruption.h"
#include "text/durations.h"
#include "text/sizes.h"
#include "text/utf8.h"

namespace arvl_host {

namespace {

using std::chrono::steady_clock;

struct StoreCommandOptions {
  std::string store;
  std::string name;
  std::string backup;
  OutputOptions output;
};

std::vector<std::string> applications(const Catalog &catalog, const StoreCommandOptions &options) {
  if (options.name.empty()) {
    return catalog.applications();
  }
  const std::vector<std::string> known = catalog.applications();
  if (std::find(known.begin(), known.end(), options.name) == known.end()) {
    catalog.find(options.name, "");  // says which there are
  }
  return {options.name};
}

// One that cannot be read does not keep the others from their turn. The first error; empty if there was none.
template <typename Use>
std::string forEachApplication(const Catalog &catalog, const StoreCommandOptions &options,
                               JobDisplay &display, Use use) {
  std::string first;
  for (const std::string &application : applications(catalog, options)) {
    try {
      use(application);
    } catch (const NoSuchBackup &) {
      throw;  // the one that was asked for
    } catch (const StoreError &error) {
      display.error(error.what());
      first = first.empty() ? error.what() : first;
    }
  }
  return first;
}

// ---- list

// Made visible, and padded to columns.
std::vector<std::string> table(std::vector<std::vector<std::string>> rows) {
  std::vector<unsigned> widths(rows[0].size());
  for (std::vector<std::string> &row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      row[i] = visibleText(row[i]);
      widths[i] = std::max(widths[i], cellsOf(row[i]));
    }
  }
  std::vector<std::string> lines;
  for (const std::vector<std::string> &row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      const bool isLast = i + 1 == row.size();
      line += row[i] + (isLast ? "" : std::string(widths[i] - cellsOf(row[i]) + 2, ' '));
    }
    lines.push_back(line);
  }
  return lines;
}

// One row of the list, and the same in JSON.
class Listed {
 public:
  Listed(const Catalog &catalog, const std::string &application, const std::string &id) {
    json_["application"] = application;
    json_["backup"] = id;
    json_["path"] = (catalog.folderOf(application) / id).string();
    row_ = {application, id};
    try {
      describe(ManifestReader(catalog.folderOf(application) / id).manifest());
    } catch (const StoreError &error) {
      json_["error"] = error.what();
      row_.insert(row_.end(), {"-", error.what()});
    }
  }

  const Json::Value &json() const { return json_; }
  const std::vector<std::string> &row() const { return row_; }

 private:
  void describe(const Manifest &manifest) {
    json_["error"] = Json::Value();
    json_["started"] = manifest.started;
    json_["finished"] = manifest.finished;
    json_["app_data_version"] = manifest.dataVersion();
    json_["actual"] = totalsJson(manifest.totals);
    row_.insert(row_.end(), {manifest.dataVersion(), totalsText(manifest.totals)});
  }

  Json::Value json_{Json::objectValue};
  std::vector<std::string> row_;
};

int list(const StoreCommandOptions &options) {
  const Catalog catalog(options.store);
  OutputDisplay display(options.output);
  Json::Value backups(Json::arrayValue);
  Json::Value unfinished(Json::arrayValue);
  std::vector<std::vector<std::string>> rows = {{"APPLICATION", "BACKUP", "DATA", "CONTENT"}};
  const std::string error =
      forEachApplication(catalog, options, display, [&](const std::string &application) {
        for (const std::string &id : catalog.backups(application)) {
          const Listed listed(catalog, application, id);
          backups.append(listed.json());
          rows.push_back(listed.row());
        }
        for (const std::string &name : catalog.unfinished(application)) {
          unfinished.append((catalog.folderOf(application) / name).string());
        }
      });
  std::vector<std::string> lines =
      rows.size() > 1 ? table(rows) : std::vector<std::string>{"no backups"};
  if (!unfinished.empty()) {
    lines.push_back("and " + std::to_string(unfinished.size()) +
                    " that did not finish, or that run now; prune removes what did not finish");
  }
  Json::Value report = errorJson("list", error.empty() ? kExitSuccess : kExitHostError, error);
  report["backups"] = backups;
  report["unfinished"] = unfinished;
  writeReport(options.output, report, lines);
  return error.empty() ? kExitSuccess : kExitHostError;
}

// ---- verify

constexpr Json::ArrayIndex kMaxProblems = 1000;  // of a backup, that a report holds

class VerifyCommand {
 public:
  explicit VerifyCommand(const StoreCommandOptions &options)
      : options_(options), catalog_(options.store), display_(options.output) {}

  int run();

 private:
  void verifyApplication(const std::string &application);
  void verify(const std::string &application, const std::string &id);
  void fail(const std::string &error);
  Json::Value examine(const std::string &application, const std::string &id);

  const StoreCommandOptions &options_;
  const Catalog catalog_;
  OutputDisplay display_;
  const Interruption interruption_;
  Json::Value report_{Json::arrayValue};
  std::uint64_t problems_ = 0;
  std::string error_;  // the first, of what could not be examined
};

int VerifyCommand::run() {
  int exitCode = kExitSuccess;
  try {
    const std::string error = forEachApplication(
        catalog_, options_, display_,
        [this](const std::string &application) { verifyApplication(application); });
    error_ = error_.empty() ? error : error_;
    exitCode = !error_.empty() ? kExitHostError : problems_ > 0 ? kExitFailure : kExitSuccess;
    if (exitCode == kExitFailure) {
      error_ = "found " + countText(problems_, "problem");
    } else if (exitCode == kExitSuccess && report_.empty()) {
      throw NoSuchBackup("the store " + quoted(options_.store) + " has no finished backup" +
                         (options_.name.empty() ? "" : " of " + visibleText(options_.name)));
    }
  } catch (const NoSuchBackup &none) {
    exitCode = kExitFailure;
    fail(std::string(none.what()) + ": nothing was verified");
  } catch (const Interrupted &interrupted) {
    exitCode = kExitInterrupted;
    fail(interrupted.what());
  } catch (const StoreError &error) {
    exitCode = kExitHostError;
    fail(error.what());
  }
  display_.workEnds();
  Json::Value json = errorJson("verify", exitCode, error_);
  json["backups"] = report_;
  writeReport(options_.output, json, {});
  return exitCode;
}

void VerifyCommand::verifyApplication(const std::string &application) {
  if (!options_.backup.empty()) {
    verify(application, catalog_.find(application, options_.backup));
    return;
  }
  for (const std::string &id : catalog_.backups(application)) {
    verify(application, id);
  }
}

void VerifyCommand::fail(const std::string &error) {
  error_ = error_.empty() ? error : error_;
  display_.error(error);
}

// One that cannot be examined does not keep the others from it.
void VerifyCommand::verify(const std::string &application, const std::string &id) {
  interruption_.check();
  try {
    report_.append(examine(application, id));
  } catch (const StoreError &error) {
    fail(error.what());
  }
}

Json::Value VerifyCommand::examine(const std::string &application, const std::string &id) {
  const std::string name = application + " " + id;
  Json::Value problems(Json::arrayValue);
  const auto onProblem = [&](const std::string &path, const std::string &problem) {
    display_.error(name + ": " + path + ": " + problem);
    if (problems.size() < kMaxProblems) {
      Json::Value entry(Json::objectValue);
      entry["path"] = path;
      entry["problem"] = problem;
      problems.append(entry);
    }
  };
  const auto onProgress = [this](const StepProgress &progress) {
    interruption_.check();
    display_.working(progress);
  };
  const Verification result =
      verifyBackup(catalog_.folderOf(application) / id, onProblem, onProgress);
  if (result.problems == 0) {
    display_.note(name + ": sound, " + totalsText(result.totals));
  }
  problems_ += result.problems;
  Json::Value json(Json::objectValue);
  json["application"] = application;
  json["backup"] = id;
  json["actual"] = totalsJson(result.totals);
  json["problem_count"] = Json::UInt64(result.problems);
  json["problems"] = problems;
  return json;
}

// ---- prune

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
      forEachApplication(catalog, options, display, [&](const std::string &application) {
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

std::shared_ptr<StoreCommandOptions> addStoreOptions(CLI::App &command) {
  auto options = std::make_shared<StoreCommandOptions>();
  command.add_option("--store", options->store, "The folder that keeps the backups")
      ->required()
      ->check(existingDirectory())
      ->type_name("DIR");
  command.add_option("--name", options->name, "Only the backups of this application")
      ->check(CLI::Validator(checkApplicationName, ""))
      ->type_name("NAME");
  addOutputOptions(command, options->output);
  return options;
}

}  // namespace

std::function<int()> addListCommand(CLI::App &app) {
  CLI::App *command = app.add_subcommand("list", "List the backups of a store");
  command->footer("Exit codes: 0, or 2 for wrong usage and for a store that cannot be read.\n");
  const auto options = addStoreOptions(*command);
  return [options] { return list(*options); };
}

std::function<int()> addVerifyCommand(CLI::App &app) {
  CLI::App *command = app.add_subcommand(
      "verify", "Compare backups with their checksums, and find missing and extra files");
  command->footer(
      "Exit codes:\n"
      "  0    every backup is sound\n"
      "  1    one is not, and each problem is named; or there is none to verify\n"
      "  2    wrong usage, or a backup that could not be examined\n"
      "  130  interrupted\n");
  const auto options = addStoreOptions(*command);
  command->add_option("--backup", options->backup, "Only this backup")
      ->check(notEmpty())
      ->type_name("ID")
      ->needs("--name");
  return [options] { return VerifyCommand(*options).run(); };
}

std::function<int()> addPruneCommand(CLI::App &app) {
  CLI::App *command = app.add_subcommand("prune", "Remove what backups left that did not finish");
  command->footer(
      "Exit codes: 0, or 2 for wrong usage and for what cannot be removed. Backups\n"
      "that run now are left alone.\n");
  const auto options = addStoreOptions(*command);
  return [options] { return prune(*options); };
}

}  // namespace arvl_host
