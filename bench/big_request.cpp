// Compares a setProgress with the longest payload that the protocol permits to a bare Json::FastWriter and
// write of the same value; both wait for the answer.

#include <json/value.h>
#include <json/writer.h>
#include <zarn/arvlapp/protocol_util.h>

#include <memory>

#include "child.h"
#include "figure.h"
#include "peer.h"
#include "protocol/packet_frame.h"
#include "session.h"

namespace arvl_bench {

namespace {

constexpr std::size_t kPayloadLength = ZARN::ARVLAPP::kMaxPayloadLength;

std::string makeStage() {
  const std::string rest = "{\"progress_percentage\":40,\"progress_stage\":\"\"}\n";
  const std::string words = "Exporting mail, ";
  std::string stage;
  stage.reserve(kPayloadLength);
  while (stage.size() < kPayloadLength - rest.size()) {
    stage += words;
  }
  stage.resize(kPayloadLength - rest.size());
  return stage;
}

Json::Value makeRequest() {
  Json::Value request(Json::objectValue);
  request["progress_percentage"] = 40;
  request["progress_stage"] = makeStage();
  return request;
}

std::vector<std::string> makeAnswers() {
  return {makeFrame(ZARN::ARVLAPP::PACKET_SET_PROGRESS_RESPONSE, "{\"success\":true}\n")};
}

void send(ZARN::ARVLAPP::Agent &agent, const std::string &stage) {
  require(agent.setProgress(stage, 40), "setProgress failed");
}

void writeAndRead(int socket, const Json::Value &request) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  const std::string text = Json::FastWriter().write(request);
#pragma GCC diagnostic pop
  const auto header = ZARN::ARVLAPP::encodePacketHeader(
      {ZARN::ARVLAPP::PACKET_SET_PROGRESS_REQUEST, static_cast<std::uint32_t>(text.size())});
  writeAll(socket, std::string(header.begin(), header.end()));
  writeAll(socket, text);
  std::string answer = makeAnswers().front();
  readAll(socket, answer);
}

}  // namespace

// Each run has its own heap, as in a plug-in.
Figure makeBigRequest() {
  Figure figure;
  figure.name = "setProgress, 32 MiB out";
  figure.bound = 1.6;
  figure.rounds = 31;
  figure.prepare = [](Run &library, Run &bare) {
    library = [] {
      return timeInChild([] {
        Session session(connectToPeer(makeAnswers));
        const std::string stage = makeStage();
        return timeOf(1, [&] { send(session.agent(), stage); });
      });
    };
    bare = [] {
      return timeInChild([] {
        const int socket = connectToPeer(makeAnswers);
        const Json::Value request = makeRequest();
        return timeOf(1, [&] { writeAndRead(socket, request); });
      });
    };
  };
  figure.measurePeak = [] {
    PeakMemory peak;
    peak.library = peakGrowth([] {
      Session session(connectToPeer(makeAnswers));
      send(session.agent(), makeStage());
    });
    peak.bare = peakGrowth([] { writeAndRead(connectToPeer(makeAnswers), makeRequest()); });
    return peak;
  };
  return figure;
}

}  // namespace arvl_bench
