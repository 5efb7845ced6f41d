// Reads the definitions of a command line for the help, the man page and the completion. Skips hidden
// options.
#ifndef ARVL_HOST_CLI_DEFINITIONS_H_
#define ARVL_HOST_CLI_DEFINITIONS_H_

#include <CLI/App.hpp>
#include <string>
#include <vector>

namespace arvl_host {

std::vector<const CLI::App *> subcommandsOf(const CLI::App &app);
std::vector<const CLI::Option *> positionalsOf(const CLI::App &app);
std::vector<const CLI::Option *> optionsOf(const CLI::App &app);

// "-h" and "--help"
std::vector<std::string> namesOf(const CLI::Option &option);

// False for a flag.
bool takesValue(const CLI::Option &option);
bool isRepeatable(const CLI::Option &option);

struct ValueType {
  std::string name;                  // "FILE" and "DIR" mean paths
  std::vector<std::string> choices;  // all valid values; empty if any value may be given
  std::string range;                 // in words: "INT in [1 - 10]"
};

// Parses CLI::Option::get_type_name(): CLI11 gives no other access to the checks of a value.
ValueType valueTypeOf(const CLI::Option &option);

// "The step (one of import, export; required)"
std::string descriptionOf(const CLI::Option &option);

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_DEFINITIONS_H_
