// Processes of their own, for what depends on the state of the heap.
#ifndef ZARN_BENCH_CHILD_H_
#define ZARN_BENCH_CHILD_H_

#include <functional>
#include <string>
#include <vector>

namespace arvl_bench {

// Runs the operation in a forked child. The result is the KiB by which the child grew at its peak.
long peakGrowth(const std::function<void()> &operation);

// Runs the measurement in a forked child, and passes its result on.
double timeInChild(const std::function<double()> &measurement);

// Runs the program to its end. The result is its peak in KiB.
long peakOfProgram(const std::vector<std::string> &arguments);

}  // namespace arvl_bench

#endif  // ZARN_BENCH_CHILD_H_
