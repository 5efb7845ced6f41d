#include "cli/each_application.h"

#include <algorithm>
#include <vector>

namespace arvl_host {

namespace {

std::vector<std::string> applications(const Catalog &catalog, const std::string &name) {
  const std::vector<std::string> known = catalog.applications();
  if (name.empty()) {
    return known;
  }
  if (std::find(known.begin(), known.end(), name) == known.end()) {
    catalog.find(name, "");  // throws an error that lists the backups
  }
  return {name};
}

}  // namespace

std::string forEachApplication(const Catalog &catalog, const std::string &name, JobDisplay &display,
                               const std::function<void(const std::string &application)> &use) {
  std::string first;
  for (const std::string &application : applications(catalog, name)) {
    try {
      use(application);
    } catch (const NoSuchBackup &) {
      throw;  // `name` itself
    } catch (const StoreError &error) {
      display.error(error.what());
      first = first.empty() ? error.what() : first;
    }
  }
  return first;
}

}  // namespace arvl_host
