// The command line of arvl-host: its definitions, and the run of the chosen subcommand.
#ifndef ARVL_HOST_CLI_COMMAND_LINE_H_
#define ARVL_HOST_CLI_COMMAND_LINE_H_

#include <CLI/App.hpp>
#include <functional>
#include <map>
#include <string>

namespace arvl_host {

class CommandLine {
 public:
  CommandLine();

  CLI::App &app() { return app_; }

  // Throws CLI::ParseError for wrong usage, --help and --version. app().exit() prints each of them.
  void parse(int argc, const char *const *argv);

  // Runs the parsed subcommand and returns its exit code. Throws CLI::ParseError for wrong usage that
  // the parser cannot find, and other exceptions for other failures.
  int run() const;

 private:
  void addSubcommand(std::function<int()> (*add)(CLI::App &));

  CLI::App app_;
  std::map<const CLI::App *, std::function<int()>> commands_;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_COMMAND_LINE_H_
