// A plug-in and its framework in one process: the status is 0 if the completion arrives.

#include <sys/socket.h>
#include <unistd.h>
#include <zarn/arvlapp/agent.h>

#include <string>

int main() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
    return 1;
  }
  std::string words[] = {"/plugin/can_export", "-f", std::to_string(ends[1]), "-v", "2.3"};
  char *argv[] = {words[0].data(), words[1].data(), words[2].data(),
                  words[3].data(), words[4].data(), nullptr};
  {
    ZARN::ARVLAPP::Agent agent;
    if (!agent.init(5, argv)) {
      return 2;
    }
    agent.setSuccess();
  }
  const std::string completion("\xDC\x55\x00\x01\x00\x00\x00\x11{\"success\":true}\n", 25);
  char bytes[64];
  const ssize_t size = read(ends[0], bytes, sizeof bytes);
  return size > 0 && std::string(bytes, static_cast<std::size_t>(size)) == completion ? 0 : 3;
}
