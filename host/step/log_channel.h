// The channel for the syslog lines of a plug-in. The preload object sends each line as one record to a
// descriptor that the plug-in inherits.
//
// A record is one byte (the priority) and the text. The text is cut if the record would exceed
// kMaxLogRecord.
#ifndef ARVL_HOST_STEP_LOG_CHANNEL_H_
#define ARVL_HOST_STEP_LOG_CHANNEL_H_

#include <cstddef>

namespace arvl_host {

// Environment variables with the number of the descriptor, a datagram socket, and its inode number. The inode
// shows whether the plug-in has closed the socket and reused the number.
constexpr const char *kLogChannelVariable = "ARVL_HOST_LOG_FD";
constexpr const char *kLogChannelInodeVariable = "ARVL_HOST_LOG_INODE";

constexpr std::size_t kMaxLogRecord = 0x10000;

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_LOG_CHANNEL_H_
