// The command line of arvl-host: what it takes, and what runs the subcommand that was chosen.
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

  // Throws CLI::ParseError for wrong usage, and where help or the version is asked for: app().exit()
  // shows either.
  void parse(int argc, const char *const *argv);

  // Once it is parsed: runs the subcommand and returns its exit code. Throws CLI::ParseError for
  // wrong usage that only shows now, and other exceptions for what else it could not do.
  int run() const;

 private:
  void addSubcommand(std::function<int()> (*add)(CLI::App &));

  CLI::App app_;
  std::map<const CLI::App *, std::function<int()>> commands_;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_COMMAND_LINE_H_
