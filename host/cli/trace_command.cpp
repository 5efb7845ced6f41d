#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "cli/exit_code_text.h"
#include "cli/subcommands.h"
#include "step/exit_code.h"
#include "trace/trace_page.h"
#include "trace/trace_printer.h"
#include "trace/trace_reader.h"

namespace arvl_host {

namespace {

struct TraceOptions {
  std::string file;
  std::string page;
};

// Prints a damaged trace up to the damage.
int print(const TraceOptions &options) {
  const char *noColour = std::getenv("NO_COLOR");
  const bool colour = isatty(STDOUT_FILENO) != 0 && (noColour == nullptr || *noColour == '\0');
  TraceReader reader;
  const bool isWhole = reader.open(options.file) && printTrace(reader, std::cout, colour);
  if (!std::cout.flush()) {
    throw std::runtime_error("cannot write to standard output");
  }
  if (isWhole) {
    return kExitSuccess;
  }
  throw std::runtime_error(reader.error());
}

int writePage(const TraceOptions &options) {
  std::error_code none;
  if (std::filesystem::equivalent(options.file, options.page, none)) {
    throw std::runtime_error("the page would replace the trace " + options.file);
  }
  Trace trace;
  std::string error;
  const bool isWhole = readTrace(options.file, trace, error);
  if (!isWhole && trace.records.empty()) {
    throw std::runtime_error(error);
  }
  umask(S_IRWXG | S_IRWXO);  // private, like the trace
  std::ofstream page(options.page);
  writeTracePage(trace, page);
  page.close();
  if (!page) {
    throw std::runtime_error("cannot write " + options.page + ": " + std::strerror(errno));
  }
  if (!isWhole) {
    throw std::runtime_error(error + "; the page shows what comes before");
  }
  return kExitSuccess;
}

}  // namespace

std::function<int()> addTraceCommand(CLI::App &app) {
  auto options = std::make_shared<TraceOptions>();
  CLI::App *command = app.add_subcommand("trace", "Show a trace that was written with --trace");
  command->footer(exitCodeHelp({kExitSuccess, kExitHostError}));
  command->add_option("file", options->file, "Trace file")->required()->check(CLI::ExistingFile);
  command
      ->add_option("--html", options->page,
                   "Write a self-contained HTML page to this file instead of printing text")
      ->type_name("FILE");
  return [options] { return options->page.empty() ? print(*options) : writePage(*options); };
}

}  // namespace arvl_host
