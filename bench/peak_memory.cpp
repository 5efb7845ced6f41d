#include "peak_memory.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "figure.h"

namespace arvl_bench {

namespace {

long peakOfThisProcess() {
  struct rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

}  // namespace

long peakGrowth(const std::function<void()> &operation) {
  int ends[2];
  require(pipe(ends) == 0, "no pipe");
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    const long before = peakOfThisProcess();
    operation();
    const long growth = peakOfThisProcess() - before;
    const bool isWritten = write(ends[1], &growth, sizeof growth) == sizeof growth;
    _exit(isWritten ? EXIT_SUCCESS : EXIT_FAILURE);
  }
  close(ends[1]);
  long growth = 0;
  const bool isRead = read(ends[0], &growth, sizeof growth) == sizeof growth;
  close(ends[0]);
  waitpid(child, nullptr, 0);
  require(isRead, "a measurement of memory failed");
  return growth;
}

long peakOfProgram(const std::vector<std::string> &arguments) {
  std::string command = BENCH_EXEC_PEAK;
  for (const std::string &argument : arguments) {
    command += " '" + argument + "'";
  }
  FILE *output = popen(command.c_str(), "r");
  require(output != nullptr, "no shell");
  long peak = 0;
  const bool isRead = std::fscanf(output, "%ld", &peak) == 1;
  require(pclose(output) == 0 && isRead, "a measurement of memory failed");
  return peak;
}

}  // namespace arvl_bench
