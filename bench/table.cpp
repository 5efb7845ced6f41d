#include "table.h"

#include <cstdio>

namespace arvl_bench {

const char kRatio[] = "ratio";
const char kLibrary[] = "library";
const char kBare[] = "bare";

namespace {

std::string showTime(double seconds) {
  const struct {
    double factor;
    const char *unit;
  } scales[] = {{1e6, "us"}, {1e3, "ms"}, {1, "s "}};
  char text[32];
  for (const auto &scale : scales) {
    std::snprintf(text, sizeof text, "%.2f %s", seconds * scale.factor, scale.unit);
    if (seconds * scale.factor < 1000) {
      break;
    }
  }
  return text;
}

std::string showMemory(long kib) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f MiB", static_cast<double>(kib) / 1024);
  return kib == 0 ? "-" : text;
}

std::string showBound(double bound) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", bound);
  return bound > 0 ? text : "-";
}

constexpr char kLine[] = "%-30s %6s %7s %11s %11s %12s %12s%s\n";

}  // namespace

void TableReporter::add(const Figure &figure, const PeakMemory &peak) {
  rows_.push_back({figure.name, figure.bound, peak});
}

bool TableReporter::ReportContext(const Context & /*context*/) {
  std::printf(kLine, "", "", "", "library", "bare", "peak memory", "peak memory", "");
  std::printf(kLine, "what", "ratio", "at most", "one", "one", "library", "bare", "");
  return true;
}

void TableReporter::ReportRuns(const std::vector<Run> &runs) {
  for (const Run &run : runs) {
    for (const Row &row : rows_) {
      if (run.aggregate_name == "median" && run.run_name.function_name == row.name) {
        print(row, run);
      }
    }
  }
}

void TableReporter::print(const Row &row, const Run &medians) const {
  const double ratio = medians.counters.at(kRatio);
  char ratioText[32];
  std::snprintf(ratioText, sizeof ratioText, "%.2f", ratio);
  const bool isAbove = row.bound > 0 && ratio > row.bound;
  std::printf(kLine, row.name.c_str(), ratioText, showBound(row.bound).c_str(),
              showTime(medians.counters.at(kLibrary)).c_str(),
              showTime(medians.counters.at(kBare)).c_str(), showMemory(row.peak.library).c_str(),
              showMemory(row.peak.bare).c_str(), isAbove ? "  above its bound" : "");
  std::fflush(stdout);
}

}  // namespace arvl_bench
