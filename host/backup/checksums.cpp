#include "backup/checksums.h"

#include <cstddef>
#include <string_view>

#include "backup/backup_file.h"
#include "backup/entry_path.h"
#include "backup/manifest.h"
#include "files/sha256.h"

namespace arvl_host {

namespace {

constexpr std::size_t kDigits = 64;  // of a SHA-256

// Returns whether sha256sum escapes the name, which it marks with a backslash before the line.
bool isEscaped(const std::string &name) {
  return name.find_first_of("\\\n\r") != std::string::npos;
}

std::string escape(const std::string &name) {
  std::string text;
  for (const char c : name) {
    switch (c) {
      case '\\':
        text += "\\\\";
        break;
      case '\n':
        text += "\\n";
        break;
      case '\r':
        text += "\\r";
        break;
      default:
        text += c;
    }
  }
  return text;
}

std::string unescape(std::string_view text) {
  std::string name;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '\\' || at + 1 == text.size()) {
      name += text[at];
      continue;
    }
    ++at;
    name += text[at] == 'n' ? '\n' : text[at] == 'r' ? '\r' : text[at];
  }
  return name;
}

}  // namespace

std::string checksumLine(const std::string &sha256, const std::string &name) {
  return isEscaped(name) ? "\\" + sha256 + "  " + escape(name) : sha256 + "  " + name;
}

ChecksumsReader::ChecksumsReader(const std::filesystem::path &folder)
    : lines_(folder / kChecksumsName) {}

std::optional<ChecksumsReader::Line> ChecksumsReader::next() {
  std::string text;
  if (!lines_.read(text)) {
    return std::nullopt;
  }
  const bool escaped = !text.empty() && text[0] == '\\';
  const std::size_t begin = escaped ? 1 : 0;
  if (text.find_first_not_of("0123456789abcdef", begin) != begin + kDigits ||
      text.compare(begin + kDigits, 2, "  ") != 0) {
    lines_.fail("invalid line: it is not a checksum and a name");
  }
  const std::string written = text.substr(begin + kDigits + 2);
  const std::string name = escaped ? unescape(written) : written;
  if (const std::string problem = checkEntryPath(name, 0); !problem.empty()) {
    lines_.fail(problem);
  }
  return Line{text.substr(begin, kDigits), name};
}

void checkManifestFile(const std::filesystem::path &folder) {
  const std::filesystem::path path = folder / kManifestName;
  const UniqueFd file = openBackupFile(path);
  const std::string sha256 = sha256OfFile(file.get(), path);
  ChecksumsReader checksums(folder);
  while (const std::optional<ChecksumsReader::Line> line = checksums.next()) {
    if (line->name == kManifestName) {
      if (line->sha256 != sha256) {
        throw StoreError(quoted(path) + " is not the file that " + kChecksumsName +
                         " has the checksum of: one of the two is damaged");
      }
      return;
    }
  }
  throw StoreError(quoted(folder / kChecksumsName) + " has no checksum of " + kManifestName);
}

}  // namespace arvl_host
