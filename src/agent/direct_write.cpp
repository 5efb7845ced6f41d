#include "agent/direct_write.h"

#include <event2/buffer.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstddef>

namespace ZARN {
namespace ARVLAPP {

namespace {

bool isLeftToLoop(int error) {
  return error == EAGAIN || error == EINTR || error == ENOTSOCK;
}

}  // namespace

bool writeAtOnce(int socketFd, evbuffer *output) {
  evbuffer_iovec piece = {};
  std::size_t taken = 0;
  do {
    evbuffer_peek(output, -1, nullptr, &piece, 1);
    const ssize_t sent = send(socketFd, piece.iov_base, piece.iov_len, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0) {
      return isLeftToLoop(errno);
    }
    taken = static_cast<std::size_t>(sent);
    evbuffer_unfreeze(output, 1);  // a bufferevent lets only itself remove data from the front
    evbuffer_drain(output, taken);
    evbuffer_freeze(output, 1);
  } while (taken > 0 && taken == piece.iov_len && evbuffer_get_length(output) > 0);
  return true;
}

}  // namespace ARVLAPP
}  // namespace ZARN
