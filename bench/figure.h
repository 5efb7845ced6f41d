// A measurement: an operation of the library and its bare equivalent, the least work that does the same. Each maker is in the source file of its name.
#ifndef ZARN_BENCH_FIGURE_H_
#define ZARN_BENCH_FIGURE_H_

#include <chrono>
#include <functional>
#include <string>

namespace arvl_bench {

// Ends the program unless the condition holds: a measurement of failures is useless.
void require(bool condition, const char *what);

// Returns the seconds per repetition.
template <typename Operation>
double timeOf(int repetitions, Operation operation) {
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < repetitions; ++i) {
    operation();
  }
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
  return elapsed.count() / repetitions;
}

// Does the operation a fixed number of times and returns the seconds per operation.
using Run = std::function<double()>;

// Peak growth, in KiB, of a process that only does the operation.
struct PeakMemory {
  long library = 0;
  long bare = 0;
};

struct Figure {
  std::string name;
  double bound = 0;  // upper bound of the ratio library to bare; 0: none
  int rounds = 0;    // odd, so that the median is the value of one round
  // Sets up the operation and its bare equivalent; called once, just before the measurement.
  std::function<void(Run &library, Run &bare)> prepare;
  std::function<PeakMemory()> measurePeak;  // empty: memory is not measured
};

Figure makeRoundTrip();         // setProgress, both ends on one processor
Figure makeRoundTripOnTwo();    // each end on its own processor
Figure makeListingOfPages();    // listDir: pages of 1,000 entries
Figure makeListingOfBigPage();  // listDir: one page near 32 MiB
Figure makeBigRequest();        // setProgress with 32 MiB
Figure makeWalk();              // addDirRecursive
Figure makeWalkByDu();          // du -sx instead of the library, for comparison
Figure makeStartUp();           // the minimal plug-in, exec to exit

}  // namespace arvl_bench

#endif  // ZARN_BENCH_FIGURE_H_
