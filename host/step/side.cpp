#include "step/side.h"

namespace arvl_host {

const char *sideName(Side side) {
  return side == Side::kPlugin ? "plugin" : "framework";
}

}  // namespace arvl_host
