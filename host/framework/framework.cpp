#include "framework/framework.h"

#include <limits.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>

#include "protocol/json_text.h"
#include "protocol/packet_frame.h"
#include "step/rule_book.h"
#include "text/utf8.h"

namespace arvl_host {

namespace {

using namespace ZARN::ARVLAPP;

Json::Value success() {
  Json::Value answer(Json::objectValue);
  answer["success"] = true;
  return answer;
}

Json::Value failure(const std::string &error) {
  Json::Value answer(Json::objectValue);
  answer["success"] = false;
  answer["error"] = error;
  return answer;
}

bool fitsProtocol(std::int64_t number) {
  return number >= std::numeric_limits<std::int32_t>::min() &&
         number <= std::numeric_limits<std::int32_t>::max();
}

// The maximum size of the entries of a page. The rest of the packet is for the other members.
constexpr std::size_t kMaxPageBytes = kMaxPayloadLength - (1 << 20);

// Longer stages are cut, because they are shown many times.
constexpr std::size_t kMaxShownStage = 4096;

// The maximum number of open listings. A further one replaces the oldest.
constexpr std::size_t kMaxListings = 16;

// Returns an upper bound of the size of an entry in a page. JSON text has \u1234 for a character that is
// not plain.
std::size_t jsonBytes(const std::string &path) {
  const auto isPlain = [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; };
  const auto plain = static_cast<std::size_t>(std::count_if(path.begin(), path.end(), isPlain));
  return 100 + plain + 6 * (path.size() - plain);
}

// Throws StoreError that names the entry if a listing cannot represent it.
void checkListable(const std::string &path, const StoreEntry &entry) {
  const std::string whole = path + "/" + entry.name;
  const std::string shown = "\"" + visibleText(whole) + "\"";
  if (!isUtf8(whole)) {
    throw StoreError("the name of " + shown + " is not UTF-8, and a listing cannot carry it");
  }
  if (!fitsProtocol(entry.size) || !fitsProtocol(entry.mtime)) {
    throw StoreError(shown + " has a size or time beyond 32 bits (" + std::to_string(entry.size) +
                     " bytes), and a listing cannot carry it");
  }
}

// Returns the path. Throws StoreError for a path that the kernel would refuse for its length, and does not
// repeat it: it may be as long as a packet.
std::string pathIn(const Json::Value &object) {
  std::string path = object["path"].asString();
  if (path.size() > PATH_MAX + NAME_MAX) {
    throw StoreError("a path of " + std::to_string(path.size()) +
                     " bytes is longer than any file's");
  }
  return path;
}

Json::Value describe(const std::string &folder, const StoreEntry &entry) {
  Json::Value value(Json::objectValue);
  value["path"] = folder + "/" + entry.name;
  value["type"] = fileTypeText(entry.type);
  value["size"] = Json::Int64(entry.size);
  value["mtime"] = Json::Int64(entry.mtime);
  return value;
}

Json::Value named(const std::vector<std::string> &names) {
  Json::Value list(Json::arrayValue);
  for (const std::string &name : names) {
    Json::Value element(Json::objectValue);
    element["object"] = name;
    list.append(element);
  }
  return list;
}

}  // namespace

Json::Value makeExportResult(const Json::Value &content) {
  Json::Value answer = success();
  if (content.isObject() && content.isMember("export_result")) {
    answer["export_result"] = content["export_result"];
    if (!content["external_handler_result"].isNull()) {
      answer["external_handler_result"] = content["external_handler_result"];
    }
  } else {
    answer["export_result"] = content;
  }
  checkFitsPacket(answer);
  const Verdict verdict = judge(PACKET_EXPORT_RESULT_RESPONSE, answer);
  if (!verdict.valid) {
    std::string lines;
    for (const std::string &line : verdict.lines) {
      lines += "\n  " + line;
    }
    throw std::runtime_error("the rule book refuses the export result:" + lines);
  }
  return answer;
}

void checkExternalHandlerResult(const Json::Value &value) {
  Json::Value content(Json::objectValue);
  content["export_result"] = success();
  content["export_result"]["app_data_version"] = "1.0";  // any version
  content["external_handler_result"] = value;
  makeExportResult(content);
}

void checkFitsPacket(const Json::Value &value) {
  Json::Value answer = success();
  answer["value"] = value;
  const std::string text = toJsonText(answer);
  if (!fitsPacket(text.size())) {
    throw std::runtime_error("this makes an answer of " + std::to_string(text.size()) +
                             " bytes, more than a packet carries");
  }
}

Framework::Framework(FrameworkValues values, Store *store, Progress progress)
    : values_(std::move(values)), store_(store), progress_(std::move(progress)) {}

std::optional<Json::Value> Framework::answer(PACKET_TYPE request, const Json::Value &payload) {
  Json::Value answer = success();
  switch (request) {
    case PACKET_UPLOAD_REQUEST:
      return transfer(payload, [this](const Json::Value &item) { upload(item); });
    case PACKET_DOWNLOAD_REQUEST:
      return transfer(payload, [this](const Json::Value &item) { download(item); });
    case PACKET_CREATE_DIR_REQUEST:
      return createDir(payload);
    case PACKET_LIST_DIR_REQUEST:
      return listDir(payload);
    case PACKET_SELECTED_SOURCE_REQUEST:
      return getSelectedSource();
    case PACKET_SET_PROGRESS_REQUEST:
      return setProgress(payload);
    case PACKET_EXPORT_RESULT_REQUEST:
      return values_.exportResult.isNull() ? failure("there is no export result")
                                           : values_.exportResult;
    case PACKET_EXPORT_CONFIG_REQUEST:
      answer["export_config"] = values_.exportConfig;
      return answer;
    case PACKET_LANGUAGE_REQUEST:
      answer["language"] = values_.language;
      return answer;
    default:
      return std::nullopt;
  }
}

void Framework::cancel() {
  if (store_ != nullptr) {
    store_->cancel();
  }
}

const Store &Framework::store() const {
  if (store_ == nullptr) {
    throw StoreError("this framework has no store");
  }
  return *store_;
}

// Transfers every item, even after one has failed. The answer has the result of each item, also if it is a
// failure.
Json::Value Framework::transfer(const Json::Value &request,
                                const TransferItem &transferItem) const {
  Json::Value outcomes(Json::arrayValue);
  std::string firstError;
  for (const Json::Value &item : request["data"]) {
    Json::Value outcome = success();
    try {
      transferItem(item);
    } catch (const StoreError &error) {
      outcome = failure(error.what());
      firstError = firstError.empty() ? error.what() : firstError;
    }
    outcome["source"] = item["source"];
    outcomes.append(std::move(outcome));
  }
  Json::Value answer = firstError.empty() ? success() : failure(firstError);
  answer["data"] = std::move(outcomes);
  return answer;
}

void Framework::upload(const Json::Value &item) const {
  const Json::Value &source = item["source"];
  store().upload(pathIn(source), requireFileType(source["type"].asString()),
                 source["is_temp"].asBool(), pathIn(item["destination"]));
}

void Framework::download(const Json::Value &item) const {
  const Json::Value &source = item["source"];
  store().download(pathIn(source), requireFileType(source["type"].asString()),
                   pathIn(item["destination"]));
}

Json::Value Framework::createDir(const Json::Value &request) const {
  Json::Value answer = success();
  try {
    store().createDir(pathIn(request));
  } catch (const StoreError &error) {
    answer = failure(error.what());
  }
  answer["request"] = request;
  return answer;
}

// Checks all entries first: a directory with an entry that cannot be listed is not listed at all.
Framework::Listing Framework::beginListing(const std::string &path) const {
  Listing listing = {"", path.substr(0, path.find_last_not_of('/') + 1),  // "" for the root
                     store().list(path), std::nullopt};
  while (const std::optional<StoreEntry> entry = listing.entries.next()) {
    checkListable(listing.path, *entry);
  }
  listing.entries.rewind();
  listing.next = listing.entries.next();
  return listing;
}

Framework::Listing Framework::continueListing(const std::string &token) {
  const auto found =
      std::find_if(listings_.begin(), listings_.end(),
                   [&token](const Listing &listing) { return listing.token == token; });
  if (found == listings_.end()) {
    throw StoreError("unknown request_id");
  }
  Listing listing = std::move(*found);
  listings_.erase(found);
  return listing;
}

void Framework::keepListing(Listing listing) {
  if (listings_.size() == kMaxListings) {
    listings_.pop_front();
  }
  listings_.push_back(std::move(listing));
}

Json::Value Framework::takePage(Listing &listing, std::size_t limit) const {
  std::size_t bytes = 0;
  Json::Value entries(Json::arrayValue);
  for (; listing.next && entries.size() < limit; listing.next = listing.entries.next()) {
    checkListable(listing.path, *listing.next);  // it may be newer than the listing
    Json::Value entry = describe(listing.path, *listing.next);
    bytes += jsonBytes(entry["path"].asString());
    if (bytes > kMaxPageBytes && !entries.empty()) {
      break;
    }
    entries.append(std::move(entry));
  }
  return entries;
}

Json::Value Framework::listDir(const Json::Value &request) {
  std::size_t limit = values_.listPage;
  if (request.isMember("max_record") && request["max_record"].asUInt() != 0) {
    limit = std::min<std::size_t>(limit, request["max_record"].asUInt());
  }
  Json::Value answer = success();
  try {
    Listing listing = request.isMember("path") ? beginListing(pathIn(request))
                                               : continueListing(request["request_id"].asString());
    answer["entry_list"] = takePage(listing, limit);
    answer["list_complete"] = !listing.next;
    if (listing.next) {
      listing.token = "listing-" + std::to_string(++tokens_);
      answer["request_id"] = listing.token;
      keepListing(std::move(listing));
    }
  } catch (const StoreError &error) {
    answer = failure(error.what());
  }
  answer["request"] = request;
  return answer;
}

Json::Value Framework::getSelectedSource() const {
  Json::Value answer = success();
  answer["backup_folders"] = named(values_.folders);
  answer["backup_apps"] = named(values_.apps);
  return answer;
}

Json::Value Framework::setProgress(const Json::Value &request) const {
  const std::string stage = request["progress_stage"].asString();
  progress_(std::string(cutText(stage, kMaxShownStage)), request["progress_percentage"].asInt());
  return success();
}

}  // namespace arvl_host
