#include "display/job_display.h"

#include <sys/ioctl.h>
#include <syslog.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "display/plugin_line.h"
#include "text/durations.h"
#include "text/utf8.h"

namespace arvl_host {

namespace {

constexpr unsigned kUsualColumns = 80;

constexpr double kShowEvery = 0.2;  // seconds

constexpr std::size_t kMaxShown = 1000;  // limit of the remembered stages and tenths

constexpr const char *kBold = "\x1b[1m";
constexpr const char *kRed = "\x1b[31m";
constexpr const char *kYellow = "\x1b[33m";
constexpr const char *kUnstyled = "\x1b[0m";
constexpr const char *kEraseToEnd = "\x1b[K";

std::string_view variable(const char *name) {
  const char *value = std::getenv(name);
  return value == nullptr ? "" : value;
}

unsigned columnsOf(int fd) {
  winsize size = {};
  return ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsualColumns;
}

bool isTrouble(const PluginLine &line) {
  return line.source == LogSource::kSyslog && LOG_PRI(line.priority) <= LOG_WARNING;
}

// Shows fractions of a second only below a minute.
std::string tookText(double seconds) {
  return seconds < 60 ? durationText(static_cast<std::int64_t>(seconds * 1e6)) : clockText(seconds);
}

std::string styled(const std::string &text, const char *style, bool hasColour) {
  const bool isStyled = hasColour && *style != '\0';
  return (isStyled ? style : "") + visibleText(text) + (isStyled ? kUnstyled : "");
}

}  // namespace

DisplayOptions terminalOptions(int out, int errors, Verbosity verbosity) {
  const auto isTerminal = [](int fd) { return isatty(fd) != 0 && variable("TERM") != "dumb"; };
  DisplayOptions options;
  options.verbosity = verbosity;
  options.isTerminal = isTerminal(out);
  options.hasColour = isTerminal(out) && variable("NO_COLOR").empty();
  options.hasErrorColour = isTerminal(errors) && variable("NO_COLOR").empty();
  options.columns = [out] { return columnsOf(out); };
  return options;
}

JobDisplay::JobDisplay(std::ostream &out, std::ostream &errors, DisplayOptions options)
    : out_(out), errors_(errors), options_(std::move(options)) {}

JobDisplay::~JobDisplay() {
  drawLive("");
}

void JobDisplay::heading(const std::string &text) {
  if (!isQuiet()) {
    writeLine(text, kBold);
  }
}

void JobDisplay::stepBegins(const std::string &step) {
  step_ = step;
  shown_.clear();
  if (!isQuiet()) {
    writeLine("step " + step);
  }
}

void JobDisplay::pluginLine(const PluginLine &line) {
  if (!isQuiet() || isTrouble(line)) {
    writeLine(pluginLineText(line));
  }
}

void JobDisplay::note(const std::string &text) {
  if (!isQuiet()) {
    writeLine(text);
  }
}

void JobDisplay::warning(const std::string &text) {
  writeError("warning: " + text, kYellow);
}

void JobDisplay::error(const std::string &text) {
  writeError("error: " + text, kRed);
}

void JobDisplay::detail(const std::string &text) {
  if (options_.verbosity == Verbosity::kVerbose) {
    writeLine(text);
  }
}

void JobDisplay::progress(const StepProgress &progress) {
  if (isQuiet()) {
    return;
  }
  if (options_.isTerminal) {
    // The last column stays free: some terminals start a new line once it is filled.
    const unsigned columns = options_.columns();
    drawLive(progressLine(progress, columns > 0 ? columns - 1 : 0));
  } else {
    writeProgress(progress);
  }
}

void JobDisplay::working(const StepProgress &work) {
  const bool isSoon = std::abs(work.seconds - workingShown_) < kShowEvery;
  if (options_.isTerminal && !isSoon) {
    workingShown_ = work.seconds;
    progress(work);
  }
}

void JobDisplay::stepEnds(const std::string &outcomeText, bool isSuccess, double seconds) {
  drawLive("");
  if (!isQuiet() || !isSuccess) {
    writeLine("step " + step_ + ": " + outcomeText + " (" + tookText(seconds) + ")",
              isSuccess ? "" : kRed);
  }
}

void JobDisplay::writeLine(const std::string &text, const char *style) {
  writeAbove(out_, styled(text, style, options_.hasColour));
}

void JobDisplay::writeError(const std::string &text, const char *style) {
  writeAbove(errors_, styled(text, style, options_.hasErrorColour));
}

// Writes a line above the live line. Both streams may be the same terminal.
void JobDisplay::writeAbove(std::ostream &stream, const std::string &line) {
  if (!live_.empty()) {
    out_ << '\r' << kEraseToEnd << std::flush;
  }
  stream << line << '\n' << std::flush;
  if (!live_.empty()) {
    out_ << live_ << std::flush;
  }
}

void JobDisplay::writeProgress(const StepProgress &progress) {
  const std::optional<int> percentage = percentageOf(progress);
  if (!percentage && progress.stage.empty()) {
    return;
  }
  if (shown_.size() >= kMaxShown) {
    shown_.clear();
  }
  if (shown_.emplace(progress.stage, percentage.value_or(-10) / 10).second) {
    writeLine("[progress]" + (percentage ? " " + std::to_string(*percentage) + " %" : "") +
              (progress.stage.empty() ? "" : " " + progress.stage));
  }
}

void JobDisplay::drawLive(const std::string &line) {
  if (line != live_) {
    live_ = line;
    out_ << '\r' << live_ << kEraseToEnd << std::flush;
  }
}

}  // namespace arvl_host
