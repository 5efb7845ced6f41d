// What a process may find changed about its signals after a call of the library.
#ifndef ARVL_TESTS_SUPPORT_SIGNAL_STATE_H_
#define ARVL_TESTS_SUPPORT_SIGNAL_STATE_H_

#include <string>

namespace arvl_test {

// One line for each signal that is handled, ignored, blocked or pending for the calling thread.
// "13: ignored, blocked" is SIGPIPE. Empty in a process that has done nothing about signals.
std::string describeSignals();

}  // namespace arvl_test

#endif  // ARVL_TESTS_SUPPORT_SIGNAL_STATE_H_
