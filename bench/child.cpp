#include "child.h"

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

template <typename Result>
Result inChild(const std::function<Result()> &body) {
  int ends[2];
  require(pipe(ends) == 0, "no pipe");
  const pid_t child = fork();
  require(child >= 0, "no process");
  if (child == 0) {
    close(ends[0]);
    const Result result = body();
    const bool isWritten = write(ends[1], &result, sizeof result) == sizeof result;
    _exit(isWritten ? EXIT_SUCCESS : EXIT_FAILURE);
  }
  close(ends[1]);
  Result result = {};
  const bool isRead = read(ends[0], &result, sizeof result) == sizeof result;
  close(ends[0]);
  waitpid(child, nullptr, 0);
  require(isRead, "a measurement in a process of its own failed");
  return result;
}

}  // namespace

long peakGrowth(const std::function<void()> &operation) {
  return inChild<long>([&operation] {
    const long before = peakOfThisProcess();
    operation();
    return peakOfThisProcess() - before;
  });
}

double timeInChild(const std::function<double()> &measurement) {
  return inChild<double>(measurement);
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
