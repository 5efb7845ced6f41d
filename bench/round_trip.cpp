// Compares setProgress, with a peer that answers at once, to a bare write and read of the same bytes with a
// peer of the same kind. Both ends are pinned, because their processors decide the figure: on one processor
// they share caches and branch predictors; on two, waking the other processor takes most of the time.

#include <sched.h>
#include <zarn/arvlapp/protocol_util.h>

#include <memory>

#include "figure.h"
#include "peer.h"
#include "session.h"

namespace arvl_bench {

namespace {

constexpr int kTrips = 50;  // few enough for a round to end within a time slice

const char kRequest[] = "{\"progress_percentage\":40,\"progress_stage\":\"Exporting mail\"}\n";
const char kAnswer[] = "{\"success\":true}\n";

std::vector<std::string> makeAnswers() {
  return {makeFrame(ZARN::ARVLAPP::PACKET_SET_PROGRESS_RESPONSE, kAnswer)};
}

std::vector<int> allowedProcessors() {
  cpu_set_t set;
  sched_getaffinity(0, sizeof set, &set);
  std::vector<int> processors;
  for (int i = 0; i < CPU_SETSIZE; ++i) {
    if (CPU_ISSET(i, &set)) {
      processors.push_back(i);
    }
  }
  return processors;
}

// Keeps this process and its children on one processor.
class Pinned {
 public:
  explicit Pinned(int processor) {
    sched_getaffinity(0, sizeof before_, &before_);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(processor, &one);
    sched_setaffinity(0, sizeof one, &one);
  }
  ~Pinned() { sched_setaffinity(0, sizeof before_, &before_); }
  Pinned(const Pinned &) = delete;
  Pinned &operator=(const Pinned &) = delete;

 private:
  cpu_set_t before_;
};

int connectToPeerOn(int processor) {
  const Pinned pinned(processor);
  return connectToPeer(makeAnswers);
}

void prepare(int here, int there, Run &library, Run &bare) {
  const auto session = std::make_shared<Session>(connectToPeerOn(there));
  library = [here, session] {
    const Pinned pinned(here);
    return timeOf(kTrips, [&session] {
      require(session->agent().setProgress("Exporting mail", 40), "setProgress failed");
    });
  };
  const int socket = connectToPeerOn(there);
  const std::string request = makeFrame(ZARN::ARVLAPP::PACKET_SET_PROGRESS_REQUEST, kRequest);
  bare = [here, socket, request, answer = makeAnswers().front()]() mutable {
    const Pinned pinned(here);
    return timeOf(kTrips, [&] {
      writeAll(socket, request);
      readAll(socket, answer);
    });
  };
}

}  // namespace

Figure makeRoundTrip() {
  const int processor = allowedProcessors().front();
  Figure figure;
  figure.name = "setProgress, one processor";
  figure.bound = 1.5;
  figure.rounds = 1001;
  figure.prepare = [processor](Run &library, Run &bare) {
    prepare(processor, processor, library, bare);
  };
  return figure;
}

Figure makeRoundTripOnTwo() {
  const std::vector<int> processors = allowedProcessors();
  Figure figure;
  figure.name = "setProgress, two processors";
  figure.bound = 1.5;
  figure.rounds = 301;
  figure.prepare = [processors](Run &library, Run &bare) {
    prepare(processors.front(), processors.back(), library, bare);
  };
  return figure;
}

}  // namespace arvl_bench
