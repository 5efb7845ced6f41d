// JSON as tests write it down.
#ifndef ARVL_TESTS_SUPPORT_JSON_H_
#define ARVL_TESTS_SUPPORT_JSON_H_

#include <json/value.h>

#include <string>

namespace arvl_test {

// Any JSON value, a scalar included. Fails the test and gives null for other text.
Json::Value parseJson(const std::string &text);

}  // namespace arvl_test

#endif  // ARVL_TESTS_SUPPORT_JSON_H_
