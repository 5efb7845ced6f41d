// The packet frame: an 8-byte header, then the payload. Shared by both ends of the connection.
//
//   offset  size  field
//   0       2     check code 0x55DC, in the byte order of the host
//   2       2     packet type, unsigned, big-endian
//   4       4     payload length in bytes, unsigned, big-endian, at most 0x2000000
//   8       ...   payload: JSON text without a terminating NUL; may be empty
//
// The mixed byte order is part of the wire format. The codec knows bytes only: no JSON, no events, no
// logging. It returns a status, and the caller logs the failure.
#ifndef ZARN_PROTOCOL_PACKET_FRAME_H_
#define ZARN_PROTOCOL_PACKET_FRAME_H_

#include <array>
#include <cstddef>
#include <cstdint>

namespace ZARN {
namespace ARVLAPP {

constexpr std::size_t kPacketHeaderSize = 8;
constexpr std::uint16_t kPacketCheckCode = 0x55DC;
constexpr std::uint32_t kMaxPayloadLength = 0x2000000;  // 32 MiB

struct PacketHeader {
  std::uint16_t type = 0;
  std::uint32_t payloadLength = 0;
};

enum class HeaderStatus {
  kOk,
  kBadCheckCode,  // the bytes are not a packet
  kTooLong,       // the payload exceeds kMaxPayloadLength
};

using PacketHeaderBytes = std::array<unsigned char, kPacketHeaderSize>;

// Returns whether the plug-in's end can read a payload of this size: its input buffer holds
// kMaxPayloadLength bytes, header included.
constexpr bool fitsPacket(std::size_t payloadSize) {
  return kPacketHeaderSize + payloadSize <= kMaxPayloadLength;
}

// Encodes any length: the sender must refuse a payload that is too long.
PacketHeaderBytes encodePacketHeader(const PacketHeader &header);

// Decodes kPacketHeaderSize bytes. Fills the header unless the check code is wrong.
HeaderStatus decodePacketHeader(const void *bytes, PacketHeader &header);

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_PROTOCOL_PACKET_FRAME_H_
