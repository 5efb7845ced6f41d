#include "manual/bash_completion.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string>
#include <vector>

#include "cli/definitions.h"

namespace arvl_host {

namespace {

// The body of the function after the definitions. The subcommand is argument 1 of the program.
constexpr const char *kFunction = R"(
  local IFS=$' \t\n'

  # If "=" is a word break, "--option=value" arrives as three words.
  local words=("${COMP_WORDS[0]}") word
  for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
    if [[ $word == = && ${words[-1]} == --* || ${words[-1]} == --*= ]]; then
      words[-1]+=$word
    else
      words+=("$word")
    fi
  done
  local current=${words[-1]}

  local option='' place=1 given=" ${COMP_WORDS[*]:COMP_CWORD+1} "
  for word in "${words[@]:1:${#words[@]}-2}"; do
    if [[ $option ]]; then
      option=''
    elif [[ $word == -* ]]; then
      given+="${word%%=*} "
      option=${values["$command $word"]+$word}
    elif [[ $command == "$program" ]]; then
      command=$word
    else
      place=$((place + 1))
    fi
  done

  local offer prefix='' names
  if [[ $option ]]; then
    offer=${values["$command $option"]}
  elif [[ $current == --*=* ]]; then
    prefix=${current%%=*}=
    offer=${values["$command ${current%%=*}"]-}
  else
    offer=${values["$command $place"]-${values["$command ..."]-}}
    if [[ $current == -* || ! $offer ]]; then
      offer=''
      for names in ${options["$command"]-}; do
        for word in ${names//,/ }; do
          [[ $names != *+ && $given == *" $word "* ]] && continue 2
        done
        offer+=" ${names//[,+]/ }"
      done
    fi
  fi

  local action=(-W "$offer")
  if [[ $offer == -[fd] ]]; then
    action=("$offer")
    compopt -o filenames 2>/dev/null
  fi
  mapfile -t COMPREPLY < <(compgen "${action[@]}" -- "${current#"$prefix"}")

  # A reply replaces only the part after the last word break.
  local typed=${COMP_WORDS[COMP_CWORD]}
  [[ $typed == = ]] && typed=''
  COMPREPLY=("${COMPREPLY[@]/#/"$prefix"}")
  COMPREPLY=("${COMPREPLY[@]#"${current%"$typed"}"}")
}
)";

std::string offerOf(const CLI::Option &option) {
  const ValueType type = valueTypeOf(option);
  if (type.name == "FILE") {
    return "-f";
  }
  return type.name == "DIR" ? "-d" : CLI::detail::join(type.choices, " ");
}

void writeOffer(const std::string &key, const std::string &offer, std::ostream &out) {
  out << "    ['" << key << "']='" << offer << "'\n";
}

void writeSubcommands(const CLI::App &app, std::ostream &out) {
  std::vector<std::string> names;
  for (const CLI::App *command : subcommandsOf(app)) {
    names.push_back(command->get_name());
  }
  writeOffer(app.get_name() + " 1", CLI::detail::join(names, " "), out);
}

void writeValues(const CLI::App &command, std::ostream &out) {
  int place = 0;
  for (const CLI::Option *positional : positionalsOf(command)) {
    ++place;
    const std::string key = isRepeatable(*positional) ? "..." : std::to_string(place);
    writeOffer(command.get_name() + " " + key, offerOf(*positional), out);
  }
  for (const CLI::Option *option : optionsOf(command)) {
    if (takesValue(*option)) {
      for (const std::string &name : namesOf(*option)) {
        writeOffer(command.get_name() + " " + name, offerOf(*option), out);
      }
    }
  }
}

void writeOptions(const CLI::App &command, std::ostream &out) {
  std::vector<std::string> options;
  for (const CLI::Option *option : optionsOf(command)) {
    options.push_back(CLI::detail::join(namesOf(*option), ",") +
                      (isRepeatable(*option) ? "+" : ""));
  }
  writeOffer(command.get_name(), CLI::detail::join(options, " "), out);
}

}  // namespace

void writeBashCompletion(const CLI::App &app, std::ostream &out) {
  const std::string program = app.get_name();
  std::string function = "_" + program;
  std::replace(function.begin(), function.end(), '-', '_');
  std::vector<const CLI::App *> commands = subcommandsOf(app);
  commands.insert(commands.begin(), &app);

  out << "# bash completion for " << program << "\n\n"
      << function << "() {\n  local program=" << program << " command=" << program << '\n';
  out << "  # Values of an option or argument: words to choose from, -f for files, -d for "
         "directories.\n"
      << "  local -A values=(\n";
  writeSubcommands(app, out);
  for (const CLI::App *command : commands) {
    writeValues(*command, out);
  }
  out << "  )\n  # The names of an option are joined by commas; + marks a repeatable "
         "option.\n"
      << "  local -A options=(\n";
  for (const CLI::App *command : commands) {
    writeOptions(*command, out);
  }
  out << "  )\n" << kFunction << "complete -F " << function << ' ' << program << '\n';
}

}  // namespace arvl_host
