#include "display/job_display.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <syslog.h>

#include <cstdlib>
#include <optional>
#include <sstream>
#include <utility>

#include "display/plugin_line.h"
#include "files/unique_fd.h"

namespace arvl_host {
namespace {

DisplayOptions plain(Verbosity verbosity = Verbosity::kNormal) {
  DisplayOptions options;
  options.verbosity = verbosity;
  return options;
}

DisplayOptions terminal(Verbosity verbosity = Verbosity::kNormal) {
  DisplayOptions options = plain(verbosity);
  options.isTerminal = true;
  options.columns = [] { return 30U; };
  return options;
}

DisplayOptions coloured(Verbosity verbosity = Verbosity::kNormal) {
  DisplayOptions options = terminal(verbosity);
  options.hasColour = true;
  options.hasErrorColour = true;
  return options;
}

StepProgress at(const std::string &stage, std::optional<int> percentage = std::nullopt) {
  StepProgress progress;
  progress.step = "export";
  progress.stage = stage;
  progress.percentage = percentage;
  return progress;
}

PluginLine syslogLine(int priority) {
  return {LogSource::kSyslog, priority, "text"};
}

// A display and its output.
struct Screen {
  explicit Screen(DisplayOptions options) : display(std::in_place, out, out, std::move(options)) {}

  // Returns the output since the last call.
  std::string news() {
    std::string text = out.str();
    out.str("");
    return text;
  }

