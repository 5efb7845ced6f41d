// Frames a payload with the codec of the protocol.
#ifndef ARVL_FUZZ_SUPPORT_FRAME_H_
#define ARVL_FUZZ_SUPPORT_FRAME_H_

#include <cstdint>
#include <string>

#include "protocol/packet_frame.h"

namespace arvl_fuzz {

inline std::string makeFrame(std::uint16_t type, const std::string &payload) {
  const auto header =
      ZARN::ARVLAPP::encodePacketHeader({type, static_cast<std::uint32_t>(payload.size())});
  return std::string(header.begin(), header.end()) + payload;
}

}  // namespace arvl_fuzz

#endif  // ARVL_FUZZ_SUPPORT_FRAME_H_
