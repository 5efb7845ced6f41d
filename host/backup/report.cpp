#include "backup/report.h"

#include <ostream>
#include <string_view>
#include <utility>

#include "display/progress_line.h"
#include "step/outcome.h"
#include "text/durations.h"
#include "text/sizes.h"
#include "text/strict_json.h"

namespace arvl_host {

namespace {

Json::Value stepJson(const StepReport &report) {
  const StepResult &result = report.result;
  Json::Value json(Json::objectValue);
  json["step"] = report.step;
  json["outcome"] = outcomeText(result.outcome);
  json["seconds"] = result.seconds;
  json["packets"] = result.packets;
  json["completion"] = result.completion;
  json["reason"] = result.reason.empty() ? Json::Value() : Json::Value(result.reason);
  json["rule_book"] = arrayOf(result.lines);
  return json;
}

Json::Value stepsJson(const std::vector<StepReport> &reports) {
  Json::Value array(Json::arrayValue);
  for (const StepReport &report : reports) {
    array.append(stepJson(report));
  }
  return array;
}

void addManifest(Json::Value &json, const Manifest &manifest) {
  Json::Value head = headJson(manifest);
  for (const char *name :
       {"application", "backup", "framework_version", "app_data_version", "summary", "estimate",
        "estimate_refused", "actual", "changed", "changed_count", "skipped", "skipped_count"}) {
    json[name] = std::move(head[name]);
  }
}

std::string estimateText(const Manifest &manifest) {
  const Json::Value &estimate = manifest.estimate;
  if (!estimate.isObject() || !estimate["size"].isUInt64() || !estimate["file_count"].isUInt64()) {
    return "none";
  }
  return countText(estimate["file_count"].asUInt64(), "file") + ", " +
         sizeText(estimate["size"].asUInt64()) +
         (manifest.isEstimateRefused ? " (refused: beyond the protocol's 32 bits)" : "");
}

constexpr int kMaxLevels = 100;  // kept of a report that nests too deep

// Returns a copy with null in place of each array and object below so many levels.
Json::Value cutBelow(int levels, const Json::Value &value) {
  if (!value.isArray() && !value.isObject()) {
    return value;
  }
  Json::Value copy(levels > 0 ? value.type() : Json::nullValue);
  for (auto element = value.begin(); levels > 0 && element != value.end(); ++element) {
    Json::Value &place = value.isArray() ? copy.append(Json::Value()) : copy[element.name()];
    place = cutBelow(levels - 1, *element);
  }
  return copy;
}

// The plug-in decides about success, but a person should know of denied requests.
void addDenials(std::vector<std::string> &lines, const JobReport &report) {
  if (report.denials.count > 0) {
    lines.push_back("  denied    " + countText(report.denials.count, "request") +
                    " of the plug-in, as the warnings say");
  }
}

void addSkipped(std::vector<std::string> &lines, const Tally &skipped) {
  if (skipped.count > 0) {
    lines.push_back("  skipped   " + std::to_string(skipped.count) +
                    (skipped.count == 1 ? " entry" : " entries") +
                    " that vanished, as the warnings say");
  }
}

std::string secondsText(double seconds) {
  return durationText(static_cast<std::int64_t>(seconds * 1e6));
}

}  // namespace

std::string totalsText(const Totals &totals) {
  std::string text = countText(totals.files, "file");
  if (totals.folders > 0) {
    text += ", " + countText(totals.folders, "folder");
  }
  if (totals.links > 0) {
    text += ", " + countText(totals.links, "link");
  }
  return text + ", " + sizeText(totals.bytes);
}

Json::Value errorJson(const std::string &command, int exitCode, const std::string &error) {
  Json::Value json(Json::objectValue);
  json["command"] = command;
  json["success"] = exitCode == 0;
  json["exit_code"] = exitCode;
  json["error"] = error.empty() ? Json::Value() : Json::Value(error);
  return json;
}

Json::Value reportJson(const JobReport &report) {
  Json::Value json = errorJson(report.command, report.exitCode, report.error);
  json["path"] = report.folder.empty() ? Json::Value() : Json::Value(report.folder);
  json["steps"] = stepsJson(report.steps);
  json["missing_steps"] = arrayOf(report.missingSteps);
  json["denials"] = arrayOf(report.denials.texts);
  json["denial_count"] = Json::UInt64(report.denials.count);
  json["files"] = Json::UInt64(report.files);
  json["bytes"] = Json::UInt64(report.bytes);
  json["seconds"] = report.seconds;
  if (report.manifest) {
    addManifest(json, *report.manifest);
  }
  return json;
}

std::vector<std::string> reportLines(const JobReport &report) {
  if (report.exitCode != 0 || !report.manifest) {
    return {};
  }
  const Manifest &manifest = *report.manifest;
  if (report.command == "restore") {
    std::vector<std::string> lines = {
        "restored " + manifest.application + " from " + manifest.id,
        "  served    " + countText(report.files, "file") + ", " + sizeText(report.bytes),
        "  time      " + secondsText(report.seconds)};
    addDenials(lines, report);
    return lines;
  }
  std::vector<std::string> lines = {"backed up " + manifest.application + " as " + manifest.id,
                                    "  path      " + report.folder,
                                    "  data      version " + manifest.dataVersion(),
                                    "  estimate  " + estimateText(manifest),
                                    "  came      " + totalsText(manifest.totals),
                                    "  time      " + secondsText(report.seconds)};
  addSkipped(lines, manifest.skipped);
  addDenials(lines, report);
  return lines;
}

void printJson(std::ostream &out, const Json::Value &value) {
  const JsonSink sink = [&out](std::string_view piece) { out << piece; };
  if (!writeJson(sink, value, JsonLayout::kIndented)) {
    writeJson(sink, cutBelow(kMaxLevels, value), JsonLayout::kIndented);
  }
  out << '\n';
}

}  // namespace arvl_host
