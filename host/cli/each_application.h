// The applications of a store, one after the other.
#ifndef ARVL_HOST_CLI_EACH_APPLICATION_H_
#define ARVL_HOST_CLI_EACH_APPLICATION_H_

#include <functional>
#include <string>

#include "backup/catalog.h"
#include "display/job_display.h"

namespace arvl_host {

// Calls `use` with each application of the store, or with `name` alone unless it is empty. Shows a
// StoreError on the display and goes on. Returns the first such error, or an empty string. Throws
// NoSuchBackup if the store has no backup of `name`, and what `use` throws besides.
std::string forEachApplication(const Catalog &catalog, const std::string &name, JobDisplay &display,
                               const std::function<void(const std::string &application)> &use);

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_EACH_APPLICATION_H_
