#include "protocol/packet_table.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "zarn/arvlapp/agent.h"

namespace {

using namespace ZARN::ARVLAPP;

struct Pair {
  PACKET_TYPE request;
  PACKET_TYPE response;
  int sinceMajor;
  int sinceMinor;
};

const std::vector<Pair> kPairs = {
    {PACKET_UPLOAD_REQUEST, PACKET_UPLOAD_RESPONSE, 0, 0},
    {PACKET_LIST_DIR_REQUEST, PACKET_LIST_DIR_RESPONSE, 0, 0},
    {PACKET_STAT_REQUEST, PACKET_STAT_RESPONSE, 0, 0},
    {PACKET_DOWNLOAD_REQUEST, PACKET_DOWNLOAD_RESPONSE, 0, 0},
    {PACKET_EXPORT_RESULT_REQUEST, PACKET_EXPORT_RESULT_RESPONSE, 0, 0},
    {PACKET_CREATE_DIR_REQUEST, PACKET_CREATE_DIR_RESPONSE, 0, 0},
    {PACKET_SELECTED_SOURCE_REQUEST, PACKET_SELECTED_SOURCE_RESPONSE, 2, 3},
    {PACKET_EXPORT_CONFIG_REQUEST, PACKET_EXPORT_CONFIG_RESPONSE, 2, 3},
    {PACKET_LANGUAGE_REQUEST, PACKET_LANGUAGE_RESPONSE, 2, 3},
    {PACKET_SET_PROGRESS_REQUEST, PACKET_SET_PROGRESS_RESPONSE, 2, 3},
};

const std::vector<std::pair<PACKET_TYPE, std::string>> kCompletions = {
    {PACKET_SUMMARY_RESULT, Agent::PLUGIN_NAME_SUMMARY},
    {PACKET_ESTIMATE_EXPORTION_RESULT, Agent::PLUGIN_NAME_ESTIMATE_EXPORTION},
    {PACKET_CAN_EXPORT_RESULT, Agent::PLUGIN_NAME_CAN_EXPORT},
    {PACKET_EXPORT_COMPLETE, Agent::PLUGIN_NAME_EXPORT},
    {PACKET_CAN_IMPORT_RESULT, Agent::PLUGIN_NAME_CAN_IMPORT},
    {PACKET_IMPORT_COMPLETE, Agent::PLUGIN_NAME_IMPORT},
};

TEST(PacketTable, HasEveryTypeOnce) {
  EXPECT_EQ(kPacketTypeCount, 27);
  EXPECT_EQ(1 + 2 * kPairs.size() + kCompletions.size(), 27u);
  for (int type = 0; type < kPacketTypeCount; ++type) {
    ASSERT_NE(findPacket(type), nullptr) << type;
    EXPECT_EQ(findPacket(type)->type, type);
  }
}

TEST(PacketTable, HasNoRowForAnUnknownNumber) {
  for (const int number : {27, 28, 256, 65535, INT_MAX, -1, INT_MIN}) {
    EXPECT_EQ(findPacket(number), nullptr) << number;
  }
}

TEST(PacketTable, PairsEachRequestWithItsResponse) {
  for (const Pair &pair : kPairs) {
    SCOPED_TRACE(packetName(pair.request));
    const PacketInfo &request = *findPacket(pair.request);
    EXPECT_EQ(request.kind, PacketKind::kRequest);
    EXPECT_EQ(request.sender, PacketSender::kPlugin);
    EXPECT_EQ(request.answer, pair.response);
    EXPECT_EQ(request.step, nullptr);

    const PacketInfo &response = *findPacket(pair.response);
    EXPECT_EQ(response.kind, PacketKind::kResponse);
    EXPECT_EQ(response.sender, PacketSender::kFramework);
    EXPECT_EQ(response.answer, PACKET_TYPE_NONE);
    EXPECT_EQ(response.step, nullptr);
  }
}

TEST(PacketTable, SaysWhichVersionAnswersEachRequest) {
  for (const Pair &pair : kPairs) {
    const PacketInfo &request = *findPacket(pair.request);
    EXPECT_EQ(request.sinceMajor, pair.sinceMajor) << request.name;
    EXPECT_EQ(request.sinceMinor, pair.sinceMinor) << request.name;
  }
}

TEST(PacketTable, MarksTheRequestsThatTouchFiles) {
  for (int type = 0; type < kPacketTypeCount; ++type) {
    const bool isExpected = type == PACKET_UPLOAD_REQUEST || type == PACKET_DOWNLOAD_REQUEST ||
                            type == PACKET_CREATE_DIR_REQUEST || type == PACKET_LIST_DIR_REQUEST;
    EXPECT_EQ(findPacket(type)->touchesFiles, isExpected) << packetName(type);
  }
}

TEST(PacketTable, GivesEachStepItsCompletion) {
  for (const auto &[type, step] : kCompletions) {
    SCOPED_TRACE(step);
    const PacketInfo *completion = findCompletion(step);
    ASSERT_NE(completion, nullptr);
    EXPECT_EQ(completion->type, type);
    EXPECT_EQ(completion->kind, PacketKind::kCompletion);
    EXPECT_EQ(completion->sender, PacketSender::kPlugin);
    EXPECT_EQ(completion->answer, PACKET_TYPE_NONE);
    EXPECT_EQ(completion->step, step);
  }
}

TEST(PacketTable, HasNoCompletionForAnUnknownStep) {
  for (const char *text : {"", "Export", "exporter", "/export"}) {
    EXPECT_EQ(findCompletion(text), nullptr) << text;
  }
}

TEST(PacketTable, HasEmptyFieldsForTypeNone) {
  const PacketInfo &none = *findPacket(PACKET_TYPE_NONE);
  EXPECT_EQ(none.kind, PacketKind::kNone);
  EXPECT_EQ(none.sender, PacketSender::kNone);
  EXPECT_EQ(none.answer, PACKET_TYPE_NONE);
  EXPECT_EQ(none.step, nullptr);
}

TEST(PacketTable, NamesATypeLikePacketString) {
  for (int type = 0; type < kPacketTypeCount; ++type) {
    EXPECT_EQ(packetName(type), Util::packetString(static_cast<PACKET_TYPE>(type)));
  }
}

TEST(PacketTable, NamesAnUnknownNumber) {
  EXPECT_EQ(packetName(27), "type 27");
  EXPECT_EQ(packetName(-1), "type -1");
  EXPECT_EQ(packetName(65535), "type 65535");
}

}  // namespace
