// Parses the JSON text that a test contains.
#ifndef ARVL_TESTS_SUPPORT_JSON_H_
#define ARVL_TESTS_SUPPORT_JSON_H_

#include <json/value.h>

#include <string>

namespace arvl_test {

// Parses any JSON value, a scalar included. Fails the test and returns null if the text is not JSON.
Json::Value parseJson(const std::string &text);

}  // namespace arvl_test

#endif  // ARVL_TESTS_SUPPORT_JSON_H_
