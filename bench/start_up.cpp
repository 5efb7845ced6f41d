// Compares the minimal plug-in, from exec to exit with its completion, with an empty program with the
// same libraries. The step estimates no directories, so it sends the framework no request.

#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "child.h"
#include "figure.h"

namespace arvl_bench {

namespace {

constexpr int kStarts = 10;

// The completion fits the socket's buffer, so that no process has to read it.
void start(const char *program) {
  int ends[2];
  require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0, "no socket");
  std::string name = program;
  std::string descriptor = std::to_string(ends[1]);
  char socketOption[] = "-f";
  char versionOption[] = "-v";
  char version[] = "2.3";
  char *argv[] = {name.data(), socketOption, descriptor.data(), versionOption, version, nullptr};
  pid_t child = 0;
  require(posix_spawn(&child, program, nullptr, nullptr, argv, environ) == 0, "no program");
  int status = 0;
  require(waitpid(child, &status, 0) == child && status == 0, "a program failed");
  close(ends[0]);
  close(ends[1]);
}

long peakOf(const char *program) {
  int ends[2];
  require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0, "no socket");
  const long peak = peakOfProgram({program, "-f", std::to_string(ends[1]), "-v", "2.3"});
  close(ends[0]);
  close(ends[1]);
  return peak;
}

}  // namespace

Figure makeStartUp() {
  Figure figure;
  figure.name = "minimal plug-in, exec to exit";
  figure.bound = 1.2;
  figure.rounds = 51;
  figure.prepare = [](Run &library, Run &bare) {
    unsetenv("MINIMAL_DIRS");
    library = [] { return timeOf(kStarts, [] { start(BENCH_PLUGIN); }); };
    bare = [] { return timeOf(kStarts, [] { start(BENCH_EMPTY); }); };
  };
  figure.measurePeak = [] { return PeakMemory{peakOf(BENCH_PLUGIN), peakOf(BENCH_EMPTY)}; };
  return figure;
}

}  // namespace arvl_bench
