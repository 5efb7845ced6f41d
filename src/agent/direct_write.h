// Writes an output buffer to its socket without the event loop. Logs nothing.
#ifndef ZARN_AGENT_DIRECT_WRITE_H_
#define ZARN_AGENT_DIRECT_WRITE_H_

struct evbuffer;

namespace ZARN {
namespace ARVLAPP {

// Writes what the socket takes at once and removes it from the buffer, which is not empty and belongs
// to a bufferevent. Never blocks and never raises SIGPIPE.
//
// Returns false if the connection has failed. A full socket, an interruption and a descriptor that is
// no socket are no failures: the rest stays in the buffer, for the loop to write.
bool writeAtOnce(int socketFd, evbuffer *output);

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_AGENT_DIRECT_WRITE_H_
