#include "manual/man_page.h"

#include <CLI/CLI.hpp>
#include <cctype>
#include <string_view>
#include <vector>

#include "cli/definitions.h"

namespace arvl_host {

namespace {

// Returns the escape of a character that roff would interpret or replace, or an empty string.
std::string_view escapeOf(char c) {
  switch (c) {
    case '\\':
      return "\\(rs";
    case '-':
      return "\\-";
    case '\'':
      return "\\(aq";
    case '"':
      return "\\(dq";
    case '`':
      return "\\(ga";
    case '^':
      return "\\(ha";
    case '~':
      return "\\(ti";
    default:
      return "";
  }
}

std::string escaped(const std::string &text) {
  std::string roff;
  char before = '\n';
  for (const char c : text) {
    const std::string_view escape = escapeOf(c);
    if (before == '\n' && c == '.') {
      roff += "\\&";
    }
    roff += escape.empty() ? std::string_view(&c, 1) : escape;
    before = c;
  }
  return roff;
}

std::string bold(const std::string &text) {
  return "\\fB" + escaped(text) + "\\fR";
}

std::string italic(const std::string &text) {
  return "\\fI" + escaped(text) + "\\fR";
}

std::string positionalName(const CLI::Option &positional) {
  return italic(positional.get_name(true)) + (isRepeatable(positional) ? "..." : "");
}

std::string valueName(const CLI::Option &option) {
  return takesValue(option) ? " " + italic(valueTypeOf(option).name) : "";
}

std::string optionNames(const CLI::Option &option) {
  std::vector<std::string> names;
  for (const std::string &name : namesOf(option)) {
    names.push_back(bold(name) + valueName(option));
  }
  return CLI::detail::join(names, ", ") + (isRepeatable(option) ? " ..." : "");
}

void writeEntry(const std::string &tag, const CLI::Option &option, std::ostream &out) {
  out << ".TP\n" << tag << '\n' << escaped(descriptionOf(option)) << '\n';
}

void writeEntries(const CLI::App &app, std::ostream &out) {
  for (const CLI::Option *positional : positionalsOf(app)) {
    writeEntry(positionalName(*positional), *positional, out);
  }
  for (const CLI::Option *option : optionsOf(app)) {
    writeEntry(optionNames(*option), *option, out);
  }
}

void writeFooter(const CLI::App &app, std::ostream &out) {
  std::string footer = app.get_footer();
  CLI::detail::rtrim(footer);
  if (!footer.empty()) {
    out << ".PP\n.nf\n" << escaped(footer) << "\n.fi\n";
  }
}

void writeSynopsis(const CLI::App &app, const CLI::App &command, std::ostream &out) {
  out << bold(app.get_name() + " " + command.get_name());
  for (const CLI::Option *option : optionsOf(command)) {
    if (option->get_required()) {
      out << ' ' << bold(namesOf(*option).back()) << valueName(*option);
    }
  }
  out << " [" << italic("OPTION") << "]...";
  for (const CLI::Option *positional : positionalsOf(command)) {
    const std::string name = positionalName(*positional);
    out << ' ' << (positional->get_required() ? name : "[" + name + "]");
  }
  out << '\n';
}

void writeCommand(const CLI::App &command, std::ostream &out) {
  out << ".SS " << escaped(command.get_name()) << '\n'
      << escaped(command.get_description()) << '\n';
  writeEntries(command, out);
  writeFooter(command, out);
}

// "runs a step" of "Runs a step."
std::string asPhrase(std::string sentence) {
  sentence.front() = static_cast<char>(std::tolower(sentence.front()));
  if (sentence.back() == '.') {
    sentence.pop_back();
  }
  return sentence;
}

}  // namespace

void writeManPage(const CLI::App &app, const std::string &version, std::ostream &out) {
  const std::string &name = app.get_name();
  const std::vector<const CLI::App *> commands = subcommandsOf(app);
  out << ".TH \"" << escaped(name) << "\" 1 \"\" \"" << escaped(name + " " + version)
      << "\" \"User Commands\"\n.nh\n.ad l\n";  // do not hyphenate names
  out << ".SH NAME\n"
      << escaped(name) << " \\- " << escaped(asPhrase(app.get_description())) << '\n';
  out << ".SH SYNOPSIS\n.nf\n";
  for (const CLI::App *command : commands) {
    writeSynopsis(app, *command, out);
  }
  out << ".fi\n.SH DESCRIPTION\n" << escaped(app.get_description()) << '\n';
  writeFooter(app, out);
  out << ".SH OPTIONS\n";
  writeEntries(app, out);
  out << ".SH COMMANDS\n";
  for (const CLI::App *command : commands) {
    writeCommand(*command, out);
  }
  out << ".SH SEE ALSO\n" << bold("socketpair") << "(2), " << bold("syslog") << "(3)\n";
}

}  // namespace arvl_host
