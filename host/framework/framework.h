// What the framework knows and serves: answers every request of a plug-in.
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
  Json::Value exportResult;     // the whole answer; null: there is none
  std::size_t listPage = 1000;  // entries a page, at most
};

// Makes the answer out of what a file holds: an object with "export_result" and, optionally,
// "external_handler_result" (null: there is none), or the export result alone. Throws std::runtime_error, with the lines of
// the rule book, if the answer would break it.
Json::Value makeExportResult(const Json::Value &content);

// Throws std::runtime_error, with the lines of the rule book, if an export result could not be handed out
// with it.
void checkExternalHandlerResult(const Json::Value &value);

// Throws std::runtime_error if an answer with this value would be more than a packet carries.
void checkFitsPacket(const Json::Value &value);

class Framework : public RequestServer {
 public:
  using Progress = std::function<void(const std::string &stage, int percentage)>;

  // store may be null: requests for files are then denied. It has to outlive this.
  Framework(FrameworkValues values, Store *store, Progress progress);

  std::optional<Json::Value> answer(ZARN::ARVLAPP::PACKET_TYPE request,
                                    const Json::Value &payload) override;
  void cancel() override;

 private:
  using TransferItem = std::function<void(const Json::Value &item)>;

  // A listing that has been begun, and how far it has been handed out. It is read page by page: a folder
  // may hold more than the memory.
  struct Listing {
    std::string token;  // of the page that comes next
    std::string path;
    StoreListing entries;
    std::optional<StoreEntry> next;  // the first that is not handed out
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
