#include "protocol/packet_frame.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

using namespace ZARN::ARVLAPP;

// Returns the bytes of the header on the wire, with the check code in the byte order of this host.
PacketHeaderBytes wireHeader(std::uint16_t checkCode, std::array<unsigned char, 6> rest) {
  PacketHeaderBytes bytes{};
  std::memcpy(bytes.data(), &checkCode, sizeof checkCode);
  std::memcpy(bytes.data() + sizeof checkCode, rest.data(), rest.size());
  return bytes;
}

TEST(EncodePacketHeader, WritesTheCheckCodeInHostOrderAndTheRestBigEndian) {
  EXPECT_EQ(encodePacketHeader({0x1234, 0x01ABCDEF}),
            wireHeader(0x55DC, {0x12, 0x34, 0x01, 0xAB, 0xCD, 0xEF}));
  EXPECT_EQ(encodePacketHeader({24, 71}), wireHeader(0x55DC, {0, 24, 0, 0, 0, 71}));
  EXPECT_EQ(encodePacketHeader({}), wireHeader(0x55DC, {0, 0, 0, 0, 0, 0}));
}

#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
TEST(EncodePacketHeader, StartsWithDc55OnALittleEndianHost) {
  const PacketHeaderBytes expected = {0xDC, 0x55, 0x00, 0x05, 0x02, 0x00, 0x00, 0x00};
  EXPECT_EQ(encodePacketHeader({5, 0x2000000}), expected);
}
#endif

TEST(EncodePacketHeader, DoesNotCheckTheLength) {
  EXPECT_EQ(encodePacketHeader({1, 0x2000001}), wireHeader(0x55DC, {0, 1, 2, 0, 0, 1}));
  EXPECT_EQ(encodePacketHeader({0xFFFF, 0xFFFFFFFF}),
            wireHeader(0x55DC, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST(DecodePacketHeader, ReadsTypeAndLength) {
  const PacketHeaderBytes bytes = wireHeader(0x55DC, {0x12, 0x34, 0x01, 0xAB, 0xCD, 0xEF});
  PacketHeader header;
  EXPECT_EQ(decodePacketHeader(bytes.data(), header), HeaderStatus::kOk);
  EXPECT_EQ(header.type, 0x1234);
  EXPECT_EQ(header.payloadLength, 0x01ABCDEFu);
}

TEST(DecodePacketHeader, AcceptsPayloadsOfUpTo32MiB) {
  PacketHeader header;
  for (const std::uint32_t length : {0u, 1u, 0x1FFFFFFu, 0x2000000u}) {
    const PacketHeaderBytes bytes = encodePacketHeader({7, length});
    EXPECT_EQ(decodePacketHeader(bytes.data(), header), HeaderStatus::kOk) << length;
    EXPECT_EQ(header.payloadLength, length);
  }
}

TEST(DecodePacketHeader, ReportsTheLengthThatIsTooLong) {
  for (const std::uint32_t length : {0x2000001u, 0x80000000u, 0xFFFFFFFFu}) {
    const PacketHeaderBytes bytes = encodePacketHeader({7, length});
    PacketHeader header;
    EXPECT_EQ(decodePacketHeader(bytes.data(), header), HeaderStatus::kTooLong) << length;
    EXPECT_EQ(header.type, 7);
    EXPECT_EQ(header.payloadLength, length);
  }
}

TEST(DecodePacketHeader, RefusesEveryOtherCheckCodeAndLeavesTheHeaderAlone) {
  for (unsigned code = 0; code <= 0xFFFF; ++code) {
    if (code == 0x55DC) {
      continue;
    }
    const auto bytes = wireHeader(static_cast<std::uint16_t>(code), {0, 5, 0, 0, 0, 9});
    PacketHeader header = {1, 2};
    ASSERT_EQ(decodePacketHeader(bytes.data(), header), HeaderStatus::kBadCheckCode) << code;
    ASSERT_EQ(header.type, 1);
    ASSERT_EQ(header.payloadLength, 2u);
  }
}

TEST(DecodePacketHeader, ChecksTheCheckCodeBeforeTheLength) {
  const auto bytes = wireHeader(0xDC55, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
  PacketHeader header;
  EXPECT_EQ(decodePacketHeader(bytes.data(), header), HeaderStatus::kBadCheckCode);
}

TEST(DecodePacketHeader, ReadsFromAnyAddress) {
  const PacketHeaderBytes bytes = encodePacketHeader({19, 0x00C0FFEE});
  for (std::size_t offset = 0; offset < 8; ++offset) {
    std::vector<unsigned char> buffer(offset + kPacketHeaderSize);
    std::memcpy(buffer.data() + offset, bytes.data(), bytes.size());
    PacketHeader header;
    EXPECT_EQ(decodePacketHeader(buffer.data() + offset, header), HeaderStatus::kOk) << offset;
    EXPECT_EQ(header.type, 19);
    EXPECT_EQ(header.payloadLength, 0x00C0FFEEu);
  }
}

TEST(DecodePacketHeader, ReturnsEveryTypeThatWasEncoded) {
  for (unsigned type = 0; type <= 0xFFFF; ++type) {
    const PacketHeaderBytes bytes = encodePacketHeader({static_cast<std::uint16_t>(type), type});
    PacketHeader header;
    ASSERT_EQ(decodePacketHeader(bytes.data(), header), HeaderStatus::kOk);
    ASSERT_EQ(header.type, type);
    ASSERT_EQ(header.payloadLength, type);
  }
}

}  // namespace
