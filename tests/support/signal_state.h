// Shows the state of the signals, to find changes that a call of the library left.
#ifndef ARVL_TESTS_SUPPORT_SIGNAL_STATE_H_
#define ARVL_TESTS_SUPPORT_SIGNAL_STATE_H_

#include <string>

namespace arvl_test {

// Returns one line for each signal that is handled, ignored, blocked or pending for the calling thread,
// such as "13: ignored, blocked". Empty in a process that has not changed its signals.
std::string describeSignals();

}  // namespace arvl_test

#endif  // ARVL_TESTS_SUPPORT_SIGNAL_STATE_H_