  std::ostringstream out;
  std::optional<JobDisplay> display;
};

// Returns the output of a job with lines of every kind.
std::string wholeJob(DisplayOptions options) {
  Screen screen(std::move(options));
  JobDisplay &display = *screen.display;
  display.heading("backup of notes");
  display.stepBegins("export");
  display.pluginLine({LogSource::kStdout, 0, "hello"});
  display.progress(at("Copying", 42));
  display.pluginLine({LogSource::kSyslog, LOG_ERR, "no such note"});
  display.note("a file is kept");
  display.warning("the estimate was wrong");
  display.detail("3 packets");
  display.stepEnds("failure", false, 4.2);
  display.stepBegins("import");
  display.stepEnds("success", true, 0.0123);
  display.error("cannot go on");
  screen.display.reset();
  return screen.news();
}

TEST(PluginLineText, NamesTheSourceOfALine) {
  EXPECT_EQ(pluginLineText({LogSource::kStdout, 0, "text"}), "[stdout] text");
  EXPECT_EQ(pluginLineText({LogSource::kStderr, 0, "text"}), "[stderr] text");
  EXPECT_EQ(pluginLineText({LogSource::kHost, 0, "text"}), "[host] text");
  EXPECT_EQ(pluginLineText(syslogLine(LOG_EMERG)), "[syslog emerg] text");
  EXPECT_EQ(pluginLineText(syslogLine(LOG_DEBUG)), "[syslog debug] text");
  EXPECT_EQ(pluginLineText(syslogLine(LOG_USER | LOG_ERR)), "[syslog err] text");
}

TEST(PluginLineText, EscapesHiddenCharacters) {
  EXPECT_EQ(pluginLineText({LogSource::kStdout, 0, "a\x1b[2J\xff"}), R"([stdout] a\x1b[2J\xff)");
}

TEST(JobDisplay, WritesPlainLinesWithoutATerminal) {
  EXPECT_EQ(wholeJob(plain()),
            "backup of notes\n"
            "step export\n"
            "[stdout] hello\n"
            "[progress] 42 % Copying\n"
            "[syslog err] no such note\n"
            "a file is kept\n"
            "warning: the estimate was wrong\n"
            "step export: failure (4.20 s)\n"
            "step import\n"
            "step import: success (12.3 ms)\n"
            "error: cannot go on\n");
}

TEST(JobDisplay, WritesDetailsIfVerbose) {
  EXPECT_EQ(wholeJob(plain(Verbosity::kVerbose)),
            "backup of notes\n"
            "step export\n"
            "[stdout] hello\n"
            "[progress] 42 % Copying\n"
            "[syslog err] no such note\n"
            "a file is kept\n"
            "warning: the estimate was wrong\n"
            "3 packets\n"
            "step export: failure (4.20 s)\n"
            "step import\n"
            "step import: success (12.3 ms)\n"
            "error: cannot go on\n");
}

TEST(JobDisplay, WritesOnlyErrorsAndWarningsIfQuiet) {
  const char *lines =
      "[syslog err] no such note\n"
      "warning: the estimate was wrong\n"
      "step export: failure (4.20 s)\n"
      "error: cannot go on\n";
  EXPECT_EQ(wholeJob(plain(Verbosity::kQuiet)), lines);
  EXPECT_EQ(wholeJob(terminal(Verbosity::kQuiet)), lines);
}

TEST(JobDisplay, WritesTheWarningsAndErrorsOfAPluginIfQuiet) {
  Screen screen(plain(Verbosity::kQuiet));
  for (int priority = LOG_EMERG; priority <= LOG_DEBUG; ++priority) {
    screen.display->pluginLine(syslogLine(LOG_USER | priority));
  }
  screen.display->pluginLine({LogSource::kStderr, LOG_EMERG, "text"});
  EXPECT_EQ(screen.news(),
            "[syslog emerg] text\n"
            "[syslog alert] text\n"
            "[syslog crit] text\n"
            "[syslog err] text\n"
            "[syslog warning] text\n");
}

TEST(JobDisplay, KeepsTheLiveLineBelowAllOthersOnATerminal) {
  EXPECT_EQ(wholeJob(terminal()),
            "backup of notes\n"
            "step export\n"
            "[stdout] hello\n"
            "\rexport: Copying  42 %\x1b[K"
            "\r\x1b[K[syslog err] no such note\nexport: Copying  42 %"
            "\r\x1b[Ka file is kept\nexport: Copying  42 %"
            "\r\x1b[Kwarning: the estimate was wrong\nexport: Copying  42 %"
            "\r\x1b[Kstep export: failure (4.20 s)\n"
            "step import\n"
            "step import: success (12.3 ms)\n"
            "error: cannot go on\n");
}

TEST(JobDisplay, StylesHeadingsWarningsAndErrorsInColour) {
  EXPECT_EQ(wholeJob(coloured()),
            "\x1b[1mbackup of notes\x1b[0m\n"
            "step export\n"
            "[stdout] hello\n"
            "\rexport: Copying  42 %\x1b[K"
            "\r\x1b[K[syslog err] no such note\nexport: Copying  42 %"
            "\r\x1b[Ka file is kept\nexport: Copying  42 %"
            "\r\x1b[K\x1b[33mwarning: the estimate was wrong\x1b[0m\nexport: Copying  42 %"
            "\r\x1b[K\x1b[31mstep export: failure (4.20 s)\x1b[0m\n"
            "step import\n"
            "step import: success (12.3 ms)\n"
            "\x1b[31merror: cannot go on\x1b[0m\n");
}

TEST(JobDisplay, RedrawsTheLiveLineOnlyIfItChanged) {
  Screen screen(terminal());
  screen.display->progress(at("Copying", 42));
  EXPECT_EQ(screen.news(), "\rexport: Copying  42 %\x1b[K");
  screen.display->progress(at("Copying", 42));
  EXPECT_EQ(screen.news(), "");
  screen.display->progress(at("Copying", 43));
  EXPECT_EQ(screen.news(), "\rexport: Copying  43 %\x1b[K");
}

// Returns the progress of work of the host.
StepProgress workAt(double seconds) {
  StepProgress work;
  work.step = "verify";
  work.files = 2;
  work.seconds = seconds;
  return work;
}

TEST(JobDisplay, ShowsTheWorkOfTheHostOnlyWhenItTakesAWhile) {
  Screen screen(terminal());
  screen.display->working(workAt(0));
  screen.display->working(workAt(0.19));
  EXPECT_EQ(screen.news(), "");
  screen.display->working(workAt(0.2));
  EXPECT_EQ(screen.news(), "\rverify  2 files\x1b[K");
  StepProgress later = workAt(0.3);
  later.files = 3;
  screen.display->working(later);
  EXPECT_EQ(screen.news(), "");
  later.seconds = 0.5;
  screen.display->working(later);
  EXPECT_EQ(screen.news(), "\rverify  3 files\x1b[K");
  screen.display->workEnds();
  EXPECT_EQ(screen.news(), "\r\x1b[K");
}

TEST(JobDisplay, ShowsTheWorkOfTheHostOnATerminalOnly) {
  for (const DisplayOptions &options : {plain(), terminal(Verbosity::kQuiet)}) {
    Screen screen(options);
    StepProgress work = workAt(10);
    work.bytes = 1;
    work.expectedBytes = 2;
    screen.display->working(work);
    screen.display->workEnds();
    EXPECT_EQ(screen.news(), "");
  }
}

TEST(JobDisplay, LeavesNoLiveLineBehind) {
  Screen screen(terminal());
  screen.display->progress(at("Copying"));
  screen.news();
  screen.display.reset();
  EXPECT_EQ(screen.news(), "\r\x1b[K");

  Screen idle(terminal());
  idle.display.reset();
  EXPECT_EQ(idle.news(), "");
}

TEST(JobDisplay, LeavesTheLastColumnFree) {
  unsigned columns = 0;
  DisplayOptions options = terminal();
  options.columns = [&columns] { return columns; };
  Screen screen(options);
  const std::pair<unsigned, const char *> rows[] = {
      {16, "\rexport: Copying\x1b[K"},
      {15, "\rexport: Copyi…\x1b[K"},
      {2, "\r…\x1b[K"},
      {1, "\r\x1b[K"},
      {0, ""},
  };
  for (const auto &[width, drawn] : rows) {
    columns = width;
    screen.display->progress(at("Copying"));
    EXPECT_EQ(screen.news(), drawn) << width;
  }
}

TEST(JobDisplay, WritesNoProgressTwiceWithoutATerminal) {
  Screen screen(plain());
  screen.display->stepBegins("export");
  screen.display->progress(at(""));
  screen.display->progress(at("Copying"));
  for (const int percentage : {1, 1, 2, 9, 12, 1, 19, 20, 100}) {
    screen.display->progress(at("Copying", percentage));
  }
  screen.display->progress(at("Checking", 2));
  screen.display->progress(at("", 2));
  EXPECT_EQ(screen.news(),
            "step export\n"
            "[progress] Copying\n"
            "[progress] 1 % Copying\n"
            "[progress] 12 % Copying\n"
            "[progress] 20 % Copying\n"
            "[progress] 100 % Copying\n"
            "[progress] 2 % Checking\n"
            "[progress] 2 %\n");
  screen.display->stepBegins("import");
  screen.display->progress(at("Copying", 2));
  EXPECT_EQ(screen.news(), "step import\n[progress] 2 % Copying\n");
}

TEST(JobDisplay, WritesALineForEachTenthOfTheBytesWithoutATerminal) {
  Screen screen(plain());
  StepProgress progress = at("");
  progress.expectedBytes = 1000;
  for (progress.bytes = 0; progress.bytes < 250; ++progress.bytes) {
    screen.display->progress(progress);
  }
  EXPECT_EQ(screen.news(), "[progress] 0 %\n[progress] 10 %\n[progress] 20 %\n");
}

TEST(JobDisplay, EscapesHiddenCharactersOfEveryText) {
  Screen screen(coloured());
  screen.display->heading("a\n");
  screen.display->note("b\x1b[2J");
  screen.display->warning("c\r");
  screen.display->stepBegins("d\t");
  screen.display->stepEnds("e\xff", true, 1);
  EXPECT_EQ(screen.news(),
            "\x1b[1ma\\n\x1b[0m\n"
            "b\\x1b[2J\n"
            "\x1b[33mwarning: c\\r\x1b[0m\n"
            "step d\\t\n"
            "step d\\t: e\\xff (1.00 s)\n");
  screen.display->progress(at("f\x1b"));
  EXPECT_EQ(screen.news(), "\rexport: f\\x1b\x1b[K");

  Screen log(plain());
  log.display->progress(at("f\x1b", 1));
  EXPECT_EQ(log.news(), "[progress] 1 % f\\x1b\n");
}

TEST(JobDisplay, ShowsMinutesForALongStep) {
  Screen screen(plain());
  screen.display->stepBegins("export");
  screen.display->stepEnds("success", true, 59);
  screen.display->stepEnds("success", true, 3723.4);
  EXPECT_EQ(screen.news(),
            "step export\n"
            "step export: success (59.00 s)\n"
            "step export: success (1:02:03)\n");
}

TEST(JobDisplay, WritesErrorsToTheirStreamAndKeepsTheLiveLine) {
  std::ostringstream out;
  std::ostringstream errors;
  DisplayOptions options = terminal();
  options.hasErrorColour = true;
  JobDisplay display(out, errors, options);
  display.progress(at("Copying", 42));
  out.str("");
  display.warning("slow");
  display.error("broken");
  EXPECT_EQ(errors.str(), "\x1b[33mwarning: slow\x1b[0m\n\x1b[31merror: broken\x1b[0m\n");
  const std::string again = "\r\x1b[Kexport: Copying  42 %";
  EXPECT_EQ(out.str(), again + again);
}

TEST(JobDisplay, FlushesEachLine) {
  struct Counter : std::stringbuf {
    int sync() override { return ++flushes, 0; }
    int flushes = 0;
  } counter;
  std::ostream out(&counter);
  JobDisplay display(out, out, terminal());
  display.note("text");
  EXPECT_EQ(counter.flushes, 1);
  display.progress(at("Copying"));
  EXPECT_EQ(counter.flushes, 2);
}

// ---- terminalOptions

// Sets an environment variable and restores it when destroyed.
class Variable {
 public:
  Variable(const char *name, const char *value) : name_(name) {
    if (const char *before = std::getenv(name)) {
      before_ = before;
    }
    set(value);
  }
  ~Variable() { set(before_ ? before_->c_str() : nullptr); }
  Variable(const Variable &) = delete;
  Variable &operator=(const Variable &) = delete;

