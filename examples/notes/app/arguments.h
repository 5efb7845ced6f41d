// The command line: a command, its options, its operands.
#ifndef NOTES_APP_ARGUMENTS_H_
#define NOTES_APP_ARGUMENTS_H_

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace notes {

class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Splits "WORD --name VALUE WORD...". Every option takes a value, and may be repeated; "--" ends
// the options. Throws UsageError.
class Arguments {
 public:
  Arguments(int argc, char **argv);

  const std::vector<std::string> &words() const { return words_; }
  const std::map<std::string, std::vector<std::string>> &options() const { return options_; }

  std::vector<std::string> all(const std::string &option) const;
  std::string last(const std::string &option, const std::string &fallback) const;
  std::int64_t number(const std::string &option, std::int64_t fallback) const;

  // Returns the whole text as a number that is not negative. Throws UsageError otherwise.
  static std::int64_t parseNumber(const std::string &text);

 private:
  std::vector<std::string> words_;
  std::map<std::string, std::vector<std::string>> options_;
};

}  // namespace notes

#endif  // NOTES_APP_ARGUMENTS_H_
