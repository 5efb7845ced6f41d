// Reads the JSON files that options name.
#ifndef ARVL_HOST_CLI_JSON_FILE_H_
#define ARVL_HOST_CLI_JSON_FILE_H_

#include <json/value.h>

#include <functional>
#include <string>

namespace arvl_host {

// Reads a file and calls `use` with its value. Throws std::runtime_error, which names the file, if the
// file cannot be read, is not JSON, or `use` throws one.
void withJsonFile(const std::string &file, const std::function<void(const Json::Value &)> &use);

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_JSON_FILE_H_
