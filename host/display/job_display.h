// Shows a running job to a person.
#ifndef ARVL_HOST_DISPLAY_JOB_DISPLAY_H_
#define ARVL_HOST_DISPLAY_JOB_DISPLAY_H_

#include <functional>
#include <ostream>
#include <set>
#include <string>
#include <utility>

#include "display/progress_line.h"
#include "step/step_runner.h"

namespace arvl_host {

enum class Verbosity {
  kQuiet,  // warnings and errors, also from a plug-in's syslog, and failed steps
  kNormal,
  kVerbose,
};

struct DisplayOptions {
  Verbosity verbosity = Verbosity::kNormal;
  bool isTerminal = false;  // whether a line can be redrawn
  bool hasColour = false;
  bool hasErrorColour = false;        // of the error stream
  std::function<unsigned()> columns;  // of the terminal; called for each live line
};

// Returns the options for output to two descriptors, by NO_COLOR and TERM. The first descriptor must stay open
// while the options are used.
DisplayOptions terminalOptions(int out, int errors, Verbosity verbosity);

// Writes lines about a job and flushes each. Warnings and errors go to a stream of their own. On a terminal the
// last line is live: it is erased before any other line is written, and redrawn after it. Each text becomes one
// line, with hidden characters escaped. Not thread-safe. Does not check the streams for errors.
class JobDisplay {
 public:
  // The streams must outlive the display. They may be the same one.
  JobDisplay(std::ostream &out, std::ostream &errors, DisplayOptions options);
  ~JobDisplay();  // erases the live line
  JobDisplay(const JobDisplay &) = delete;
  JobDisplay &operator=(const JobDisplay &) = delete;

  void heading(const std::string &text);
  void stepBegins(const std::string &step);
  void pluginLine(const PluginLine &line);
  void note(const std::string &text);     // a line of the host itself
  void warning(const std::string &text);  // "warning: text"
  void error(const std::string &text);    // "error: text"
  void detail(const std::string &text);   // only if verbose

  // Cheap enough for every packet. Without a terminal, writes at most one line for each stage and 10 %.
  void progress(const StepProgress &progress);

  // Shows the work of the host itself, on a terminal only and not during its first moments.
  void working(const StepProgress &work);
  void workEnds() { drawLive(""); }

  // Erases the live line and writes "step export: success (4.20 s)".
  void stepEnds(const std::string &outcomeText, bool isSuccess, double seconds);

 private:
  bool isQuiet() const { return options_.verbosity == Verbosity::kQuiet; }
  void writeLine(const std::string &text, const char *style = "");
  void writeError(const std::string &text, const char *style);
  void writeAbove(std::ostream &stream, const std::string &line);
  void writeProgress(const StepProgress &progress);
  void drawLive(const std::string &line);

  std::ostream &out_;
  std::ostream &errors_;
  const DisplayOptions options_;
  std::string step_;
  std::string live_;         // on the terminal; empty if there is none
  double workingShown_ = 0;  // seconds of the work when it was last drawn
  std::set<std::pair<std::string, int>>
      shown_;  // stages and tenths of this step, without a terminal
};

}  // namespace arvl_host

#endif  // ARVL_HOST_DISPLAY_JOB_DISPLAY_H_
