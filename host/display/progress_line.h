// Formats the progress of a step as one line.
#ifndef ARVL_HOST_DISPLAY_PROGRESS_LINE_H_
#define ARVL_HOST_DISPLAY_PROGRESS_LINE_H_

#include <cstdint>
#include <optional>
#include <string>

namespace arvl_host {

// The progress of a step at one moment.
struct StepProgress {
  std::string step;
  std::string stage;              // from the plug-in; empty if it gave none
  std::optional<int> percentage;  // from the plug-in
  std::uint64_t files = 0;        // transferred in this step
  std::uint64_t bytes = 0;
  std::optional<std::uint64_t> expectedBytes;  // from the estimate
  double seconds = 0;                          // since the step began
};

// Returns the plug-in's percentage, or else that of the transferred bytes, at most 99.
std::optional<int> percentageOf(const StepProgress &progress);

// Returns a line such as "export: Copying mail  42 %  1,234 files  56.1 MiB  12.3 MiB/s  0:42 left", of at most
// `columns` cells. Omits unknown figures. If the line is too long, it cuts the stage first, then drops figures from
// the end. Hidden characters of the stage are escaped.
std::string progressLine(const StepProgress &progress, unsigned columns);

}  // namespace arvl_host

#endif  // ARVL_HOST_DISPLAY_PROGRESS_LINE_H_
