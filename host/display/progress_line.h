// How far a step is, in one line.
#ifndef ARVL_HOST_DISPLAY_PROGRESS_LINE_H_
#define ARVL_HOST_DISPLAY_PROGRESS_LINE_H_

#include <cstdint>
#include <optional>
#include <string>

namespace arvl_host {

// At one moment.
struct StepProgress {
  std::string step;
  std::string stage;              // in the plug-in's words; empty: none yet
  std::optional<int> percentage;  // as the plug-in says
  std::uint64_t files = 0;        // transferred in this step
  std::uint64_t bytes = 0;
  std::optional<std::uint64_t> expectedBytes;  // from the estimate
  double seconds = 0;                          // since the step began
};

// The plug-in's own; else what is transferred of what is expected, which never says 100.
std::optional<int> percentageOf(const StepProgress &progress);

// "export: Copying mail  42 %  1,234 files  56.1 MiB  12.3 MiB/s  0:42 left", without what is not
// known, in at most so many cells of a terminal. Where they do not suffice, the stage is cut before
// the figures go, the last one first. The stage is made visible.
std::string progressLine(const StepProgress &progress, unsigned columns);

}  // namespace arvl_host

#endif  // ARVL_HOST_DISPLAY_PROGRESS_LINE_H_
