// setProgress against a peer that answers at once, beside a bare write and read of the same bytes
// with a peer of the same kind. All of them stay on one processor: what it takes to wake another one
// depends on how deep it sleeps, and would hide what either side does.

#include <sched.h>
#include <zarn/arvlapp/protocol_util.h>

#include <memory>

#include "figure.h"
#include "peer.h"
#include "session.h"

namespace arvl_bench {

namespace {

constexpr int kTrips = 500;

const char kRequest[] = "{\"progress_percentage\":40,\"progress_stage\":\"Exporting mail\"}\n";
const char kAnswer[] = "{\"success\":true}\n";

std::vector<std::string> makeAnswers() {
  return {makeFrame(ZARN::ARVLAPP::PACKET_SET_PROGRESS_RESPONSE, kAnswer)};
}

// Keeps this process, and those that it forks, on the first processor that it may use.
class OneProcessor {
 public:
  OneProcessor() {
    sched_getaffinity(0, sizeof before_, &before_);
    int first = 0;
    while (CPU_ISSET(first, &before_) == 0) {
      ++first;
    }
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(first, &one);
    sched_setaffinity(0, sizeof one, &one);
  }
  ~OneProcessor() { sched_setaffinity(0, sizeof before_, &before_); }
  OneProcessor(const OneProcessor &) = delete;
  OneProcessor &operator=(const OneProcessor &) = delete;

 private:
  cpu_set_t before_;
};

}  // namespace

Figure makeRoundTrip() {
  Figure figure;
  figure.name = "setProgress, round trip";
  figure.bound = 1.5;
  figure.rounds = 101;
  figure.prepare = [](Run &library, Run &bare) {
    const OneProcessor forThePeersToo;
    const auto session = std::make_shared<Session>(connectToPeer(makeAnswers));
    library = [session] {
      const OneProcessor processor;
      return timeOf(kTrips, [&session] {
        require(session->agent().setProgress("Exporting mail", 40), "setProgress failed");
      });
    };
    const int socket = connectToPeer(makeAnswers);
    const std::string request = makeFrame(ZARN::ARVLAPP::PACKET_SET_PROGRESS_REQUEST, kRequest);
    std::string answer = makeAnswers().front();
    bare = [socket, request, answer]() mutable {
      const OneProcessor processor;
      return timeOf(kTrips, [&] {
        writeAll(socket, request);
        readAll(socket, answer);
      });
    };
  };
  return figure;
}

}  // namespace arvl_bench
