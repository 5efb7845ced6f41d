#include "backup/manifest.h"

#include <string_view>

#include "files/file_error.h"
#include "text/strict_json.h"
#include "text/utf8.h"

namespace arvl_host {

namespace {

std::vector<std::string> textsOf(const Json::Value &array) {
  std::vector<std::string> texts;
  for (const Json::Value &text : array) {
    texts.push_back(restoreBytes(std::string_view(text.asString())));
  }
  return texts;
}

// A backup of an older version has the texts but no count.
Tally tallyOf(const Json::Value &count, const Json::Value &texts) {
  Tally tally;
  tally.texts = textsOf(texts);
  tally.count = count.isNull() ? tally.texts.size() : count.asUInt64();
  return tally;
}

Totals totalsOf(const Json::Value &json) {
  Totals totals;
  totals.files = json["file_count"].asUInt64();
  totals.folders = json["dir_count"].asUInt64();
  totals.links = json["symlink_count"].asUInt64();
  totals.bytes = json["size"].asUInt64();
  return totals;
}

}  // namespace

Manifest manifestOf(const Json::Value &head) {
  Manifest manifest;
  manifest.application = head["application"].asString();
  manifest.id = head["backup"].asString();
  manifest.tool = head["tool"].asString();
  manifest.frameworkVersion = head["framework_version"].asString();
  manifest.started = head["started"].asString();
  manifest.finished = head["finished"].asString();
  manifest.summary = head["summary"];
  manifest.estimate = head["estimate"];
  manifest.isEstimateRefused = head["estimate_refused"].asBool();
  manifest.totals = totalsOf(head["actual"]);
  manifest.exportResult = head["export_result"];
  manifest.externalHandlerResult = head["external_handler_result"];
  manifest.changed = tallyOf(head["changed_count"], head["changed"]);
  manifest.skipped = tallyOf(head["skipped_count"], head["skipped"]);
  manifest.denials = tallyOf(head["denial_count"], head["denials"]);
  return manifest;
}

void addTo(Totals &totals, const FileRecord &record) {
  switch (record.type) {
    case FileType::kFile:
      ++totals.files;
      totals.bytes += static_cast<std::uint64_t>(record.size);
      break;
    case FileType::kDir:
      ++totals.folders;
      break;
    case FileType::kSymlink:
      ++totals.links;
      break;
  }
}

Json::Value arrayOf(const std::vector<std::string> &texts) {
  Json::Value array(Json::arrayValue);
  for (const std::string &text : texts) {
    array.append(text);
  }
  return array;
}

// Uses the member names of the estimate in the protocol.
Json::Value totalsJson(const Totals &totals) {
  Json::Value json(Json::objectValue);
  json["file_count"] = Json::UInt64(totals.files);
  json["dir_count"] = Json::UInt64(totals.folders);
  json["symlink_count"] = Json::UInt64(totals.links);
  json["size"] = Json::UInt64(totals.bytes);
  return json;
}

Json::Value headJson(const Manifest &manifest) {
  Json::Value head(Json::objectValue);
  head["application"] = manifest.application;
  head["backup"] = manifest.id;
  head["tool"] = manifest.tool;
  head["framework_version"] = manifest.frameworkVersion;
  head["app_data_version"] = manifest.dataVersion();
  head["started"] = manifest.started;
  head["finished"] = manifest.finished;
  head["summary"] = manifest.summary;
  head["estimate"] = manifest.estimate;
  head["estimate_refused"] = manifest.isEstimateRefused;
  head["actual"] = totalsJson(manifest.totals);
  head["export_result"] = manifest.exportResult;
  head["external_handler_result"] = manifest.externalHandlerResult;
  head["changed"] = arrayOf(manifest.changed.texts);
  head["changed_count"] = Json::UInt64(manifest.changed.count);
  head["skipped"] = arrayOf(manifest.skipped.texts);
  head["skipped_count"] = Json::UInt64(manifest.skipped.count);
  head["denials"] = arrayOf(manifest.denials.texts);
  head["denial_count"] = Json::UInt64(manifest.denials.count);
  return head;
}

std::string Manifest::dataVersion() const {
  return exportResult.get("app_data_version", "").asString();
}

std::vector<std::string> Manifest::restoreTexts() const {
  std::vector<std::string> texts;
  if (summary.isObject()) {
    for (const char *name : {"restore_short", "restore_long"}) {
      texts.push_back(summary[name].asString());
    }
  }
  return texts;
}

void checkPlace(const Manifest &manifest, const std::filesystem::path &folder) {
  const std::string application = folder.parent_path().filename();
  const std::string id = folder.filename();
  if (manifest.application != application || manifest.id != id) {
    throw StoreError(quoted(folder / kManifestName) + " is that of " +
                     visibleText(manifest.application + " " + manifest.id) + ", not of " +
                     visibleText(application + " " + id));
  }
}

}  // namespace arvl_host
