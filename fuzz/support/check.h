// The fuzzers' assertion: prints the condition that failed and aborts, which is a finding.
#ifndef ARVL_FUZZ_SUPPORT_CHECK_H_
#define ARVL_FUZZ_SUPPORT_CHECK_H_

#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(condition)                                                            \
  do {                                                                                   \
    if (!(condition)) {                                                                  \
      std::fprintf(stderr, "%s:%d does not hold: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                      \
    }                                                                                    \
  } while (false)

#endif  // ARVL_FUZZ_SUPPORT_CHECK_H_
