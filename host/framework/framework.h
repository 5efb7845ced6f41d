// Answers the requests of a plug-in, from values and a store.
#ifndef ARVL_HOST_FRAMEWORK_FRAMEWORK_H_
#define ARVL_HOST_FRAMEWORK_FRAMEWORK_H_

#include <json/value.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "files/store.h"
#include "step/step_runner.h"

namespace arvl_host {

struct FrameworkValues {
  Json::Value exportConfig{Json::objectValue};
  std::string language = "enu";
  std::vector<std::string> folders;
  std::vector<std::string> apps;
  Json::Value exportResult;     // the complete answer; null: none
  std::size_t listPage = 1000;  // maximum entries per page
};

// Returns the answer to a request for the export result. `content` is an object with "export_result" and,
// optionally, "external_handler_result" (null: none), or the export result alone. Throws std::runtime_error
// with the lines of the rule book if the answer would be invalid.
Json::Value makeExportResult(const Json::Value &content);

// Throws std::runtime_error with the lines of the rule book if an export result with this value would be
// invalid.
void checkExternalHandlerResult(const Json::Value &value);

// Throws std::runtime_error if an answer with this value would not fit a packet.
void checkFitsPacket(const Json::Value &value);

class Framework : public RequestServer {
 public:
  using Progress = std::function<void(const std::string &stage, int percentage)>;

  // `store` must outlive the framework. If it is null, requests for files are denied.
  Framework(FrameworkValues values, Store *store, Progress progress);

  std::optional<Json::Value> answer(ZARN::ARVLAPP::PACKET_TYPE request,
                                    const Json::Value &payload) override;
  void cancel() override;

 private:
  using TransferItem = std::function<void(const Json::Value &item)>;

  // A listing in progress. It is read page by page, as a directory may have more entries than fit in memory.
  struct Listing {
    std::string token;  // the request_id of the next page
    std::string path;
    StoreListing entries;
    std::optional<StoreEntry> next;  // the first entry of the next page
  };

  Json::Value transfer(const Json::Value &request, const TransferItem &transferItem) const;
  void upload(const Json::Value &item) const;
  void download(const Json::Value &item) const;
  Json::Value createDir(const Json::Value &request) const;
  Json::Value listDir(const Json::Value &request);
  Listing beginListing(const std::string &path) const;
  Listing continueListing(const std::string &token);
  void keepListing(Listing listing);
  Json::Value takePage(Listing &listing, std::size_t limit) const;
  Json::Value getSelectedSource() const;
  Json::Value setProgress(const Json::Value &request) const;
  const Store &store() const;

  FrameworkValues values_;
  Store *store_;
  Progress progress_;
  std::deque<Listing> listings_;  // oldest first
  std::size_t tokens_ = 0;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_FRAMEWORK_FRAMEWORK_H_
