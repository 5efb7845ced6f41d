// The runs that are tortured: together they use every public operation, every completion and the
// destructor. Each knows its expected results without faults.
#ifndef ARVL_TESTS_TORTURE_SCENARIOS_H_
#define ARVL_TESTS_TORTURE_SCENARIOS_H_

#include <functional>
#include <string>
#include <vector>

#include "zarn/arvlapp/agent.h"

namespace arvl_test {

enum class Result {
  kAsExpected,  // every call succeeded and every value is right
  kFailed,      // a call reported failure
  kWrong,       // a call claimed success with a wrong value
};

struct Scenario {
  std::string name;
  std::string step;                  // the plug-in's name
  std::vector<std::string> answers;  // whole frames, in the order of the requests
  std::string completion;            // the whole frame that ends a run without faults
  std::function<Result(ZARN::ARVLAPP::Agent &)> run;
};

const std::vector<Scenario> &scenarios();

}  // namespace arvl_test

#endif  // ARVL_TESTS_TORTURE_SCENARIOS_H_
