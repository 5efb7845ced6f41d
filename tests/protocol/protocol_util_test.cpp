#include "zarn/arvlapp/protocol_util.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <thread>

#include "support/log_capture.h"
#include "support/rule_case.h"

namespace {

using namespace ZARN::ARVLAPP;
using namespace arvl_test;

constexpr Verdict kValid = Verdict::kValid;
constexpr Verdict kInvalid = Verdict::kInvalid;

// Payloads of every JSON type, for the rules that ignore the payload.
const std::vector<std::string> kAnyPayloads = {
    "null", "{}", "[]", "true", "0", "-1.5", R"("text")", R"({"success": 5})", R"([{}])", "false"};

std::vector<RuleCase> forAnyPayload(Verdict verdict, const std::vector<std::string> &messages) {
  std::vector<RuleCase> cases;
  for (const std::string &payload : kAnyPayloads) {
    cases.push_back({payload, verdict, messages});
  }
  return cases;
}

// ---- Names and numbers.

TEST(PacketString, NamesEveryType) {
  const std::vector<std::pair<PACKET_TYPE, std::string>> names = {
      {PACKET_TYPE_NONE, "PACKET_TYPE_NONE"},
      {PACKET_CAN_EXPORT_RESULT, "CAN_EXPORT_RESULT"},
      {PACKET_ESTIMATE_EXPORTION_RESULT, "ESTIMATE_EXPORTION_RESULT"},
      {PACKET_UPLOAD_REQUEST, "UPLOAD_REQUEST"},
      {PACKET_UPLOAD_RESPONSE, "UPLOAD_RESPONSE"},
      {PACKET_EXPORT_COMPLETE, "EXPORT_COMPLETE"},
      {PACKET_CAN_IMPORT_RESULT, "CAN_IMPORT_RESULT"},
      {PACKET_LIST_DIR_REQUEST, "LIST_DIR_REQUEST"},
      {PACKET_LIST_DIR_RESPONSE, "LIST_DIR_RESPONSE"},
      {PACKET_STAT_REQUEST, "STAT_REQUEST"},
      {PACKET_STAT_RESPONSE, "STAT_RESPONSE"},
      {PACKET_DOWNLOAD_REQUEST, "DOWNLOAD_REQUEST"},
      {PACKET_DOWNLOAD_RESPONSE, "DOWNLOAD_RESPONSE"},
      {PACKET_EXPORT_RESULT_REQUEST, "EXPORT_RESULT_REQUEST"},
      {PACKET_EXPORT_RESULT_RESPONSE, "EXPORT_RESULT_RESPONSE"},
      {PACKET_IMPORT_COMPLETE, "IMPORT_COMPLETE"},
      {PACKET_CREATE_DIR_REQUEST, "PACKET_CREATE_DIR_REQUEST"},
      {PACKET_CREATE_DIR_RESPONSE, "PACKET_CREATE_DIR_RESPONSE"},
      {PACKET_SELECTED_SOURCE_REQUEST, "PACKET_SELECTED_SOURCE_REQUEST"},
      {PACKET_SELECTED_SOURCE_RESPONSE, "PACKET_SELECTED_SOURCE_RESPONSE"},
      {PACKET_EXPORT_CONFIG_REQUEST, "PACKET_EXPORT_CONFIG_REQUEST"},
      {PACKET_EXPORT_CONFIG_RESPONSE, "PACKET_EXPORT_CONFIG_RESPONSE"},
      {PACKET_LANGUAGE_REQUEST, "PACKET_LANGUAGE_REQUEST"},
      {PACKET_LANGUAGE_RESPONSE, "PACKET_LANGUAGE_RESPONSE"},
      {PACKET_SUMMARY_RESULT, "PACKET_SUMMARY_RESULT"},
      {PACKET_SET_PROGRESS_REQUEST, "PACKET_SET_PROGRESS_REQUEST"},
      {PACKET_SET_PROGRESS_RESPONSE, "PACKET_SET_PROGRESS_RESPONSE"},
  };
  ASSERT_EQ(names.size(), 27u);

  LogCapture capture;
  for (std::size_t number = 0; number < names.size(); ++number) {
    EXPECT_EQ(names[number].first, static_cast<int>(number));
    EXPECT_EQ(Util::packetString(names[number].first), names[number].second);
  }
  EXPECT_EQ(capture.take(), LogLines{});
}

const int kNumbersOfNoType[] = {27, 28, 255, 256, 65535, INT_MAX, -1, -26, INT_MIN};

TEST(PacketString, ReportsAnUnknownNumber) {
  for (const int number : kNumbersOfNoType) {
    LogCapture capture;
    EXPECT_EQ(Util::packetString(static_cast<PACKET_TYPE>(number)), "invalid_packet_type");
    EXPECT_EQ(capture.take(),
              LogLines{"protocol_util.cpp: invalid packet type " + std::to_string(number)});
  }
}

TEST(PacketType, IsAsLargeAsAnInt) {
  EXPECT_EQ(sizeof(PACKET_TYPE), sizeof(int));
}

// ---- Dispatch.

TEST(IsValidPacket, RefusesAnUnknownNumber) {
  for (const int number : kNumbersOfNoType) {
    checkRule(static_cast<PACKET_TYPE>(number),
              forAnyPayload(kInvalid, {"invalid packet type " + std::to_string(number)}));
  }
}

TEST(IsValidPacket, RefusesPacketTypeNone) {
  checkRule(PACKET_TYPE_NONE, forAnyPayload(kInvalid, {"invalid packet type 0"}));
}

TEST(IsValidPacket, RefusesTheStatTypesSilently) {
  checkRule(PACKET_STAT_REQUEST, forAnyPayload(kInvalid, {}));
  checkRule(PACKET_STAT_RESPONSE, forAnyPayload(kInvalid, {}));
}

TEST(IsValidPacket, AcceptsEveryPayloadOfARequestWithoutContent) {
  for (const PACKET_TYPE type : {PACKET_EXPORT_RESULT_REQUEST, PACKET_SELECTED_SOURCE_REQUEST,
                                 PACKET_EXPORT_CONFIG_REQUEST, PACKET_LANGUAGE_REQUEST}) {
    checkRule(type, forAnyPayload(kValid, {}));
  }
}

TEST(IsValidPacket, ChecksEachResultByItsOwnRule) {
  const std::vector<std::pair<PACKET_TYPE, std::string>> rules = {
      {PACKET_CAN_EXPORT_RESULT, "invalid can_export_result"},
      {PACKET_ESTIMATE_EXPORTION_RESULT, "invalid estimate_exportion_result"},
      {PACKET_EXPORT_COMPLETE, "invalid export_complete"},
      {PACKET_CAN_IMPORT_RESULT, "invalid can_import_result"},
      {PACKET_EXPORT_RESULT_RESPONSE, "invalid export_result_response"},
      {PACKET_IMPORT_COMPLETE, "invalid import_complete"},
      {PACKET_SUMMARY_RESULT, "invalid summary_complete"},
  };
  for (const auto &[type, message] : rules) {
    checkRule(type, {{"{}", kInvalid, {"no member [success]", "invalid result object", message}}});
  }
}

// ---- Threads.

TEST(IsValidPacket, ChecksOnePayloadInSeveralThreadsAtOnce) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 200;
  const Json::Value valid = parseJson(
      R"({"success": true, "export_result": {"success": true, "app_data_version": "1.0"},
          "external_handler_result": [{"handler": "h", "handler_type": "t", "result": null}]})");
  const Json::Value invalid = parseJson(R"({"success": "yes"})");

  LogCapture capture;
  std::vector<int> rightVerdicts(kThreads, 0);
  std::vector<std::thread> threads;
  for (int &count : rightVerdicts) {
    threads.emplace_back([&count, &valid, &invalid] {
      for (int round = 0; round < kRounds; ++round) {
        count += Util::isValidPacket(PACKET_EXPORT_RESULT_RESPONSE, valid) ? 1 : 0;
        count += Util::isValidPacket(PACKET_SUMMARY_RESULT, invalid) ? 0 : 1;
        count += Util::packetString(PACKET_SUMMARY_RESULT) == "PACKET_SUMMARY_RESULT" ? 1 : 0;
      }
    });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }

  EXPECT_EQ(rightVerdicts, std::vector<int>(kThreads, 3 * kRounds));
  EXPECT_EQ(capture.take().size(), std::size_t{2 * kThreads * kRounds});
}

}  // namespace
