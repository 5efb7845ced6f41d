#include "agent/transfer_request.h"

namespace ZARN {
namespace ARVLAPP {

namespace {

// Builds the part of an item that downloads and uploads share.
template <typename TransferInfo>
Json::Value makeItem(const TransferInfo &info, Version framework) {
  Json::Value item(Json::objectValue);
  item["source"]["path"] = info.getSource().getPath();
  item["source"]["type"] = info.getSource().getTypeStr();
  item["destination"]["path"] = info.getDestinationPath();
  if (framework.isAtLeast(kVersion23) && info.getPercentage() > 0) {
    item["progress_percentage"] = info.getPercentage();
  }
  return item;
}

Json::Value makeRequest(const Json::Value &item) {
  Json::Value request(Json::objectValue);
  request["data"].append(item);
  return request;
}

}  // namespace

Json::Value makeDownloadRequest(const DownloadInfo &info, Version framework) {
  Json::Value item = makeItem(info, framework);
  item["with_metadata"] = false;
  return makeRequest(item);
}

Json::Value makeUploadRequest(const UploadInfo &info, Version framework) {
  Json::Value item = makeItem(info, framework);
  item["source"]["is_temp"] = info.getSource().isTemp();
  return makeRequest(item);
}

}  // namespace ARVLAPP
}  // namespace ZARN
