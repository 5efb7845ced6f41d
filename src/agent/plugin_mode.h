// The job steps by number. Logs nothing.
#ifndef ZARN_AGENT_PLUGIN_MODE_H_
#define ZARN_AGENT_PLUGIN_MODE_H_

#include <string>

namespace ZARN {
namespace ARVLAPP {

enum class PluginMode {
  kNone = 0,
  kEstimateExportion = 1,
  kCanExport = 2,
  kExport = 3,
  kCanImport = 4,
  kImport = 5,
  kSummary = 6,
};

// Returns the mode of a plugin name, or kNone if no step has this name.
PluginMode modeOf(const std::string &pluginName);

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_AGENT_PLUGIN_MODE_H_
