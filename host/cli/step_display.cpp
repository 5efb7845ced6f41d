#include "cli/step_display.h"

#include <iomanip>
#include <iostream>

#include "display/plugin_line.h"
#include "files/transfer_watcher.h"
#include "protocol/packet_table.h"
#include "step/outcome.h"
#include "text/hex.h"
#include "text/sizes.h"
#include "text/strict_json.h"
#include "text/utf8.h"

namespace arvl_host {

namespace {

std::string valueText(const Json::Value &value) {
  if (value.isString()) {
    return visibleText(value.asString());
  }
  std::string text;
  appendJson(text, value, JsonLayout::kCompact);
  return text;
}

// bytes of a member's path; the rest is cut
constexpr std::size_t kMaxShownPath = 4096;

// Prints one line per member, nested ones by their path. All levels share one path, because the names may
// be long and deeply nested.
void printMembers(const Json::Value &object, std::string &path) {
  const std::size_t before = path.size();
  for (auto member = object.begin(); member != object.end(); ++member) {
    path += member.name();
    if (member->isObject()) {
      path += '.';
      printMembers(*member, path);
    } else {
      std::cout << "  " << visibleText(cutText(path, kMaxShownPath)) << ": " << valueText(*member)
                << '\n';
    }
    path.resize(before);
  }
}

}  // namespace

void StepDisplay::onStart(const StepRequest &request, std::int64_t pid) {
  std::cout << "running " << visibleText(request.executable) << " (process " << pid
            << ", framework " << request.frameworkVersion << ")\n";
}

void StepDisplay::onLine(const PluginLine &line) {
  std::cout << pluginLineText(line) << '\n' << std::flush;
}

void StepDisplay::onGarbage(Side, std::string_view bytes, const std::string &reason) {
  std::cout << "[host] " << reason << "; the bytes begin with " << toHex(bytes) << '\n';
}

void StepDisplay::onAnswer(ZARN::ARVLAPP::PACKET_TYPE request, const Json::Value &,
                           const std::optional<std::string> &denial) {
  if (denial) {
    std::cout << "[host] " << ZARN::ARVLAPP::packetName(request)
              << " was denied: " << visibleText(*denial) << '\n'
              << std::flush;
  }
}

void StepDisplay::showProgress(const std::string &stage, int percentage) {
  std::cout << "[progress] " << percentage << " % " << visibleText(stage) << '\n' << std::flush;
}

void StepDisplay::showSkipped(const Tally &skipped) {
  for (const std::string &path : skipped.texts) {
    std::cout << "[host] " << skippedText(path) << '\n';
  }
  if (skipped.count > skipped.texts.size()) {
    std::cout << "[host] skipped " << skipped.count << " entries in all\n";
  }
}

void StepDisplay::showResult(const std::string &step, const StepResult &result) {
  if (result.completion.isObject()) {
    std::cout << "completion:\n";
    std::string path;
    printMembers(result.completion, path);
  }
  for (const std::string &line : result.lines) {
    std::cout << "[rule book] " << visibleText(line) << '\n';
  }
  if (!result.reason.empty()) {
    std::cout << visibleText(result.reason) << '\n';
  }
  std::cout << "step " << step << ": " << outcomeText(result.outcome) << " (" << std::fixed
            << std::setprecision(3) << result.seconds << " s, "
            << countText(static_cast<std::uint64_t>(result.packets), "packet") << ")\n"
            << std::flush;
}

}  // namespace arvl_host
