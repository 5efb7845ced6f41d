// The fields of a download and of an upload, which are the same.
#ifndef ZARN_RECORDS_TRANSFER_DESCRIPTOR_H_
#define ZARN_RECORDS_TRANSFER_DESCRIPTOR_H_

#include <string>

#include "zarn/arvlapp/file_info.h"

namespace ZARN {
namespace ARVLAPP {

struct TransferDescriptor {
  TransferDescriptor() = default;
  TransferDescriptor(const TransferDescriptor &) = delete;
  ~TransferDescriptor() = default;

  // Does not copy the percentage, which belongs to the one transfer that it was set for.
  TransferDescriptor &operator=(const TransferDescriptor &other) {
    destinationPath = other.destinationPath;
    source = other.source;
    return *this;
  }

  std::string destinationPath;
  FileInfo source;
  int percentage = -1;
};

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_RECORDS_TRANSFER_DESCRIPTOR_H_
