// "arvl-host step" against plug-ins that behave and plug-ins that do not.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <json/writer.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "host/support/command.h"
#include "support/temp_dir.h"

namespace {

using namespace arvl_test;

std::vector<std::string> stepCommand(const std::string &step, const std::string &plugin,
                                     const std::vector<std::string> &more = {}) {
  std::vector<std::string> words = {ARVL_HOST, "step", step, "--plugin", plugin};
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

ProcessResult runUnruly(const std::string &how, const std::string &step = "import",
                        const std::vector<std::string> &more = {}) {
  return run(stepCommand(step, UNRULY_PLUGIN, more), {"UNRULY=" + how});
}

std::string without(std::string line, const std::string &part) {
  const std::size_t at = line.find(part);
  return at == std::string::npos ? line : line.erase(at);
}

// "step import: success", without the time.
std::string verdictOf(const ProcessResult &result) {
  return without(lastLine(result.out), " (");
}

// Returns the process ID of the plug-in from the first line.
std::string processOf(const std::string &out) {
  const std::size_t at = out.find("(process ") + 9;
  return out.substr(at, out.find(',', at) - at);
}

int packetsOf(const ProcessResult &result) {
  const std::string line = lastLine(result.out);
  return std::atoi(line.c_str() + line.rfind(", ") + 2);
}

bool isGone(const std::string &pid) {
  return kill(std::atoi(pid.c_str()), 0) != 0 && errno == ESRCH;
}

TEST(Step, OfEachNameSucceeds) {
  for (const std::string step :
       {"estimate_exportion", "can_export", "export", "can_import", "import"}) {
    const ProcessResult result = runUnruly("", step);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(verdictOf(result), "step " + step + ": success");
    EXPECT_TRUE(holds(lastLine(result.out), " s, 1 packet)"));
    EXPECT_EQ(result.err, "");
  }
}

TEST(Step, ShowsTheReasonOfAFailure) {
  const ProcessResult result = runUnruly("fails with a reason");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(verdictOf(result), "step import: failure");
  EXPECT_TRUE(holds(result.out, "\n  err_msg.key: a key\n  err_msg.section: a section\n"));
}

TEST(Step, ShowsEveryLineWithItsSource) {
  const ProcessResult result = runUnruly("writes to every channel");
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(holds(result.out, "\n[stdout] to stdout\n"));
  EXPECT_TRUE(holds(result.out, "\n[stderr] to stderr\n"));
  EXPECT_TRUE(holds(result.out, "\n[stderr] without a line feed\n"));
  EXPECT_TRUE(holds(result.out, "\n[syslog info] to syslog 5 %\n"));
  EXPECT_TRUE(holds(result.out, "\n[stdout] a \\x1b[31mred\\x1b[0m bell \\x07 and \\xff\n"));
}

TEST(Step, ShowsSyslogLinesHoweverTheyAreWritten) {
  const ProcessResult result = runUnruly("logs in every way");
  EXPECT_EQ(result.status, 0);
  for (const char *priority :
       {"emerg", "alert", "crit", "err", "warning", "notice", "info", "debug"}) {
    EXPECT_TRUE(holds(result.out, std::string("\n[syslog ") + priority + "] Permission denied\n"));
  }
  EXPECT_TRUE(holds(result.out, "\n[stdout] errno is kept\n"));
  EXPECT_TRUE(holds(result.out, "\n[syslog err] " + std::string(3000, 'l') + "|\n"));
  EXPECT_TRUE(holds(result.out, "\n[syslog err] " + std::string(65534, 'm') + "\n"));
  EXPECT_TRUE(holds(result.out, "\n[syslog err] by vsyslog\n"));
  EXPECT_TRUE(holds(result.out, "\n[syslog err] by __syslog_chk\n"));
}

TEST(Step, SendsNoSyslogLineOverADescriptorOfThePlugin) {
  const ProcessResult result = runUnruly("closes the log channel");
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(holds(result.out, "\n[stdout] nothing arrived\n"));
}

TEST(Step, KeepsThePreloadedLibrariesOfTheUser) {
  const ProcessResult result = run(stepCommand("import", UNRULY_PLUGIN),
                                   {"UNRULY=shows what is preloaded", "LD_PRELOAD=/no/such.so"});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(holds(result.out, "/libarvl-syslog-preload.so:/no/such.so\n"));
}

TEST(Step, GivesThePluginFiveDescriptorsAndNoMore) {
  const ProcessResult result = runUnruly("lists its descriptors");
  std::size_t count = 0;
  for (std::size_t at = 0; (at = result.out.find("] descriptor", at)) != std::string::npos; ++at) {
    ++count;
  }
  EXPECT_EQ(count, 5u) << result.out;
  EXPECT_TRUE(holds(result.out,
                    "[stdout] descriptor /dev/null\n[stdout] descriptor pipe\n"
                    "[stdout] descriptor pipe\n[stdout] descriptor socket\n"
                    "[stdout] descriptor socket\n"));
}

// The host raises its own limit, but must not pass the raised limit on.
TEST(Step, GivesThePluginItsOriginalLimitOfDescriptors) {
  std::vector<std::string> words = {"/bin/sh", "-c", "ulimit -Sn 256 && exec \"$0\" \"$@\""};
  for (const std::string &word : stepCommand("import", UNRULY_PLUGIN)) {
    words.push_back(word);
  }
  const ProcessResult result = run(words, {"UNRULY=shows its limit of descriptors"});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(holds(result.out, "\n[stdout] at most 256\n"));
}

TEST(Step, SurvivesAFloodAndALineOfAMegabyte) {
  const ProcessResult flood = runUnruly("floods");
  EXPECT_EQ(flood.status, 0);
  EXPECT_GT(flood.out.size(), 2000000u);
  const ProcessResult longLine = runUnruly("a line of a megabyte");
  EXPECT_EQ(longLine.status, 0);
  EXPECT_TRUE(holds(longLine.out, "yyy [1044480 more bytes]\n"));
  EXPECT_LT(longLine.out.size(), 10000u);
  EXPECT_EQ(runUnruly("closes its output").status, 0);
}

struct Broken {
  const char *how;
  const char *reason;
};

TEST(Step, NamesTheProtocolViolation) {
  const Broken cases[] = {
      {"garbage", "the plug-in sent bytes that are no packet: the check code is wrong"},
      {"over-long",
       "the plug-in announced a payload of 33554433 bytes; the protocol allows 33554432"},
      {"half a packet", "the connection ended inside a packet"},
      {"another step's completion",
       "the plug-in ended the step import with CAN_EXPORT_RESULT in place of IMPORT_COMPLETE"},
      {"no JSON", "[rule book] the payload is not JSON: "},
      {"breaks the rule",
       "[rule book] [isBasicResultObjectValid]: member [success] is not boolean\n"
       "[rule book] invalid import_complete\n"
       "the rule book refuses the plug-in's IMPORT_COMPLETE\n"},
      {"a packet after the completion",
       "the plug-in sent PACKET_LANGUAGE_REQUEST after its completion"},
      {"the framework's packet",
       "the plug-in sent PACKET_SET_PROGRESS_RESPONSE, which is the framework's to send"},
      {"an unknown type", "[rule book] invalid packet type 99"},
  };
  for (const Broken &row : cases) {
    const ProcessResult result = runUnruly(row.how);
    EXPECT_EQ(result.status, 3) << row.how;
    EXPECT_EQ(verdictOf(result), "step import: protocol violation");
    EXPECT_TRUE(holds(result.out, row.reason)) << row.how;
  }
}

struct Text {
  const char *text;
  int status;
  const char *shown;
};

// The library's end of the connection reads the same texts.
TEST(Step, ReadsAPayloadAsThePluginsEndDoes) {
  const Text cases[] = {
      {R"({"success":true,})", 3, "payload is not JSON: * Line 1, Column 17\\n"},
      {"\xEF\xBB\xBF{\"success\":true}", 3, "payload is not JSON: * Line 1, Column 1\\n"},
      {R"({"success":false,"success":true} and more)", 0, "success: true\n"},
      {"{/* why */\"success\":true // so\n}", 0, "success: true\n"},
      {" {\"success\":true}\n", 0, "success: true\n"},
  };
  for (const Text &row : cases) {
    const TempDir dir;
    const std::string trace = dir.path().string() + "/trace";
    const ProcessResult result =
        run(stepCommand("import", UNRULY_PLUGIN, {"--trace", trace}),
            {"UNRULY=completes with a text", std::string("UNRULY_TEXT=") + row.text});
    EXPECT_EQ(result.status, row.status) << result.out;
    const ProcessResult shown = run({ARVL_HOST, "trace", trace});
    EXPECT_EQ(shown.out.find("INVALID") == std::string::npos, row.status == 0) << shown.out;
    std::ostringstream lines;
    lines << std::ifstream(trace).rdbuf();
    EXPECT_EQ(lines.str().find("payload_text") == std::string::npos, row.status == 0)
        << lines.str();
    EXPECT_TRUE(holds(result.out, row.shown));
  }
}

ProcessResult runWithArray(int elements) {
  return run(stepCommand("import", UNRULY_PLUGIN),
             {"UNRULY=completes with an array", "UNRULY_ELEMENTS=" + std::to_string(elements)});
}

TEST(Step, RefusesAPayloadOfTooManyValuesBeforeItIsParsed) {
  const ProcessResult most = runWithArray(99997);  // and the object, "success" and the array
  EXPECT_EQ(most.status, 0) << lastLine(most.out);
  const ProcessResult more = runWithArray(99998);
  EXPECT_EQ(more.status, 3);
  EXPECT_TRUE(
      holds(more.out,
            "\nthe plug-in's IMPORT_COMPLETE: the payload may hold 100001 values; arvl-host "
            "reads at most 100000\nstep import: protocol violation"));
}

TEST(Step, AcceptsTheLongestText) {
  const ProcessResult result = runUnruly("completes with a long text");
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(holds(result.out.substr(0, 300), "  text: xxx"));
}

TEST(Step, ReadsNoRequestBeforeThePreviousAnswerIsSent) {
  const TempDir store;
  const ProcessResult result =
      runUnruly("asks and never reads", "import",
                {"--timeout", "0.5", "--grace", "0.1", "--store", store.path().string()});
  EXPECT_EQ(result.status, 4);
  EXPECT_LE(packetsOf(result), 2);  // the answer to the first does not fit the socket
}

TEST(Step, ReadsACompletionAfterThePluginStopsReading) {
  Command command(stepCommand("import", UNRULY_PLUGIN),
                  {"UNRULY=completes without reading an answer"});
  ASSERT_TRUE(command.waitFor("[progress] 1 % begun\n"));
  kill(std::atoi(processOf(command.outSoFar()).c_str()), SIGUSR1);
  const ProcessResult result = command.finish();
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_TRUE(holds(lastLine(result.out), " s, 3 packets)"));
}

TEST(Step, SaysThatAnEstimateDoesNotFit) {
  const ProcessResult result = runUnruly("an estimate of 3 GB", "estimate_exportion");
  EXPECT_EQ(result.status, 3);
  EXPECT_TRUE(holds(result.out,
                    "the estimate is refused: its size of 3000000000 does not fit the 32 bits that "
                    "the protocol has for it\n"));
}

TEST(Step, NamesHowAPluginDied) {
  const ProcessResult exits = runUnruly("exits with 3");
  EXPECT_EQ(exits.status, 5);
  EXPECT_TRUE(holds(exits.out, "the plug-in ended with status 3 and without a completion\n"));
  EXPECT_EQ(verdictOf(exits), "step import: no completion");

  const ProcessResult crashes = runUnruly("crashes");
  EXPECT_EQ(crashes.status, 5);
  EXPECT_TRUE(holds(crashes.out, "the plug-in crashed: SIGSEGV\n"));

  const ProcessResult late = runUnruly("completes and crashes");
  EXPECT_EQ(late.status, 5);
  EXPECT_TRUE(holds(late.out, "the plug-in crashed: SIGABRT, after its completion\n"));
}

TEST(Step, TrustsTheCompletionWhenTheStatusDisagrees) {
  const ProcessResult result = runUnruly("completes and exits with 3");
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(holds(result.out, "the plug-in ended with status 3; its completion decides\n"));
}

TEST(Step, EndsAPluginThatHangs) {
  for (const std::string how :
       {"hangs", "hangs and ignores TERM", "completes and hangs", "logs for good"}) {
    const ProcessResult result = runUnruly(how, "import", {"--timeout", "1", "--grace", "0.1"});
    EXPECT_EQ(result.status, 4) << how;
    EXPECT_TRUE(how == "logs for good" || holds(result.out, "[stdout] hanging\n"));
    EXPECT_EQ(verdictOf(result), "step import: time-out");
    EXPECT_TRUE(isGone(processOf(result.out)));
  }
}

TEST(Step, EndsAPluginThatKeepsRunningAfterAHangUpBeforeItsCompletion) {
  for (const std::string how : {"closes and lives on", "closes and ignores TERM"}) {
    const ProcessResult result = runUnruly(how, "import", {"--grace", "0.1"});
    EXPECT_EQ(result.status, 5) << how;
    EXPECT_TRUE(holds(result.out,
                      "the plug-in closed its connection before its completion and did not end\n"));
    EXPECT_EQ(verdictOf(result), "step import: no completion");
    EXPECT_TRUE(isGone(processOf(result.out)));
  }
}

TEST(Step, EndsAPluginThatKeepsRunningAfterAHangUpInsideAPacket) {
  const ProcessResult result =
      runUnruly("closes inside a packet and lives on", "import", {"--grace", "0.1"});
  EXPECT_EQ(result.status, 3);
  EXPECT_TRUE(holds(result.out, "\nthe connection ended inside a packet\n"));
  EXPECT_TRUE(isGone(processOf(result.out)));
}

TEST(Step, NamesHowAPluginEndedInTheGracePeriodAfterItsHangUp) {
  Command command(stepCommand("import", UNRULY_PLUGIN, {"--grace", "1000"}),
                  {"UNRULY=closes and exits with 3 when told"});
  ASSERT_TRUE(command.waitFor("[stdout] closed\n"));
  kill(std::atoi(processOf(command.outSoFar()).c_str()), SIGUSR1);
  const ProcessResult result = command.finish();
  EXPECT_EQ(result.status, 5);
  EXPECT_TRUE(holds(result.out, "the plug-in ended with status 3 and without a completion\n"));
}

TEST(Step, LeavesNoProcessOfThePluginBehind) {
  const ProcessResult result = runUnruly("leaves a child that holds its output");
  EXPECT_EQ(result.status, 5);
  const std::size_t at = result.out.find("[stdout] child ") + 15;
  EXPECT_TRUE(isGone(result.out.substr(at, result.out.find('\n', at) - at)));
}

TEST(Step, CancelsThePluginOnCtrlC) {
  for (const int number : {SIGINT, SIGTERM}) {
    Command command(stepCommand("export", UNRULY_PLUGIN), {"UNRULY=waits for a cancel"});
    ASSERT_TRUE(command.waitFor("[stdout] waiting\n"));
    command.signal(number);
    const ProcessResult result = command.finish();
    EXPECT_EQ(result.status, 130);
    EXPECT_TRUE(holds(result.out, "[stdout] canceled\n"));
    EXPECT_EQ(verdictOf(result), "step export: interrupted");
  }
}

TEST(Step, KillsThePluginOnTheSecondCtrlC) {
  Command command(stepCommand("export", UNRULY_PLUGIN, {"--grace", "1000"}),
                  {"UNRULY=hangs and ignores TERM"});
  ASSERT_TRUE(command.waitFor("[stdout] hanging\n"));
  command.signal(SIGINT);
  command.signal(SIGTERM);
  EXPECT_EQ(command.finish().status, 130);
}

TEST(Step, AbortsACopyOnCtrlC) {
  const TempDir dir;
  const std::string source = dir.path().string() + "/large";
  const std::string store = dir.path().string() + "/store";
  const int large = open(source.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_EQ(posix_fallocate(large, 0, off_t(1) << 30), 0);  // quick to allocate, slow to copy
  close(large);
  std::filesystem::create_directory(store);

  Command command(stepCommand("export", UNRULY_PLUGIN, {"--store", store, "--grace", "0.1"}),
                  {"UNRULY=uploads", "UNRULY_FILE=" + source});
  ASSERT_TRUE(command.waitFor("[stdout] uploading\n"));
  command.signal(SIGINT);
  const ProcessResult result = command.finish();
  EXPECT_EQ(result.status, 130);
  EXPECT_TRUE(std::filesystem::is_empty(store));
}

struct Usage {
  std::vector<std::string> words;
  std::string message;
};

TEST(Step, RefusesWrongUsageAndNamesIt) {
  const std::string plugin = UNRULY_PLUGIN;
  const std::vector<Usage> cases = {
      {{}, "a command is required"},
      {{"step"}, "name is required"},
      {{"step", "export"}, "--plugin is required"},
      {{"step", "exporter", "--plugin", plugin}, "exporter not in"},
      {{"step", "export", "--plugin", "/no such folder"},
       "Directory does not exist: /no such folder"},
      {{"step", "export", "--plugin", "/usr"},
       "there is no \"export\" in /usr: the plug-in has no executable for this step"},
      {{"step", "export", "--plugin", plugin, "--framework-version", "2"},
       "two numbers joined by a full stop, such as 2.3, not \"2\""},
      {{"step", "export", "--plugin", plugin, "--framework-version", "2.x"}, "not \"2.x\""},
      {{"step", "export", "--plugin", plugin, "--timeout", "0"}, "--timeout"},
      {{"step", "export", "--plugin", plugin, "--timeout", "soon"},
       "a time is a number of seconds from 0.001 to 1000000, not \"soon\""},
      {{"step", "export", "--plugin", plugin, "--timeout", "nan"}, "not \"nan\""},
      {{"step", "export", "--plugin", plugin, "--grace", "-1"}, "not \"-1\""},
      {{"step", "export", "--plugin", plugin, "--no-such-option"}, "--no-such-option"},
      {{"step", "export", "--plugin", plugin, "--export-config", "/no/file"}, "/no/file"},
      {{"step", "export", "--plugin", plugin, "--store", "/no/folder"}, "/no/folder"},
  };
  for (const Usage &row : cases) {
    std::vector<std::string> words = {ARVL_HOST};
    words.insert(words.end(), row.words.begin(), row.words.end());
    const ProcessResult result = run(words);
    EXPECT_EQ(result.status, 2) << row.message;
    EXPECT_TRUE(holds(result.err, row.message));
    EXPECT_EQ(result.out, "");
  }
}

TEST(Step, RefusesAnExecutableThatCannotBeRun) {
  const TempDir dir;
  const std::string path = dir.path().string() + "/export";
  std::ofstream(path) << "no program\n";
  const ProcessResult notExecutable = run(stepCommand("export", dir.path().string()));
  EXPECT_EQ(notExecutable.status, 2);
  EXPECT_TRUE(holds(notExecutable.err, path + " is not an executable file"));

  std::ofstream(path) << "#!/no/such/interpreter\n";
  chmod(path.c_str(), 0755);
  const ProcessResult noInterpreter = run(stepCommand("export", dir.path().string()));
  EXPECT_EQ(noInterpreter.status, 2);
  EXPECT_TRUE(holds(noInterpreter.err, "cannot run " + path + ": No such file or directory"));
}

TEST(Step, ListsEveryOptionInItsHelp) {
  const ProcessResult help = run({ARVL_HOST, "step", "--help"});
  EXPECT_EQ(help.status, 0);
  for (const char *part : {"--plugin", "--framework-version", "--timeout", "--grace", "--store",
                           "--language", "--folder", "--app", "--export-config", "--export-result",
                           "--list-page", "--backup", "130", "rule-book"}) {
    EXPECT_TRUE(holds(help.out, part));
  }
  EXPECT_EQ(run({ARVL_HOST, "--help"}).status, 0);
  EXPECT_EQ(run({ARVL_HOST, "--version"}).status, 0);
}

// ---- Answers of the framework to the minimal plug-in, which uses every request.

class Minimal : public testing::Test {
 protected:
  Minimal() {
    for (const char *folder : {"store", "source", "source/sub", "target"}) {
      std::filesystem::create_directory(at(folder));
    }
    std::ofstream(at("source/a file")) << "contents";
    std::ofstream(at("source/sub/b"));
    std::filesystem::create_symlink("/etc/passwd", at("source/sub/link"));
    std::filesystem::permissions(at("source/a file"), std::filesystem::perms(0640));
    std::ofstream(at("result.json")) << R"({"success":true,"app_data_version":"1.7"})";
  }

  std::string at(const std::string &name) const { return dir_.path().string() + "/" + name; }

  ProcessResult step(const std::string &name, const std::vector<std::string> &more = {}) const {
    return run(stepCommand(name, MINIMAL_PLUGIN, more),
               {"MINIMAL_DIRS=" + at("source"), "MINIMAL_TARGET=" + at("target")});
  }

  const TempDir dir_;
};

TEST_F(Minimal, IsBackedUpAndRestored) {
  EXPECT_EQ(step("summary").status, 0);
  EXPECT_EQ(step("estimate_exportion").status, 0);
  EXPECT_EQ(step("can_export").status, 0);
  const ProcessResult exported = step("export", {"--store", at("store")});
  EXPECT_EQ(exported.status, 0);
  EXPECT_TRUE(holds(exported.out, "[progress] 100 % Exporting documents\n"));
  const std::vector<std::string> result = {"--export-result", at("result.json")};
  EXPECT_EQ(step("can_import", result).status, 0);
  const ProcessResult imported = step(
      "import", {"--store", at("store"), "--export-result", at("result.json"), "--list-page", "1"});
  EXPECT_EQ(imported.status, 0) << imported.out;
  const ProcessResult diff =
      run({"/usr/bin/diff", "-r", "--no-dereference", at("source"), at("target/source")});
  EXPECT_EQ(diff.status, 0) << diff.out;
  struct stat status;
  ASSERT_EQ(stat(at("target/source/a file").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
}

TEST_F(Minimal, IsTraced) {
  const ProcessResult result = step("export", {"--store", at("store"), "--trace", at("trace")});
  EXPECT_EQ(result.status, 0);
  const ProcessResult shown = run({ARVL_HOST, "trace", at("trace")});
  EXPECT_EQ(shown.status, 0) << shown.err;
  for (const char *part : {"PACKET_CREATE_DIR_REQUEST", "UPLOAD_RESPONSE", "EXPORT_COMPLETE"}) {
    EXPECT_TRUE(holds(shown.out, part));
  }
  EXPECT_EQ(run({ARVL_HOST, "trace", at("trace"), "--html", at("page.html")}).status, 0);
  std::ostringstream page;
  page << std::ifstream(at("page.html")).rdbuf();
  EXPECT_TRUE(holds(page.str(), "PACKET_CREATE_DIR_REQUEST"));

  EXPECT_EQ(step("export", {"--trace", "/no/folder/trace"}).status, 2);
  std::ofstream(at("trace")) << "no trace\n";
  const ProcessResult broken = run({ARVL_HOST, "trace", at("trace")});
  EXPECT_EQ(broken.status, 2);
  EXPECT_TRUE(holds(broken.err, at("trace") + ":1: "));
  const ProcessResult full = run({ARVL_HOST, "trace", at("result.json"), "--html", "/dev/full"});
  EXPECT_EQ(full.status, 2);
}

TEST_F(Minimal, ReceivesTheLanguage) {
  EXPECT_TRUE(holds(step("summary").out, "backup_short: Documents\n"));
  EXPECT_TRUE(holds(step("summary", {"--language", "ger"}).out, "backup_short: Dokumente\n"));
}

TEST_F(Minimal, ReceivesTheConfiguration) {
  std::ofstream(at("config.json")) << "{\"enabled\": false}";
  const ProcessResult result = step("can_export", {"--export-config", at("config.json")});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(holds(result.out, "err_msg.key: export_disabled\n"));
}

TEST_F(Minimal, IsDeniedFilesWithoutAStore) {
  const ProcessResult result = step("export");
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(holds(result.out, "err_msg.key: store_unavailable\n"));
}

TEST_F(Minimal, FindsNoExportUnlessOneIsGiven) {
  const ProcessResult result = step("can_import");
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(holds(result.out, "err_msg.key: no_export\n"));
}

TEST_F(Minimal, IsDeniedARequestThatIsNewerThanTheFramework) {
  const ProcessResult result = step("can_export", {"--framework-version", "2.2"});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(holds(result.out, "Error: Arvelo framework ver [2.2] not support\n"));
}

TEST_F(Minimal, IsNotStartedOnAnExportResultThatBreaksTheRules) {
  std::ofstream(at("result.json"))
      << R"({"export_result":{"success":true,"app_data_version":"x"}})";
  const ProcessResult result = step("import", {"--export-result", at("result.json")});
  EXPECT_EQ(result.status, 2);
  EXPECT_TRUE(holds(result.err, at("result.json") + ": the rule book refuses the export result:\n"
                                                    "  invalid app_data_version format [x]\n"));
  // A manifest holds null if there were no external handlers.
  std::ofstream(at("manifest.json"))
      << R"({"export_result":{"success":true,"app_data_version":"1.7"},)"
         R"("external_handler_result":null,"files":[]})";
  EXPECT_EQ(step("can_import", {"--export-result", at("manifest.json")}).status, 0);
  std::ofstream(at("result.json")) << "no JSON";
  EXPECT_TRUE(holds(step("import", {"--export-result", at("result.json")}).err,
                    at("result.json") + " is not JSON:"));
}

}  // namespace
