// The framework's end closes, resets, half-closes or falls silent at every byte of every exchange, in
// both directions, and splits every answer in every place.

#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <cstddef>
#include <string>
#include <vector>

#include "torture/session_run.h"

namespace {

using namespace arvl_test;

SessionReport run(const Scenario &scenario, const Misdeed &misdeed) {
  return runSession(
      scenario, misdeed, [] {}, [] {});
}

const char *nameOf(Misdeed::Kind kind) {
  switch (kind) {
    case Misdeed::kSplit:
      return "split";
    case Misdeed::kClose:
      return "close";
    case Misdeed::kHalfClose:
      return "half-close";
    case Misdeed::kReset:
      return "reset";
    case Misdeed::kSilence:
      return "silence, then close";
    case Misdeed::kNone:
      break;
  }
  return "none";
}

// If the framework hangs up before the answer is complete, the session must fail, report the lost
// connection and send no completion.
const char *findFaultOfLostPeer(const SessionReport &report) {
  if (!report.initialized) {
    return "init failed";
  }
  if (report.errorNumber != 1) {
    return "the error number is not 1";
  }
  if (!report.received.empty()) {
    return "a completion was sent after the loss";
  }
  if (report.logLines == 0) {
    return "nothing was logged";
  }
  return nullptr;
}

class PeerTorture : public testing::TestWithParam<std::size_t> {
 protected:
  const Scenario &scenario() const { return scenarios()[GetParam()]; }

  // `judge` returns the fault of a report, or nullptr.
  template <typename Judge>
  std::string forEveryByteOfEveryExchange(Misdeed misdeed, std::size_t first, const Judge &judge) {
    const std::vector<std::size_t> requestSizes = run(scenario(), Misdeed()).requestSizes;
    for (misdeed.exchange = 0; misdeed.exchange < scenario().answers.size(); ++misdeed.exchange) {
      const std::size_t size = misdeed.inRequest ? requestSizes[misdeed.exchange]
                                                 : scenario().answers[misdeed.exchange].size();
      for (misdeed.bytes = first; misdeed.bytes < size; ++misdeed.bytes) {
        alarm(20);  // ends the process of this run
        dprintf(STDERR_FILENO, "\r%s at byte %zu of exchange %zu", nameOf(misdeed.kind),
                misdeed.bytes, misdeed.exchange);
        const char *fault = judge(run(scenario(), misdeed));
        if (fault != nullptr) {
          dprintf(STDERR_FILENO, ": %s", fault);
          return fault;
        }
      }
    }
    return "";
  }

  template <typename Judge>
  void expectSound(const Misdeed &misdeed, std::size_t first, const Judge &judge) {
    const std::string fault = inProcess(
        20, [&] { return forEveryByteOfEveryExchange(misdeed, first, judge).empty() ? 0 : 1; });
    EXPECT_EQ(fault.substr(fault.rfind('\r') + 1), "") << scenario().name;
  }
};

TEST_P(PeerTorture, AnswersMayBeSplitAnywhere) {
  Misdeed misdeed;
  misdeed.kind = Misdeed::kSplit;
  expectSound(misdeed, 1, [&](const SessionReport &report) -> const char * {
    return report.result == Result::kAsExpected && report.received == scenario().completion
               ? nullptr
               : "the outcome is not that of a whole answer";
  });
}

TEST_P(PeerTorture, AnAnswerCutShortIsALostConnection) {
  for (const Misdeed::Kind kind :
       {Misdeed::kClose, Misdeed::kHalfClose, Misdeed::kSilence, Misdeed::kReset}) {
    Misdeed misdeed;
    misdeed.kind = kind;
    expectSound(misdeed, 0, findFaultOfLostPeer);
  }
}

TEST_P(PeerTorture, ARequestCutShortIsALostConnection) {
  for (const Misdeed::Kind kind : {Misdeed::kClose, Misdeed::kReset}) {
    Misdeed misdeed;
    misdeed.kind = kind;
    misdeed.inRequest = true;
    expectSound(misdeed, 0, findFaultOfLostPeer);
  }
}

TEST_P(PeerTorture, AWholeLastAnswerIsDeliveredEvenIfThePeerClosesAtOnce) {
  Misdeed misdeed;
  misdeed.exchange = scenario().answers.size() - 1;
  for (const Misdeed::Kind kind : {Misdeed::kClose, Misdeed::kSilence, Misdeed::kHalfClose}) {
    misdeed.kind = kind;
    misdeed.bytes = scenario().answers.back().size();
    const SessionReport report = run(scenario(), misdeed);
    EXPECT_EQ(report.result, Result::kAsExpected) << scenario().name << ": " << nameOf(kind);
  }
}

std::vector<std::size_t> scenariosWithAnswers() {
  std::vector<std::size_t> indices;
  for (std::size_t i = 0; i < scenarios().size(); ++i) {
    if (!scenarios()[i].answers.empty()) {
      indices.push_back(i);
    }
  }
  return indices;
}

INSTANTIATE_TEST_SUITE_P(Every, PeerTorture, testing::ValuesIn(scenariosWithAnswers()));

}  // namespace
