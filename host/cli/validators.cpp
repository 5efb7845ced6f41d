#include "cli/validators.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <string>

#include "backup/catalog.h"

namespace arvl_host {

namespace {

// CLI::Range accepts NaN, which is neither below nor above any number.
std::string checkSeconds(const std::string &text) {
  char *end = nullptr;
  const double seconds = std::strtod(text.c_str(), &end);
  const bool isNumber = !text.empty() && *end == '\0';
  return isNumber && seconds >= 0.001 && seconds <= 1e6
             ? ""
             : "a time is a number of seconds from 0.001 to 1000000, not \"" + text + "\"";
}

std::string checkVersion(const std::string &text) {
  const std::size_t dot = text.find('.');
  const auto isNumber = [](const std::string &part) {
    return !part.empty() && part.size() < 10 &&
           part.find_first_not_of("0123456789") == std::string::npos;
  };
  if (dot == std::string::npos || !isNumber(text.substr(0, dot)) ||
      !isNumber(text.substr(dot + 1))) {
    return "a framework version is two numbers joined by a full stop, such as 2.3, not \"" + text +
           "\"";
  }
  return "";
}

}  // namespace

CLI::Validator existingFile() {
  return CLI::Validator(CLI::ExistingFile).description("");
}

CLI::Validator existingDirectory() {
  return CLI::Validator(CLI::ExistingDirectory).description("");
}

CLI::Validator notEmpty() {
  return CLI::Validator(
      [](const std::string &text) { return std::string(text.empty() ? "the value is empty" : ""); },
      "");
}

CLI::Validator seconds() {
  return CLI::Validator(checkSeconds, "");
}

CLI::Validator frameworkVersion() {
  return CLI::Validator(checkVersion, "");
}

CLI::Validator applicationName() {
  return CLI::Validator(checkApplicationName, "");
}

}  // namespace arvl_host
