// A man page from the definitions of a command line.
#ifndef ARVL_HOST_MANUAL_MAN_PAGE_H_
#define ARVL_HOST_MANUAL_MAN_PAGE_H_

#include <CLI/App.hpp>
#include <ostream>
#include <string>

namespace arvl_host {

// In the macros of man(7), section 1, for an app with subcommands. Without a date: the same
// definitions give the same bytes.
void writeManPage(const CLI::App &app, const std::string &version, std::ostream &out);

}  // namespace arvl_host

#endif  // ARVL_HOST_MANUAL_MAN_PAGE_H_
