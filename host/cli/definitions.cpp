#include "cli/definitions.h"

#include <CLI/CLI.hpp>
#include <set>

namespace arvl_host {

namespace {

constexpr const char *kUnnamedType = "TEXT";  // CLI11's name of a string

bool isShown(const CLI::Option &option) {
  return !option.get_group().empty();
}

std::string nameOf(const CLI::Option &option) {
  return option.get_positional() ? option.get_name(true) : namesOf(option).back();
}

// Adds remarks such as "needs --trace", sorted by name: the order of a set of pointers changes per run.
void addRelations(const char *relation, const std::set<CLI::Option *> &others,
                  std::vector<std::string> &remarks) {
  std::set<std::string> names;
  for (const CLI::Option *other : others) {
    names.insert(nameOf(*other));
  }
  for (const std::string &name : names) {
    remarks.push_back(relation + (" " + name));
  }
}

std::vector<std::string> remarksOf(const CLI::Option &option) {
  std::vector<std::string> remarks;
  const ValueType type = valueTypeOf(option);
  if (!type.choices.empty()) {
    remarks.push_back("one of " + CLI::detail::join(type.choices, ", "));
  }
  if (!type.range.empty()) {
    remarks.push_back(type.range);
  }
  if (option.get_required()) {
    remarks.emplace_back("required");
  }
  addRelations("needs", option.get_needs(), remarks);
  addRelations("not with", option.get_excludes(), remarks);
  if (takesValue(option) && !option.get_default_str().empty()) {
    remarks.push_back("default: " + option.get_default_str());
  }
  return remarks;
}

}  // namespace

std::vector<const CLI::App *> subcommandsOf(const CLI::App &app) {
  return app.get_subcommands([](const CLI::App *) { return true; });
}

std::vector<const CLI::Option *> positionalsOf(const CLI::App &app) {
  return app.get_options(
      [](const CLI::Option *option) { return isShown(*option) && option->get_positional(); });
}

std::vector<const CLI::Option *> optionsOf(const CLI::App &app) {
  return app.get_options(
      [](const CLI::Option *option) { return isShown(*option) && option->nonpositional(); });
}

std::vector<std::string> namesOf(const CLI::Option &option) {
  std::vector<std::string> names;
  for (const std::string &name : option.get_snames()) {
    names.push_back("-" + name);
  }
  for (const std::string &name : option.get_lnames()) {
    names.push_back("--" + name);
  }
  return names;
}

bool takesValue(const CLI::Option &option) {
  return option.get_items_expected_max() > 0;
}

bool isRepeatable(const CLI::Option &option) {
  return option.get_items_expected_max() >= CLI::detail::expected_max_vector_size;
}

// CLI11 joins the names of the type and of its checks by colons: "DIR:DIR", "TEXT:{a,b}", ":M.N",
// "N:INT in [1 - 10]".
ValueType valueTypeOf(const CLI::Option &option) {
  ValueType type = {kUnnamedType, {}, ""};
  for (const std::string &part : CLI::detail::split(option.get_type_name(), ':')) {
    if (part.empty() || part == type.name) {
      continue;
    }
    if (part.front() == '{') {
      type.choices = CLI::detail::split(part.substr(1, part.size() - 2), ',');
    } else if (type.name == kUnnamedType) {
      type.name = part;
    } else {
      type.range = part;
    }
  }
  return type;
}

std::string descriptionOf(const CLI::Option &option) {
  const std::vector<std::string> remarks = remarksOf(option);
  return option.get_description() +
         (remarks.empty() ? "" : " (" + CLI::detail::join(remarks, "; ") + ")");
}

}  // namespace arvl_host
