// One line per figure: name, ratio, bound, absolute figures, peak memory.
#ifndef ZARN_BENCH_TABLE_H_
#define ZARN_BENCH_TABLE_H_

#include <benchmark/benchmark.h>

#include <vector>

#include "figure.h"

namespace arvl_bench {

// The names of the counters that a benchmark reports for its rounds.
extern const char kRatio[];
extern const char kLibrary[];
extern const char kBare[];

// Prints the medians of a benchmark's rounds as they come in.
class TableReporter : public benchmark::BenchmarkReporter {
 public:
  void add(const Figure &figure, const PeakMemory &peak);

  bool ReportContext(const Context &context) override;
  void ReportRuns(const std::vector<Run> &runs) override;

 private:
  struct Row {
    std::string name;
    double bound = 0;
    PeakMemory peak;
  };
  void print(const Row &row, const Run &medians) const;

  std::vector<Row> rows_;
};

}  // namespace arvl_bench

#endif  // ZARN_BENCH_TABLE_H_
