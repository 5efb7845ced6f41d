#include "protocol/packet_table.h"

namespace ZARN {
namespace ARVLAPP {

namespace {

constexpr PacketInfo none(PACKET_TYPE type, const char *name) {
  return {type, name, PacketSender::kNone, PacketKind::kNone, PACKET_TYPE_NONE, nullptr, 0,
          0,    false};
}

constexpr PacketInfo request(PACKET_TYPE type, const char *name, PACKET_TYPE answer,
                             int sinceMajor = 0, int sinceMinor = 0) {
  PacketInfo row = none(type, name);
  row.sender = PacketSender::kPlugin;
  row.kind = PacketKind::kRequest;
  row.answer = answer;
  row.sinceMajor = sinceMajor;
  row.sinceMinor = sinceMinor;
  return row;
}

constexpr PacketInfo fileRequest(PACKET_TYPE type, const char *name, PACKET_TYPE answer) {
  PacketInfo row = request(type, name, answer);
  row.touchesFiles = true;
  return row;
}

constexpr PacketInfo response(PACKET_TYPE type, const char *name) {
  PacketInfo row = none(type, name);
  row.sender = PacketSender::kFramework;
  row.kind = PacketKind::kResponse;
  return row;
}

constexpr PacketInfo completion(PACKET_TYPE type, const char *name, const char *step) {
  PacketInfo row = none(type, name);
  row.sender = PacketSender::kPlugin;
  row.kind = PacketKind::kCompletion;
  row.step = step;
  return row;
}

// The names of the older types have no prefix and those of the later types have one. Other programs
// read these names. Every framework version answers PACKET_EXPORT_RESULT_REQUEST; only the operation
// that reads the external handler results from the answer needs 2.2. No operation sends
// PACKET_STAT_REQUEST.
constexpr PacketInfo kPackets[] = {
    none(PACKET_TYPE_NONE, "PACKET_TYPE_NONE"),
    completion(PACKET_CAN_EXPORT_RESULT, "CAN_EXPORT_RESULT", "can_export"),
    completion(PACKET_ESTIMATE_EXPORTION_RESULT, "ESTIMATE_EXPORTION_RESULT", "estimate_exportion"),
    fileRequest(PACKET_UPLOAD_REQUEST, "UPLOAD_REQUEST", PACKET_UPLOAD_RESPONSE),
    response(PACKET_UPLOAD_RESPONSE, "UPLOAD_RESPONSE"),
    completion(PACKET_EXPORT_COMPLETE, "EXPORT_COMPLETE", "export"),
    completion(PACKET_CAN_IMPORT_RESULT, "CAN_IMPORT_RESULT", "can_import"),
    fileRequest(PACKET_LIST_DIR_REQUEST, "LIST_DIR_REQUEST", PACKET_LIST_DIR_RESPONSE),
    response(PACKET_LIST_DIR_RESPONSE, "LIST_DIR_RESPONSE"),
    request(PACKET_STAT_REQUEST, "STAT_REQUEST", PACKET_STAT_RESPONSE),
    response(PACKET_STAT_RESPONSE, "STAT_RESPONSE"),
    fileRequest(PACKET_DOWNLOAD_REQUEST, "DOWNLOAD_REQUEST", PACKET_DOWNLOAD_RESPONSE),
    response(PACKET_DOWNLOAD_RESPONSE, "DOWNLOAD_RESPONSE"),
    request(PACKET_EXPORT_RESULT_REQUEST, "EXPORT_RESULT_REQUEST", PACKET_EXPORT_RESULT_RESPONSE),
    response(PACKET_EXPORT_RESULT_RESPONSE, "EXPORT_RESULT_RESPONSE"),
    completion(PACKET_IMPORT_COMPLETE, "IMPORT_COMPLETE", "import"),
    fileRequest(PACKET_CREATE_DIR_REQUEST, "PACKET_CREATE_DIR_REQUEST", PACKET_CREATE_DIR_RESPONSE),
    response(PACKET_CREATE_DIR_RESPONSE, "PACKET_CREATE_DIR_RESPONSE"),
    request(PACKET_SELECTED_SOURCE_REQUEST, "PACKET_SELECTED_SOURCE_REQUEST",
            PACKET_SELECTED_SOURCE_RESPONSE, 2, 3),
    response(PACKET_SELECTED_SOURCE_RESPONSE, "PACKET_SELECTED_SOURCE_RESPONSE"),
    request(PACKET_EXPORT_CONFIG_REQUEST, "PACKET_EXPORT_CONFIG_REQUEST",
            PACKET_EXPORT_CONFIG_RESPONSE, 2, 3),
    response(PACKET_EXPORT_CONFIG_RESPONSE, "PACKET_EXPORT_CONFIG_RESPONSE"),
    request(PACKET_LANGUAGE_REQUEST, "PACKET_LANGUAGE_REQUEST", PACKET_LANGUAGE_RESPONSE, 2, 3),
    response(PACKET_LANGUAGE_RESPONSE, "PACKET_LANGUAGE_RESPONSE"),
    completion(PACKET_SUMMARY_RESULT, "PACKET_SUMMARY_RESULT", "summary"),
    request(PACKET_SET_PROGRESS_REQUEST, "PACKET_SET_PROGRESS_REQUEST",
            PACKET_SET_PROGRESS_RESPONSE, 2, 3),
    response(PACKET_SET_PROGRESS_RESPONSE, "PACKET_SET_PROGRESS_RESPONSE"),
};

constexpr bool rowsFollowTheEnum() {
  int type = PACKET_TYPE_NONE;
  for (const PacketInfo &row : kPackets) {
    if (row.type != type++) {
      return false;
    }
  }
  return type == kPacketTypeCount;
}
static_assert(rowsFollowTheEnum(), "one row per packet type, in the order of the enum");

}  // namespace

const PacketInfo *findPacket(int type) {
  return type >= 0 && type < kPacketTypeCount ? &kPackets[type] : nullptr;
}

const PacketInfo *findCompletion(const std::string &step) {
  for (const PacketInfo &packet : kPackets) {
    if (packet.step != nullptr && step == packet.step) {
      return &packet;
    }
  }
  return nullptr;
}

std::string packetName(int type) {
  const PacketInfo *packet = findPacket(type);
  if (packet == nullptr) {
    return "type " + std::to_string(type);
  }
  return packet->name;
}

}  // namespace ARVLAPP
}  // namespace ZARN
