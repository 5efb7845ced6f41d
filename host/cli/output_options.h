// How the commands that work on a store say what they do.
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

// options has to outlive the app.
void addOutputOptions(CLI::App &command, OutputOptions &options);
// For a command that has more to say.
void addVerboseOption(CLI::App &command, OutputOptions &options);

// What a person reads: on standard output, or on standard error beside a JSON report; warnings and errors
// always there.
class OutputDisplay : public JobDisplay {
 public:
  explicit OutputDisplay(const OutputOptions &options);
};

// The report on standard output, as JSON or in lines. Throws std::runtime_error if it cannot be written.
void writeReport(const OutputOptions &options, const Json::Value &json,
                 const std::vector<std::string> &lines);

// Writes a failure of the command as a JSON report if the words of the command line ask for JSON. Looks
// at the words themselves, because the command line may be wrong.
void writeFailure(const std::vector<std::string> &words, const std::string &error);

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_OUTPUT_OPTIONS_H_
