// Checks the "file:line" that opens a log line against the sources.
#ifndef ARVL_TESTS_SUPPORT_LOG_SOURCE_H_
#define ARVL_TESTS_SUPPORT_LOG_SOURCE_H_

#include <gtest/gtest.h>

#include <vector>

#include "support/log_capture.h"

namespace arvl_test {

// Succeeds if each record names an existing source file and the line in it that contains the record's
// format as one literal.
testing::AssertionResult nameTheirStatements(const std::vector<LogRecord> &records);

}  // namespace arvl_test

#endif  // ARVL_TESTS_SUPPORT_LOG_SOURCE_H_
