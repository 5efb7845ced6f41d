#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "backup/catalog.h"
#include "backup/manifest_reader.h"
#include "backup/report.h"
#include "cli/each_application.h"
#include "cli/exit_code_text.h"
#include "cli/output_options.h"
#include "cli/store_options.h"
#include "cli/subcommands.h"
#include "display/cells.h"
#include "step/exit_code.h"
#include "text/utf8.h"

namespace arvl_host {

namespace {

// Returns the rows as lines with aligned columns, unprintable characters escaped.
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

// A listed backup, as a row of the table and as JSON.
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
      forEachApplication(catalog, options.name, display, [&](const std::string &application) {
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

}  // namespace

std::function<int()> addListCommand(CLI::App &app) {
  CLI::App *command = app.add_subcommand("list", "List the backups of a store");
  command->footer(exitCodeHelp({kExitSuccess, kExitHostError}));
  auto options = std::make_shared<StoreCommandOptions>();
  addStoreOptions(*command, *options);
  return [options] { return list(*options); };
}

}  // namespace arvl_host
