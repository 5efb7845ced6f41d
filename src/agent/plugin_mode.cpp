#include "agent/plugin_mode.h"

#include "zarn/arvlapp/agent.h"

namespace ZARN {
namespace ARVLAPP {

const char *const Agent::PLUGIN_NAME_SUMMARY = "summary";
const char *const Agent::PLUGIN_NAME_ESTIMATE_EXPORTION = "estimate_exportion";
const char *const Agent::PLUGIN_NAME_CAN_EXPORT = "can_export";
const char *const Agent::PLUGIN_NAME_EXPORT = "export";
const char *const Agent::PLUGIN_NAME_CAN_IMPORT = "can_import";
const char *const Agent::PLUGIN_NAME_IMPORT = "import";

PluginMode modeOf(const std::string &pluginName) {
  const struct {
    const char *name;
    PluginMode mode;
  } rows[] = {
      {Agent::PLUGIN_NAME_ESTIMATE_EXPORTION, PluginMode::kEstimateExportion},
      {Agent::PLUGIN_NAME_CAN_EXPORT, PluginMode::kCanExport},
      {Agent::PLUGIN_NAME_EXPORT, PluginMode::kExport},
      {Agent::PLUGIN_NAME_CAN_IMPORT, PluginMode::kCanImport},
      {Agent::PLUGIN_NAME_IMPORT, PluginMode::kImport},
      {Agent::PLUGIN_NAME_SUMMARY, PluginMode::kSummary},
  };
  for (const auto &row : rows) {
    if (pluginName == row.name) {
      return row.mode;
    }
  }
  return PluginMode::kNone;
}

}  // namespace ARVLAPP
}  // namespace ZARN
