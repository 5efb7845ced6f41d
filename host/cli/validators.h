// Validators of option values. Their descriptions are empty, because the help already shows the type.
#ifndef ARVL_HOST_CLI_VALIDATORS_H_
#define ARVL_HOST_CLI_VALIDATORS_H_

#include <CLI/App.hpp>
#include <CLI/Validators.hpp>

namespace arvl_host {

CLI::Validator existingFile();
CLI::Validator existingDirectory();

// Rejects "", the value of a shell variable that is not set.
CLI::Validator notEmpty();

// Accepts a number of seconds from 0.001 to 1000000.
CLI::Validator seconds();

// Accepts two numbers joined by a full stop: "2.3".
CLI::Validator frameworkVersion();

CLI::Validator applicationName();

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_VALIDATORS_H_
