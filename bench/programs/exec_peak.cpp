// exec_peak PROGRAM ARGUMENT...: runs the program to its end and prints its peak memory in KiB.
//
// A program's peak, as the kernel counts it, includes what its process held before exec; so the one
// that forks must be small, and does without the C++ library.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

int main(int /*argc*/, char **argv) {
  const pid_t child = fork();
  if (child == 0) {
    execv(argv[1], argv + 1);
    _exit(127);
  }
  int status = 0;
  struct rusage usage = {};
  if (child < 0 || wait4(child, &status, 0, &usage) != child || status != 0) {
    return 1;
  }
  std::printf("%ld\n", usage.ru_maxrss);
  return 0;
}
