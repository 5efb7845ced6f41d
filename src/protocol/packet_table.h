// The table of packet types: one row for each type, with all that both ends of the connection know
// about it. A new packet needs an enumerator, a row here and a rule in protocol_util.cpp. Logs nothing.
#ifndef ZARN_PROTOCOL_PACKET_TABLE_H_
#define ZARN_PROTOCOL_PACKET_TABLE_H_

#include <string>

#include "zarn/arvlapp/protocol_util.h"

namespace ZARN {
namespace ARVLAPP {

enum class PacketSender { kNone, kPlugin, kFramework };

enum class PacketKind {
  kNone,
  kRequest,     // from the plug-in; the framework answers it with one response
  kResponse,    // from the framework
  kCompletion,  // from the plug-in, at the end of its step; not answered
};

struct PacketInfo {
  PACKET_TYPE type;
  const char *name;  // as Util::packetString() returns it
  PacketSender sender;
  PacketKind kind;
  PACKET_TYPE answer;  // the response to a request; PACKET_TYPE_NONE for other kinds
  const char *step;    // the step that a completion ends; nullptr for other kinds
  // The lowest framework version that answers a request; 0.0 means every version.
  int sinceMajor;
  int sinceMinor;
  bool touchesFiles;  // the time to answer depends on the number and size of files
};

constexpr int kPacketTypeCount = PACKET_SET_PROGRESS_RESPONSE + 1;

// Returns the row of a packet type, or nullptr for a number that is no packet type.
const PacketInfo *findPacket(int type);

// Returns the completion that ends a step, or nullptr if there is no such step.
const PacketInfo *findCompletion(const std::string &step);

// Returns the printable name of a packet type, or "type 99" for a number that is no packet type.
std::string packetName(int type);

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_PROTOCOL_PACKET_TABLE_H_
