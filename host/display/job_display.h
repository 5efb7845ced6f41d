// What a person sees of a job while it runs.
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
  kQuiet,  // warnings and errors, those of a plug-in's syslog and failed steps among them
  kNormal,
  kVerbose,
};

struct DisplayOptions {
  Verbosity verbosity = Verbosity::kNormal;
  bool isTerminal = false;  // whether a line can be drawn again in its place
  bool hasColour = false;
  bool hasErrorColour = false;        // likewise of the stream of the errors
  std::function<unsigned()> columns;  // of the terminal, asked for whenever a line is drawn
};

// For what is written to two descriptors, the first of which has to stay open while its columns are
// asked for. Heeds NO_COLOR and TERM.
DisplayOptions terminalOptions(int out, int errors, Verbosity verbosity);

// Writes lines about a job, each at once: warnings and errors to a stream of their own. On a terminal the
// last line is live: it is taken away before any other line is written, and drawn again after it. Texts are
// made visible, each is one line. Not for several threads at a time. Errors of a stream are left to its
// owner.
class JobDisplay {
 public:
  // The streams, which may be one, have to outlive it.
  JobDisplay(std::ostream &out, std::ostream &errors, DisplayOptions options);
  ~JobDisplay();  // leaves no live line behind
  JobDisplay(const JobDisplay &) = delete;
  JobDisplay &operator=(const JobDisplay &) = delete;

  void heading(const std::string &text);
  void stepBegins(const std::string &step);
  void pluginLine(const PluginLine &line);
  void note(const std::string &text);     // what the host itself has to say
  void warning(const std::string &text);  // "warning: text"
  void error(const std::string &text);    // "error: text"
  void detail(const std::string &text);   // only where verbose

  // Cheap enough for every packet. Off a terminal, one line at most for each stage and tenth.
  void progress(const StepProgress &progress);

  // What the host itself is at: on a terminal only, and not before it has taken a while.
  void working(const StepProgress &work);
  void workEnds() { drawLive(""); }

  // "step export: success (4.20 s)"; ends the live line.
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
  std::string live_;         // as it stands on the terminal; empty: there is none
  double workingShown_ = 0;  // the seconds of the work that was drawn last
  std::set<std::pair<std::string, int>> shown_;  // of this step, off a terminal: stage and tenth
};

}  // namespace arvl_host

#endif  // ARVL_HOST_DISPLAY_JOB_DISPLAY_H_
