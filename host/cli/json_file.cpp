#include "cli/json_file.h"

#include <json/reader.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace arvl_host {

namespace {

Json::Value readJson(const std::string &file) {
  std::ifstream stream(file);
  Json::Value value;
  std::string errors;
  if (!stream) {
    throw std::runtime_error("cannot open \"" + file + "\": " + std::strerror(errno));
  }
  bool isJson = false;
  try {
    isJson = Json::parseFromStream(Json::CharReaderBuilder(), stream, &value, &errors);
  } catch (const Json::Exception &error) {  // nested too deep
    errors = error.what();
  }
  if (!isJson) {
    throw std::runtime_error(file + " is not JSON:\n" + errors);
  }
  return value;
}

}  // namespace

void withJsonFile(const std::string &file, const std::function<void(const Json::Value &)> &use) {
  const Json::Value value = readJson(file);
  try {
    use(value);
  } catch (const std::runtime_error &error) {
    throw std::runtime_error(file + ": " + error.what());
  }
}

}  // namespace arvl_host
