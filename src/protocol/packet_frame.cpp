#include "protocol/packet_frame.h"

#include <endian.h>

#include <cstring>

namespace ZARN {
namespace ARVLAPP {

PacketHeaderBytes encodePacketHeader(const PacketHeader &header) {
  const std::uint16_t type = htobe16(header.type);
  const std::uint32_t length = htobe32(header.payloadLength);

  PacketHeaderBytes bytes;
  std::memcpy(&bytes[0], &kPacketCheckCode, sizeof kPacketCheckCode);
  std::memcpy(&bytes[2], &type, sizeof type);
  std::memcpy(&bytes[4], &length, sizeof length);
  return bytes;
}

HeaderStatus decodePacketHeader(const void *bytes, PacketHeader &header) {
  const auto *at = static_cast<const unsigned char *>(bytes);
  std::uint16_t checkCode = 0;
  std::uint16_t type = 0;
  std::uint32_t length = 0;
  std::memcpy(&checkCode, at, sizeof checkCode);
  std::memcpy(&type, at + 2, sizeof type);
  std::memcpy(&length, at + 4, sizeof length);

  if (checkCode != kPacketCheckCode) {
    return HeaderStatus::kBadCheckCode;
  }
  header.type = be16toh(type);
  header.payloadLength = be32toh(length);
  return header.payloadLength > kMaxPayloadLength ? HeaderStatus::kTooLong : HeaderStatus::kOk;
}

}  // namespace ARVLAPP
}  // namespace ZARN
