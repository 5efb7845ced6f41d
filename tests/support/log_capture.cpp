#include "support/log_capture.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>

#include "protocol/log_functions.h"

namespace arvl_test {

namespace {

std::mutex mutex;
std::vector<LogRecord> records;

constexpr const char kPrefix[] = "%s:%d ";

std::string render(const char *format, va_list arguments) {
  char *text = nullptr;
  if (vasprintf(&text, format, arguments) < 0) {
    std::abort();
  }
  std::string result(text);
  std::free(text);
  return result;
}

LogRecord makeRecord(int priority, const char *format, va_list arguments) {
  LogRecord record;
  record.priority = priority;
  record.format = format;
  record.message = render(format, arguments);
  if (record.format.rfind(kPrefix, 0) == 0) {
    const std::size_t colon = record.message.find(':');
    const std::size_t space = record.message.find(' ', colon);
    record.file = record.message.substr(0, colon);
    record.line = std::atoi(record.message.c_str() + colon + 1);
    record.message.erase(0, space + 1);
  }
  return record;
}

}  // namespace

LogLines toLines(const std::vector<LogRecord> &log) {
  LogLines lines;
  for (const LogRecord &record : log) {
    std::string line = record.file + ": " + record.message;
    if (record.priority != LOG_ERR) {
      line = "priority " + std::to_string(record.priority) + ": " + line;
    }
    lines.push_back(line);
  }
  return lines;
}

LogCapture::LogCapture() {
  takeRecords();
}

LogCapture::~LogCapture() = default;

std::vector<LogRecord> LogCapture::takeRecords() {
  const std::lock_guard<std::mutex> lock(mutex);
  return std::exchange(records, {});
}

LogLines LogCapture::take() {
  return toLines(takeRecords());
}

}  // namespace arvl_test

namespace {

void takeLogLine(int priority, const char *format, va_list arguments) {
  arvl_test::LogRecord record = arvl_test::makeRecord(priority, format, arguments);
  const std::lock_guard<std::mutex> lock(arvl_test::mutex);
  arvl_test::records.push_back(std::move(record));
}

}  // namespace
