// A measurement: an operation of the library and its bare equivalent, the least work that does the same. Each maker is in the source file of its name.
#ifndef ZARN_BENCH_FIGURE_H_
#define ZARN_BENCH_FIGURE_H_

#include <chrono>
#include <functional>
#include <string>

namespace arvl_bench {

// A figure that measures failures is worth nothing: ends the program unless the condition holds.
void require(bool condition, const char *what);

// Seconds per repetition.
template <typename Operation>
double timeOf(int repetitions, Operation operation) {
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < repetitions; ++i) {
    operation();
  }
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
  return elapsed.count() / repetitions;
}

// Does the operation some fixed number of times; the result is the seconds that one took.
using Run = std::function<double()>;

// KiB by which a process of its own grew at its peak.
struct PeakMemory {
  long library = 0;
  long bare = 0;
};

struct Figure {
  std::string name;
  double bound = 0;  // of the ratio library to bare; 0: there is none
  int rounds = 0;    // odd, so that the median is a round's
  // Sets up the operation and its neighbour; called once, when the figure's turn comes.
  std::function<void(Run &library, Run &bare)> prepare;
  std::function<PeakMemory()> measurePeak;  // empty: memory is of no interest
};

Figure makeRoundTrip();         // setProgress, both ends on one processor
Figure makeRoundTripOnTwo();    // each on its own
Figure makeListingOfPages();    // listDir: pages of 1,000 entries
Figure makeListingOfBigPage();  // listDir: one page near 32 MiB
Figure makeBigRequest();        // setProgress with 32 MiB
Figure makeWalk();              // addDirRecursive
Figure makeWalkByDu();          // du -sx, as a yardstick: in the place of the library
Figure makeStartUp();           // the minimal plug-in, exec to exit

}  // namespace arvl_bench

#endif  // ZARN_BENCH_FIGURE_H_
