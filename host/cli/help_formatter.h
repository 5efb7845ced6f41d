// The layout of --help.
#ifndef ARVL_HOST_CLI_HELP_FORMATTER_H_
#define ARVL_HOST_CLI_HELP_FORMATTER_H_

#include <CLI/App.hpp>
#include <CLI/Formatter.hpp>
#include <string>

namespace arvl_host {

// Describes options in the words of the man page, in lines that fit a terminal of 80 columns.
class HelpFormatter : public CLI::Formatter {
 public:
  HelpFormatter();

  // Overridden because releases of CLI11 differ in the empty lines at the end.
  std::string make_help(const CLI::App *command, std::string name,
                        CLI::AppFormatMode mode) const override;
  std::string make_option(const CLI::Option *option, bool isPositional) const override;
  std::string make_subcommand(const CLI::App *command) const override;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_HELP_FORMATTER_H_
