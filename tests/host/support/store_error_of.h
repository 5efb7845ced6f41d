#ifndef ARVL_TESTS_HOST_SUPPORT_STORE_ERROR_OF_H_
#define ARVL_TESTS_HOST_SUPPORT_STORE_ERROR_OF_H_

#include <string>

#include "files/file_error.h"

namespace arvl_test {

// Returns the text of the StoreError that the operation throws, or an empty string.
template <typename Operation>
std::string storeErrorOf(Operation operation) {
  try {
    operation();
  } catch (const arvl_host::StoreError &error) {
    return error.what();
  }
  return "";
}

}  // namespace arvl_test

#endif  // ARVL_TESTS_HOST_SUPPORT_STORE_ERROR_OF_H_
