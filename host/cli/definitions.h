// What the definitions of a command line hold for the help, the man page and the completion. Hidden
// options are left out.
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
  std::string name;                  // "FILE" and "DIR" are paths
  std::vector<std::string> choices;  // all the values there are; none: no such list
  std::string range;                 // in words: "INT in [1 - 10]"
};

// Taken from CLI::Option::get_type_name(), which is all that tells what a value is checked for.
ValueType valueTypeOf(const CLI::Option &option);

// "The step (one of import, export; required)"
std::string descriptionOf(const CLI::Option &option);

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_DEFINITIONS_H_
