#include "support/json.h"

#include <gtest/gtest.h>

#include "protocol/json_text.h"

namespace arvl_test {

Json::Value parseJson(const std::string &text) {
  Json::Value value;
  std::string error;
  if (!ZARN::ARVLAPP::parseJsonText(text.data(), text.data() + text.size(), value, &error)) {
    ADD_FAILURE() << text << ": " << error;
    return Json::Value();
  }
  return value;
}

}  // namespace arvl_test
