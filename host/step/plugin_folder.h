// Finds the executables of a plug-in: its directory has one for each step.
#ifndef ARVL_HOST_STEP_PLUGIN_FOLDER_H_
#define ARVL_HOST_STEP_PLUGIN_FOLDER_H_

#include <string>

namespace arvl_host {

// Returns the absolute path of the step's executable, or an empty string if there is none. Throws
// std::runtime_error that names a file which cannot be run: its author meant the plug-in to have the step.
std::string findStep(const std::string &folder, const std::string &step);

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_PLUGIN_FOLDER_H_