  void set(const char *value) {
    if (value == nullptr) {
      unsetenv(name_);
    } else {
      setenv(name_, value, 1);
    }
  }

 private:
  const char *name_;
  std::optional<std::string> before_;
};

class TerminalOptions : public ::testing::Test {
 protected:
  void SetUp() override {
    int master = -1;
    int slave = -1;
    ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    master_.reset(master);
    slave_.reset(slave);
  }

  DisplayOptions options() const {
    return terminalOptions(slave_.get(), slave_.get(), Verbosity::kVerbose);
  }

  void resize(unsigned short columns) {
    winsize size = {};
    size.ws_row = 24;
    size.ws_col = columns;
    ASSERT_EQ(ioctl(master_.get(), TIOCSWINSZ, &size), 0);
  }

  Variable term_{"TERM", "xterm"};
  Variable noColour_{"NO_COLOR", nullptr};
  UniqueFd master_;
  UniqueFd slave_;
};

TEST_F(TerminalOptions, DetectsATerminalAndItsColumns) {
  const DisplayOptions found = options();
  EXPECT_EQ(found.verbosity, Verbosity::kVerbose);
  EXPECT_TRUE(found.isTerminal);
  EXPECT_TRUE(found.hasColour);
  resize(100);
  EXPECT_EQ(found.columns(), 100U);
  resize(50);
  EXPECT_EQ(found.columns(), 50U);
  resize(0);
  EXPECT_EQ(found.columns(), 80U);
}

TEST_F(TerminalOptions, DetectsThatAFileIsNotATerminal) {
  const UniqueFd file(open("/dev/null", O_WRONLY | O_CLOEXEC));
  const DisplayOptions found = terminalOptions(file.get(), file.get(), Verbosity::kQuiet);
  EXPECT_EQ(found.verbosity, Verbosity::kQuiet);
  EXPECT_FALSE(found.isTerminal);
  EXPECT_FALSE(found.hasColour);
  EXPECT_EQ(found.columns(), 80U);
}

TEST_F(TerminalOptions, ObeysNoColorUnlessItIsEmpty) {
  noColour_.set("0");
  EXPECT_TRUE(options().isTerminal);
  EXPECT_FALSE(options().hasColour);
  noColour_.set("");
  EXPECT_TRUE(options().hasColour);
}

TEST_F(TerminalOptions, TreatsADumbTerminalAsAFile) {
  term_.set("dumb");
  EXPECT_FALSE(options().isTerminal);
  EXPECT_FALSE(options().hasColour);
  term_.set(nullptr);
  EXPECT_TRUE(options().isTerminal);
}

}  // namespace
}  // namespace arvl_host
