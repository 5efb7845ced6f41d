#include "display/progress_line.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "display/cells.h"
#include "text/durations.h"
#include "text/sizes.h"
#include "text/utf8.h"

namespace arvl_host {

namespace {

// In seconds. A longer estimate helps nobody.
constexpr double kLongestTimeLeft = 100.0 * 3600;

// "1,234 files"
std::string filesText(std::uint64_t files) {
  std::string text = countText(files, "file");
  for (std::size_t at = text.find(' '); at > 3;) {
    at -= 3;
    text.insert(at, ",");
  }
  return text;
}

// Uses the expected bytes until they are reached, then the percentage.
std::optional<double> secondsLeft(const StepProgress &progress) {
  std::optional<double> left;
  if (progress.bytes > 0 && progress.bytes < progress.expectedBytes) {
    const auto missing = static_cast<double>(*progress.expectedBytes - progress.bytes);
    left = progress.seconds * missing / static_cast<double>(progress.bytes);
  } else if (progress.percentage > 0 && progress.percentage < 100) {
    left = progress.seconds * (100 - *progress.percentage) / *progress.percentage;
  }
  return progress.seconds > 0 && left < kLongestTimeLeft ? left : std::nullopt;
}

std::uint64_t bytesPerSecond(const StepProgress &progress) {
  return static_cast<std::uint64_t>(
      std::llround(static_cast<double>(progress.bytes) / progress.seconds));
}

std::vector<std::string> figuresOf(const StepProgress &progress) {
  std::vector<std::string> figures;
  if (const std::optional<int> percentage = percentageOf(progress)) {
    figures.push_back(std::to_string(*percentage) + " %");
  }
  if (progress.files > 0) {
    figures.push_back(filesText(progress.files));
  }
  if (progress.bytes > 0) {
    figures.push_back(sizeText(progress.bytes));
  }
  if (progress.bytes > 0 && progress.seconds > 0) {
    figures.push_back(sizeText(bytesPerSecond(progress)) + "/s");
  }
  if (const std::optional<double> left = secondsLeft(progress)) {
    figures.push_back(clockText(*left) + " left");
  }
  return figures;
}

}  // namespace

std::optional<int> percentageOf(const StepProgress &progress) {
  if (progress.percentage || progress.expectedBytes.value_or(0) == 0) {
    return progress.percentage;
  }
  const double percentage =
      100.0 * static_cast<double>(progress.bytes) / static_cast<double>(*progress.expectedBytes);
  return static_cast<int>(std::min(percentage, 99.0));
}

std::string progressLine(const StepProgress &progress, unsigned columns) {
  const std::string step = cutToCells(progress.step, columns);
  unsigned room = columns - cellsOf(step);
  std::string figures;
  for (const std::string &figure : figuresOf(progress)) {
    if (figure.size() + 2 > room) {
      break;
    }
    room -= static_cast<unsigned>(figure.size()) + 2;
    figures += "  " + figure;
  }
  const std::string stage = room > 2 ? cutToCells(visibleText(progress.stage), room - 2) : "";
  return step + (stage.empty() ? "" : ": ") + stage + figures;
}

}  // namespace arvl_host
