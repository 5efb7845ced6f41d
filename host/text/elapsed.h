#ifndef ARVL_HOST_TEXT_ELAPSED_H_
#define ARVL_HOST_TEXT_ELAPSED_H_

#include <chrono>

namespace arvl_host {

inline double secondsSince(std::chrono::steady_clock::time_point begin) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

}  // namespace arvl_host

#endif  // ARVL_HOST_TEXT_ELAPSED_H_
