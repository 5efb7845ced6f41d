// An Agent of framework version 2.3 on a socket.
#ifndef ZARN_BENCH_SESSION_H_
#define ZARN_BENCH_SESSION_H_

#include <unistd.h>
#include <zarn/arvlapp/agent.h>

#include <string>

#include "figure.h"

namespace arvl_bench {

class Session {
 public:
  // Takes ownership of the socket.
  explicit Session(int socket) {
    std::string descriptor = std::to_string(socket);
    char name[] = "can_export";
    char socketOption[] = "-f";
    char versionOption[] = "-v";
    char version[] = "2.3";
    char *argv[] = {name, socketOption, descriptor.data(), versionOption, version, nullptr};
    optind = 1;  // getopt continues where the previous session stopped
    require(agent_.init(5, argv), "no session");
  }

  ZARN::ARVLAPP::Agent &agent() { return agent_; }

 private:
  ZARN::ARVLAPP::Agent agent_;
};

}  // namespace arvl_bench

#endif  // ZARN_BENCH_SESSION_H_
