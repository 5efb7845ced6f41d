// Measures the cost of the library, and of a bare equivalent in the same run:
//
//   setProgress, one processor      write and read of the same bytes
//   setProgress, two processors     the same
//   listDir, page of 1,000 entries  Json::Reader on the same text, and reading the same members
//   listDir, page of 32 MiB         the same
//   setProgress, 32 MiB out         Json::FastWriter and write
//   addDirRecursive("/usr")         nftw with an empty callback
//   du -sx /usr, in its place       the same, for comparison
//   minimal plug-in, exec to exit   an empty program with the same libraries
//
// A round runs the two one after the other; the order alternates between rounds. Every number is
// the median of the rounds. A ratio compares the two of one round, so that other load on the
// machine affects both. Peak memory is the growth of a process that does the operation once; for
// the plug-in, that of the whole process. Google Benchmark's options apply:
// --benchmark_filter=listDir.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <memory>

#include "figure.h"
#include "table.h"

namespace arvl_bench {

void require(bool condition, const char *what) {
  if (!condition) {
    std::fprintf(stderr, "arvl-bench: %s\n", what);
    std::exit(EXIT_FAILURE);
  }
}

namespace {

struct Pair {
  Run library;
  Run bare;
  bool libraryFirst = false;
};

// One round is one repetition of one iteration.
void runRound(benchmark::State &state, Pair &pair) {
  for ([[maybe_unused]] auto iteration : state) {
    pair.libraryFirst = !pair.libraryFirst;
    double library = pair.libraryFirst ? pair.library() : 0;
    const double bare = pair.bare();
    library = pair.libraryFirst ? library : pair.library();
    state.SetIterationTime(library);
    state.counters[kRatio] = library / bare;
    state.counters[kLibrary] = library;
    state.counters[kBare] = bare;
  }
}

void registerFigure(const Figure &figure, std::shared_ptr<Pair> &pair) {
  const auto body = [&pair, prepare = figure.prepare](benchmark::State &state) {
    if (pair == nullptr) {
      pair = std::make_shared<Pair>();
      prepare(pair->library, pair->bare);
    }
    runRound(state, *pair);
  };
  benchmark::RegisterBenchmark(figure.name.c_str(), body)
      ->UseManualTime()
      ->Iterations(1)
      ->Repetitions(figure.rounds);
}

int run(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return EXIT_FAILURE;
  }
  const Figure figures[] = {makeRoundTrip(),        makeRoundTripOnTwo(), makeListingOfPages(),
                            makeListingOfBigPage(), makeBigRequest(),     makeWalk(),
                            makeWalkByDu(),         makeStartUp()};
  // Measure memory first: the memory of this process counts for a forked child, too.
  TableReporter table;
  for (const Figure &figure : figures) {
    table.add(figure, figure.measurePeak ? figure.measurePeak() : PeakMemory());
  }
  std::shared_ptr<Pair> pairs[std::size(figures)];
  for (std::size_t i = 0; i < std::size(figures); ++i) {
    registerFigure(figures[i], pairs[i]);
  }
  benchmark::RunSpecifiedBenchmarks(&table);
  return EXIT_SUCCESS;
}

}  // namespace

}  // namespace arvl_bench

int main(int argc, char **argv) {
  return arvl_bench::run(argc, argv);
}
