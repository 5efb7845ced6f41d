// The options for the output of a command, and the output itself.
#ifndef ARVL_HOST_CLI_OUTPUT_OPTIONS_H_
#define ARVL_HOST_CLI_OUTPUT_OPTIONS_H_

#include <json/value.h>

#include <CLI/App.hpp>
#include <string>
#include <vector>

#include "display/job_display.h"

namespace arvl_host {

struct OutputOptions {
  bool json = false;
  bool quiet = false;
  bool verbose = false;
};

// `options` must outlive the app.
void addOutputOptions(CLI::App &command, OutputOptions &options);
void addVerboseOption(CLI::App &command, OutputOptions &options);

// Shows a person the progress: on standard output, or on standard error next to a JSON report. Warnings
// and errors always go to standard error.
class OutputDisplay : public JobDisplay {
 public:
  explicit OutputDisplay(const OutputOptions &options);
};

// Writes the report to standard output, as JSON or as lines. Throws std::runtime_error if that fails.
void writeReport(const OutputOptions &options, const Json::Value &json,
                 const std::vector<std::string> &lines);

// Writes a failure of the command as a JSON report if the words of the command line ask for JSON. Looks
// at the words themselves, because the command line may be wrong.
void writeFailure(const std::vector<std::string> &words, const std::string &error);

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_OUTPUT_OPTIONS_H_
