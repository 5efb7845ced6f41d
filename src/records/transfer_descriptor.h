// What a download and an upload have in common: they are the same record, each with a type of its
// own.
#ifndef ZARN_RECORDS_TRANSFER_DESCRIPTOR_H_
#define ZARN_RECORDS_TRANSFER_DESCRIPTOR_H_

#include <string>

#include "zarn/arvlapp/file_info.h"

namespace ZARN {
namespace ARVLAPP {

struct TransferDescriptor {
  TransferDescriptor() = default;  // GCOVR_EXCL_BR_LINE: the compiler's, for an exception
  TransferDescriptor(const TransferDescriptor &) = delete;
  ~TransferDescriptor() = default;

  // The percentage belongs to the one transfer it was set for: an assignment leaves it alone.
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
