// Finds the executables of a plug-in: its directory has one for each step.
#ifndef ARVL_HOST_STEP_PLUGIN_FOLDER_H_
#define ARVL_HOST_STEP_PLUGIN_FOLDER_H_

#include <string>

namespace arvl_host {

// Returns the absolute path of the step's executable, or an empty string if there is none. Throws
// std::runtime_error if the file exists but is not executable, because that is a mistake of the
// plug-in's author.
std::string findStep(const std::string &folder, const std::string &step);

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_PLUGIN_FOLDER_H_
