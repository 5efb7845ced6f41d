#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
#include <string>

#include "backup/catalog.h"
#include "backup/report.h"
#include "backup/verify.h"
#include "cli/each_application.h"
#include "cli/exit_code_text.h"
#include "cli/output_options.h"
#include "cli/store_options.h"
#include "cli/subcommands.h"
#include "cli/validators.h"
#include "step/exit_code.h"
#include "step/interruption.h"
#include "text/sizes.h"
#include "text/utf8.h"

namespace arvl_host {

namespace {

struct VerifyOptions {
  StoreCommandOptions common;
  std::string backup;
};

constexpr Json::ArrayIndex kMaxProblems = 1000;  // of one backup in a report

class VerifyCommand {
 public:
  explicit VerifyCommand(const VerifyOptions &options)
      : options_(options), catalog_(options.common.store), display_(options.common.output) {}

  int run();

 private:
  void verifyApplication(const std::string &application);
  void verify(const std::string &application, const std::string &id);
  void fail(const std::string &error);
  Json::Value examine(const std::string &application, const std::string &id);

  const VerifyOptions &options_;
  const Catalog catalog_;
  OutputDisplay display_;
  const Interruption interruption_;
  Json::Value report_{Json::arrayValue};
  std::uint64_t problems_ = 0;
  std::string error_;  // the first one
};

int VerifyCommand::run() {
  int exitCode = kExitSuccess;
  try {
    const std::string error = forEachApplication(
        catalog_, options_.common.name, display_,
        [this](const std::string &application) { verifyApplication(application); });
    error_ = error_.empty() ? error : error_;
    exitCode = !error_.empty() ? kExitHostError : problems_ > 0 ? kExitFailure : kExitSuccess;
    if (exitCode == kExitFailure) {
      error_ = "found " + countText(problems_, "problem");
    } else if (exitCode == kExitSuccess && report_.empty()) {
      throw NoSuchBackup(
          "the store " + quoted(options_.common.store) + " has no finished backup" +
          (options_.common.name.empty() ? "" : " of " + visibleText(options_.common.name)));
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
  writeReport(options_.common.output, json, {});
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

// Shows an error and goes on, so that the other backups are examined.
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

}  // namespace

std::function<int()> addVerifyCommand(CLI::App &app) {
  CLI::App *command =
      app.add_subcommand("verify", "Check backups for damaged, missing and extra files");
  command->footer(exitCodeHelp({kExitSuccess, kExitFailure, kExitHostError, kExitInterrupted}));
  auto options = std::make_shared<VerifyOptions>();
  addStoreOptions(*command, options->common);
  command->add_option("--backup", options->backup, "Only this backup")
      ->check(notEmpty())
      ->type_name("ID")
      ->needs("--name");
  return [options] { return VerifyCommand(*options).run(); };
}

}  // namespace arvl_host
