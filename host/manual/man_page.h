// Writes a man page from the definitions of a command line.
#ifndef ARVL_HOST_MANUAL_MAN_PAGE_H_
#define ARVL_HOST_MANUAL_MAN_PAGE_H_

#include <CLI/App.hpp>
#include <ostream>
#include <string>

namespace arvl_host {

// Writes a page of section 1 in the macros of man(7) for an app with subcommands. The page has no date, so
// that the same definitions give the same bytes.
void writeManPage(const CLI::App &app, const std::string &version, std::ostream &out);

}  // namespace arvl_host

#endif  // ARVL_HOST_MANUAL_MAN_PAGE_H_
