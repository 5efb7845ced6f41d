#include "text/strict_json.h"

#include <json/value.h>
#include <json/writer.h>

#include <cmath>
#include <cstddef>
#include <cstdint>

#include "text/characters.h"

namespace arvl_host {

namespace {

// Deep enough for any sensible payload. jq reads 256 levels, and the line around the payload needs some.
constexpr int kMaxDepth = 200;

void appendJsonCharacter(std::string &out, std::string_view bytes, const Character &c) {
  if (!c.valid) {
    appendEscape(out, 'u', 0xDC00U + c.codePoint);
  } else if (c.codePoint == '"' || c.codePoint == '\\') {
    out.append("\\").append(bytes);
  } else if (const char letter = shortEscape(c.codePoint)) {
    out.append("\\").append(1, letter);
  } else if (isHidden(c.codePoint)) {
    appendEscape(out, 'u', c.codePoint);
  } else {
    out.append(bytes);
  }
}

// Writes one value and everything in it.
class JsonPrinter {
 public:
  JsonPrinter(std::string &out, JsonLayout layout) : out_(out), layout_(layout) {}

  bool print(const Json::Value &value) {
    switch (value.type()) {
      case Json::arrayValue:
        return printArray(value);
      case Json::objectValue:
        return printObject(value);
      default:
        printScalar(value);
        return true;
    }
  }

 private:
  void printScalar(const Json::Value &value) {
    switch (value.type()) {
      case Json::stringValue:
        printString(value);
        break;
      case Json::booleanValue:
        out_ += value.asBool() ? "true" : "false";
        break;
      case Json::intValue:
        out_ += Json::valueToString(value.asLargestInt());
        break;
      case Json::uintValue:
        out_ += Json::valueToString(value.asLargestUInt());
        break;
      case Json::realValue:
        out_ += std::isfinite(value.asDouble()) ? Json::valueToString(value.asDouble()) : "null";
        break;
      default:
        out_ += "null";
    }
  }

  // Does not copy the string, which may be a whole payload.
  void printString(const Json::Value &value) {
    const char *begin = nullptr;
    const char *end = nullptr;
    value.getString(&begin, &end);
    appendJsonString(out_, std::string_view(begin, static_cast<std::size_t>(end - begin)));
  }

  bool printArray(const Json::Value &array) {
    if (!open('[')) {
      return false;
    }
    const char *separator = "";
    for (const Json::Value &element : array) {
      startItem(separator);
      if (!print(element)) {
        return false;
      }
    }
    close(']', array);
    return true;
  }

  bool printObject(const Json::Value &object) {
    if (!open('{')) {
      return false;
    }
    const char *separator = "";
    for (auto member = object.begin(); member != object.end(); ++member) {
      startItem(separator);
      appendJsonString(out_, member.name());
      out_ += layout_ == JsonLayout::kIndented ? ": " : ":";
      if (!print(*member)) {
        return false;
      }
    }
    close('}', object);
    return true;
  }

  bool open(char bracket) {
    out_ += bracket;
    return ++depth_ <= kMaxDepth;
  }

  void startItem(const char *&separator) {
    out_ += separator;
    separator = ",";
    breakLine();
  }

  void close(char bracket, const Json::Value &container) {
    --depth_;
    if (!container.empty()) {
      breakLine();
    }
    out_ += bracket;
  }

  void breakLine() {
    if (layout_ == JsonLayout::kIndented) {
      out_ += '\n';
      out_.append(2 * static_cast<std::size_t>(depth_), ' ');
    }
  }

  std::string &out_;
  const JsonLayout layout_;
  int depth_ = 0;
};

unsigned byteAt(std::string_view text, std::size_t index) {
  return static_cast<unsigned char>(text[index]);
}

bool isContinuation(std::string_view text, std::size_t index) {
  return index < text.size() && (byteAt(text, index) & 0xC0U) == 0x80U;
}

}  // namespace

void appendJsonString(std::string &out, std::string_view text) {
  out += '"';
  for (std::size_t at = 0; at < text.size();) {
    const Character c = characterAt(text, at);
    appendJsonCharacter(out, text.substr(at, c.length), c);
    at += c.length;
  }
  out += '"';
}

bool appendJson(std::string &out, const Json::Value &value, JsonLayout layout) {
  return JsonPrinter(out, layout).print(value);
}

// JsonCpp encodes a lone surrogate in three bytes: ED B2 80 to ED B3 BF mean the bytes 80 to FF.
std::string restoreBytes(std::string_view parsed) {
  std::string bytes;
  bytes.reserve(parsed.size());
  for (std::size_t at = 0; at < parsed.size(); ++at) {
    if (byteAt(parsed, at) == 0xED && isContinuation(parsed, at + 2) &&
        (byteAt(parsed, at + 1) == 0xB2 || byteAt(parsed, at + 1) == 0xB3)) {
      const unsigned high = byteAt(parsed, at + 1) == 0xB2 ? 0x80U : 0xC0U;
      bytes += static_cast<char>(high | (byteAt(parsed, at + 2) & 0x3FU));
      at += 2;
    } else {
      bytes += parsed[at];
    }
  }
  return bytes;
}

Json::Value restoreBytes(const Json::Value &parsed) {
  if (parsed.isString()) {
    return restoreBytes(std::string_view(parsed.asString()));
  }
  if (parsed.isArray()) {
    Json::Value array(Json::arrayValue);
    for (const Json::Value &element : parsed) {
      array.append(restoreBytes(element));
    }
    return array;
  }
  if (parsed.isObject()) {
    Json::Value object(Json::objectValue);
    for (auto member = parsed.begin(); member != parsed.end(); ++member) {
      object[restoreBytes(std::string_view(member.name()))] = restoreBytes(*member);
    }
    return object;
  }
  return parsed;
}

}  // namespace arvl_host
