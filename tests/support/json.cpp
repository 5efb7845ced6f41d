#include "support/json.h"

#include <gtest/gtest.h>
#include <json/reader.h>

#include <memory>

namespace arvl_test {

Json::Value parseJson(const std::string &text) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  Json::Value value;
  std::string errors;
  if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) {
    ADD_FAILURE() << text << ": " << errors;
    return Json::Value();
  }
  return value;
}

}  // namespace arvl_test
