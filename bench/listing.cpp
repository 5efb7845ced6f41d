// Compares listDir, with pages in the form and size that a framework sends, to a bare Json::Reader that
// parses the same text from memory and reads the same members.

#include <json/reader.h>
#include <json/value.h>
#include <zarn/arvlapp/protocol_util.h>

#include <benchmark/benchmark.h>

#include <list>
#include <memory>

#include "child.h"
#include "figure.h"
#include "peer.h"
#include "session.h"

namespace arvl_bench {

namespace {

constexpr int kPagesPerRun = 20;
constexpr int kPageEntries = 1000;
constexpr std::size_t kBigPageSize = 0x1FFFF00;  // the largest possible frame is 0x2000000

std::string makeEntry(int number) {
  char text[160];
  std::snprintf(text, sizeof text,
                "{\"mtime\":%d,\"path\":\"/volume1/documents/reports/2024/file-%06d.txt\","
                "\"size\":%d,\"type\":\"%s\"}",
                1700000000 + number, number, number * 37, number % 16 == 0 ? "dir" : "file");
  return text;
}

constexpr char kPageBegin[] = "{\"entry_list\":[";
constexpr char kPageEnd[] =
    "],\"list_complete\":true,\"request\":{\"path\":\"/volume1/documents/reports/2024\"},"
    "\"success\":true}\n";

std::string makePage(int maxEntries, std::size_t maxSize) {
  std::string page = kPageBegin;
  page.reserve(maxSize);
  for (int i = 0; i < maxEntries; ++i) {
    const std::string entry = makeEntry(i);
    if (page.size() + 1 + entry.size() + sizeof kPageEnd > maxSize) {
      break;
    }
    page += i == 0 ? "" : ",";
    page += entry;
  }
  return page + kPageEnd;
}

std::string makeSmallPage() {
  return makePage(kPageEntries, 1 << 20);
}

std::string makeBigPage() {
  return makePage(1 << 30, kBigPageSize);
}

std::vector<std::string> makeSmallAnswers() {
  return {makeFrame(ZARN::ARVLAPP::PACKET_LIST_DIR_RESPONSE, makeSmallPage())};
}

std::vector<std::string> makeBigAnswers() {
  return {makeFrame(ZARN::ARVLAPP::PACKET_LIST_DIR_RESPONSE, makeBigPage())};
}

void list(ZARN::ARVLAPP::Agent &agent) {
  std::list<ZARN::ARVLAPP::FileInfo> entries;
  require(agent.listDir("/volume1/documents/reports/2024", entries), "listDir failed");
  benchmark::DoNotOptimize(entries.size());
}

void parseAndRead(const std::string &text) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  Json::Reader reader;
#pragma GCC diagnostic pop
  Json::Value page;
  const char *begin = text.data();
  require(reader.parse(begin, begin + text.size(), page, false), "parse failed");
  const Json::Value &entries = page["entry_list"];
  for (Json::ArrayIndex i = 0; i < entries.size(); ++i) {
    const Json::Value &entry = entries[i];
    benchmark::DoNotOptimize(entry["path"].asString());
    benchmark::DoNotOptimize(entry["type"].asString());
    benchmark::DoNotOptimize(entry["size"].asInt64());
    benchmark::DoNotOptimize(entry["mtime"].asInt64());
  }
}

PeakMemory measurePeak(std::vector<std::string> (*makeAnswers)(), std::string (*makePage)()) {
  PeakMemory peak;
  peak.library = peakGrowth([=] {
    Session session(connectToPeer(makeAnswers));
    list(session.agent());
  });
  peak.bare = peakGrowth([=] { parseAndRead(makePage()); });
  return peak;
}

}  // namespace

Figure makeListingOfPages() {
  Figure figure;
  figure.name = "listDir, page of 1,000 entries";
  figure.bound = 1.4;
  figure.rounds = 31;
  figure.prepare = [](Run &library, Run &bare) {
    const auto session = std::make_shared<Session>(connectToPeer(makeSmallAnswers));
    library = [session] { return timeOf(kPagesPerRun, [&session] { list(session->agent()); }); };
    bare = [text = makeSmallPage()] {
      return timeOf(kPagesPerRun, [&text] { parseAndRead(text); });
    };
  };
  figure.measurePeak = [] { return measurePeak(makeSmallAnswers, makeSmallPage); };
  return figure;
}

// Each run has its own heap, as in a plug-in: a heap that was used before saves page faults.
Figure makeListingOfBigPage() {
  Figure figure;
  figure.name = "listDir, page of 32 MiB";
  figure.bound = 1.4;
  figure.rounds = 9;
  figure.prepare = [](Run &library, Run &bare) {
    library = [] {
      return timeInChild([] {
        Session session(connectToPeer(makeBigAnswers));
        return timeOf(1, [&session] { list(session.agent()); });
      });
    };
    bare = [] {
      return timeInChild([] {
        const std::string text = makeBigPage();
        return timeOf(1, [&text] { parseAndRead(text); });
      });
    };
  };
  figure.measurePeak = [] { return measurePeak(makeBigAnswers, makeBigPage); };
  return figure;
}

}  // namespace arvl_bench
