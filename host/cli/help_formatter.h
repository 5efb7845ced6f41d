// How --help looks.
#ifndef ARVL_HOST_CLI_HELP_FORMATTER_H_
#define ARVL_HOST_CLI_HELP_FORMATTER_H_

#include <CLI/App.hpp>
#include <CLI/Formatter.hpp>
#include <string>

namespace arvl_host {

// Says of an option what the man page says, in lines that fit a terminal of 80 columns.
class HelpFormatter : public CLI::Formatter {
 public:
  HelpFormatter();

  // Releases of CLI11 differ in the empty lines at the end.
  std::string make_help(const CLI::App *command, std::string name,
                        CLI::AppFormatMode mode) const override;
  std::string make_option(const CLI::Option *option, bool isPositional) const override;
  std::string make_subcommand(const CLI::App *command) const override;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_HELP_FORMATTER_H_
