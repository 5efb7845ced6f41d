// The payloads of download and upload requests. Logs nothing.
#ifndef ZARN_AGENT_TRANSFER_REQUEST_H_
#define ZARN_AGENT_TRANSFER_REQUEST_H_

#include <json/value.h>

#include "agent/framework_version.h"
#include "zarn/arvlapp/download_info.h"
#include "zarn/arvlapp/upload_info.h"

namespace ZARN {
namespace ARVLAPP {

// Builds a payload of one item, though the packet has room for a list. A framework below 2.3 gets no
// percentage, and a percentage of 0 or less is not sent.
Json::Value makeDownloadRequest(const DownloadInfo &info, Version framework);
Json::Value makeUploadRequest(const UploadInfo &info, Version framework);

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_AGENT_TRANSFER_REQUEST_H_
