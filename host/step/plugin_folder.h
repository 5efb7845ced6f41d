// The folder of a plug-in: one executable for each step that it has.
#ifndef ARVL_HOST_STEP_PLUGIN_FOLDER_H_
#define ARVL_HOST_STEP_PLUGIN_FOLDER_H_

#include <string>

namespace arvl_host {

// The absolute path of the step's executable; empty if there is none. What is there and cannot be run is
// a mistake of the plug-in's author, and no sign that the step is not wanted: throws std::runtime_error
// that names it.
std::string findStep(const std::string &folder, const std::string &step);

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_PLUGIN_FOLDER_H_
