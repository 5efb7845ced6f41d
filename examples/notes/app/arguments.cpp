#include "app/arguments.h"

#include <charconv>

namespace notes {

Arguments::Arguments(int argc, char **argv) {
  bool optionsEnded = false;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (optionsEnded || argument.rfind("--", 0) != 0) {
      words_.push_back(argument);
    } else if (argument == "--") {
      optionsEnded = true;
    } else if (++i < argc) {
      options_[argument].emplace_back(argv[i]);
    } else {
      throw UsageError(argument + " needs a value");
    }
  }
}

std::vector<std::string> Arguments::all(const std::string &option) const {
  const auto found = options_.find(option);
  return found != options_.end() ? found->second : std::vector<std::string>();
}

std::string Arguments::last(const std::string &option, const std::string &fallback) const {
  const auto found = options_.find(option);
  return found != options_.end() ? found->second.back() : fallback;
}

std::int64_t Arguments::number(const std::string &option, std::int64_t fallback) const {
  const auto found = options_.find(option);
  return found != options_.end() ? parseNumber(found->second.back()) : fallback;
}

std::int64_t Arguments::parseNumber(const std::string &text) {
  std::int64_t number = 0;
  const char *end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  if (result.ec != std::errc() || result.ptr != end || number < 0) {
    throw UsageError("[" + text + "] is not a number");
  }
  return number;
}

}  // namespace notes
