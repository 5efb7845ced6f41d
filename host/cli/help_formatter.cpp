#include "cli/help_formatter.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

#include "cli/definitions.h"

namespace arvl_host {

namespace {

constexpr std::size_t kColumns = 79;  // some terminals of 80 columns wrap a full line
constexpr std::size_t kNameColumns = 28;

// Breaks a text between words. A word longer than a line is kept whole.
std::string wrapped(const std::string &text, std::size_t columns) {
  std::istringstream words(text);
  std::string lines;
  std::size_t room = 0;
  for (std::string word; words >> word;) {
    const bool fits = word.size() < room;
    if (!lines.empty()) {
      lines += fits ? ' ' : '\n';
    }
    room = (fits ? room - 1 : columns) - std::min(word.size(), columns);
    lines += word;
  }
  return lines;
}

std::string entry(const std::string &name, const std::string &description) {
  std::ostringstream out;
  CLI::detail::format_help(out, name, wrapped(description, kColumns - kNameColumns), kNameColumns);
  return out.str();
}

}  // namespace

HelpFormatter::HelpFormatter() {
  label("SUBCOMMAND", "COMMAND");
}

std::string HelpFormatter::make_help(const CLI::App *command, std::string name,
                                     CLI::AppFormatMode mode) const {
  const std::string footer = command->get_footer();
  return make_description(command) + make_usage(command, name) + make_positionals(command) +
         make_groups(command, mode) + make_subcommands(command, mode) +
         (footer.empty() ? "" : '\n' + footer + '\n');
}

std::string HelpFormatter::make_option(const CLI::Option *option, bool isPositional) const {
  std::string name =
      isPositional ? option->get_name(true) : CLI::detail::join(namesOf(*option), ", ");
  if (takesValue(*option) && !isPositional) {
    name += " " + valueTypeOf(*option).name;
  }
  if (isRepeatable(*option)) {
    name += " ...";
  }
  return entry(name, descriptionOf(*option));
}

std::string HelpFormatter::make_subcommand(const CLI::App *command) const {
  return entry(command->get_name(), command->get_description());
}

}  // namespace arvl_host
