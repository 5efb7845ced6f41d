// The two ends of a connection.
#ifndef ARVL_HOST_STEP_SIDE_H_
#define ARVL_HOST_STEP_SIDE_H_

namespace arvl_host {

enum class Side { kPlugin, kFramework };

// Returns the name that traces show: "plugin", "framework".
const char *sideName(Side side);

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_SIDE_H_
