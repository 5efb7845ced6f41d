// Runs measurements that depend on the state of the heap in child processes.
#ifndef ZARN_BENCH_CHILD_H_
#define ZARN_BENCH_CHILD_H_

#include <functional>
#include <string>
#include <vector>

namespace arvl_bench {

// Runs the operation in a forked child. Returns the peak growth of the child in KiB.
long peakGrowth(const std::function<void()> &operation);

// Runs the measurement in a forked child and returns its result.
double timeInChild(const std::function<double()> &measurement);

// Runs the program to its end and returns its peak memory in KiB.
long peakOfProgram(const std::vector<std::string> &arguments);

}  // namespace arvl_bench

#endif  // ZARN_BENCH_CHILD_H_
