#include "support/log_source.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <string>

namespace arvl_test {

namespace {

namespace fs = std::filesystem;

using Lines = std::vector<std::string>;

Lines readLines(const fs::path &path) {
  std::ifstream file(path);
  Lines lines;
  for (std::string line; std::getline(file, line);) {
    lines.push_back(line);
  }
  return lines;
}

// Returns the lines of each source file by the file name that the log shows.
const std::map<std::string, Lines> &sources() {
  static const auto *const kSources = [] {
    auto *files = new std::map<std::string, Lines>;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(ARVL_SOURCE_DIR)) {
      if (entry.path().extension() == ".cpp") {
        files->emplace(entry.path().filename(), readLines(entry.path()));
      }
    }
    return files;
  }();
  return *kSources;
}

// Returns the text as a string literal of a source file.
std::string toLiteral(const std::string &text) {
  static const std::map<char, std::string> kEscapes = {
      {'"', "\\\""}, {'\\', "\\\\"}, {'\n', "\\n"}, {'\t', "\\t"}};
  std::string literal = "\"";
  for (const char c : text) {
    const auto escape = kEscapes.find(c);
    literal += escape == kEscapes.end() ? std::string(1, c) : escape->second;
  }
  return literal + '"';
}

testing::AssertionResult namesItsStatement(const LogRecord &record) {
  const std::string prefix = "%s:%d ";
  const auto failure = [&record] {
    return testing::AssertionFailure()
           << record.file << ":" << record.line << " [" << record.format << "] ";
  };
  if (record.format.rfind(prefix, 0) != 0) {
    return failure() << "does not open with the prefix";
  }
  const auto source = sources().find(record.file);
  if (source == sources().end()) {
    return failure() << "names no source below " << ARVL_SOURCE_DIR;
  }
  const Lines &lines = source->second;
  if (record.line < 1 || static_cast<std::size_t>(record.line) > lines.size()) {
    return failure() << "names a line beyond the file's " << lines.size();
  }
  const std::string &line = lines[static_cast<std::size_t>(record.line) - 1];
  if (line.find(toLiteral(record.format.substr(prefix.size()))) == std::string::npos) {
    return failure() << "names a line that reads: " << line;
  }
  return testing::AssertionSuccess();
}

}  // namespace

testing::AssertionResult nameTheirStatements(const std::vector<LogRecord> &records) {
  for (const LogRecord &record : records) {
    if (testing::AssertionResult result = namesItsStatement(record); !result) {
      return result;
    }
  }
  return testing::AssertionSuccess();
}

}  // namespace arvl_test
