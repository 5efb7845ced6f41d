// The verdict of the rule book on a packet.
#ifndef ARVL_HOST_STEP_VERDICT_H_
#define ARVL_HOST_STEP_VERDICT_H_

#include <string>
#include <vector>

namespace arvl_host {

// A valid packet may have lines too: the rule of a listing that is continued logs one.
struct Verdict {
  bool valid = true;
  std::vector<std::string> lines;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_VERDICT_H_
