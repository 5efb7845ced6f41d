#include "step/rule_book.h"

#include <json/value.h>

#include <cstdarg>
#include <cstdio>
#include <exception>

#include "protocol/log_functions.h"

namespace arvl_host {

namespace {

// Collects the lines while this thread judges a packet; null otherwise.
thread_local std::vector<std::string> *collector = nullptr;

std::string render(const char *format, va_list arguments) {
  char text[4096];
  std::vsnprintf(text, sizeof text, format, arguments);
  return text;
}

// Returns "no member [path]" of "protocol_util.cpp:104 no member [path]".
std::string withoutPlace(const std::string &line) {
  return line.substr(line.find(' ') + 1);
}

}  // namespace

Verdict judge(ZARN::ARVLAPP::PACKET_TYPE type, const Json::Value &payload) {
  Verdict verdict;
  collector = &verdict.lines;
  try {
    verdict.valid = ZARN::ARVLAPP::Util::isValidPacket(type, payload);
  } catch (const std::exception &error) {
    verdict.valid = false;
    verdict.lines.push_back(error.what());
  }
  collector = nullptr;
  return verdict;
}

}  // namespace arvl_host

namespace {

void takeLogLine(int priority, const char *format, va_list arguments) {
  if (arvl_host::collector != nullptr) {
    arvl_host::collector->push_back(arvl_host::withoutPlace(arvl_host::render(format, arguments)));
  } else {
    vsyslog(priority, format, arguments);
  }
}

}  // namespace
