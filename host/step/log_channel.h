// How the syslog lines of a plug-in reach the host: the preload object sends each as one record over a
// descriptor that the plug-in inherits.
//
// A record is the line's priority, one byte, and then its text, cut to what fits.
#ifndef ARVL_HOST_STEP_LOG_CHANNEL_H_
#define ARVL_HOST_STEP_LOG_CHANNEL_H_

#include <cstddef>

namespace arvl_host {

// Environment: the number of the descriptor, a datagram socket, and the number of its inode, by which a
// plug-in that closed the one and uses its number for something else is told from one that did not.
constexpr const char *kLogChannelVariable = "ARVL_HOST_LOG_FD";
constexpr const char *kLogChannelInodeVariable = "ARVL_HOST_LOG_INODE";

constexpr std::size_t kMaxLogRecord = 0x10000;

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_LOG_CHANNEL_H_
