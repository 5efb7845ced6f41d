#include "text/strict_json.h"

#include <json/value.h>
#include <json/writer.h>

#include <algorithm>
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

constexpr std::size_t kPieceSize = 65536;

bool isDeeperThan(int levels, const Json::Value &value) {
  return (value.isArray() || value.isObject()) &&
         (levels == 0 || std::any_of(value.begin(), value.end(), [levels](const Json::Value &item) {
            return isDeeperThan(levels - 1, item);
          }));
}

// Appends one value and everything in it. Passes long text to the sink, if any, and removes it.
class JsonPrinter {
 public:
  JsonPrinter(std::string &out, JsonLayout layout, const JsonSink *sink = nullptr)
      : out_(out), layout_(layout), sink_(sink) {}

  void print(const Json::Value &value) {
    switch (value.type()) {
      case Json::arrayValue:
        printArray(value);
        break;
      case Json::objectValue:
        printObject(value);
        break;
      default:
        printScalar(value);
    }
  }

  void printString(std::string_view text) {
    out_ += '"';
    for (std::size_t at = 0; at < text.size();) {
      const Character c = characterAt(text, at);
      appendJsonCharacter(out_, text.substr(at, c.length), c);
      at += c.length;
      passOn(kPieceSize);
    }
    out_ += '"';
  }

  // Passes the text to the sink if it has at least so many bytes.
  void passOn(std::size_t atLeast) {
    if (sink_ != nullptr && out_.size() >= atLeast) {
      (*sink_)(out_);
      out_.clear();
    }
  }

 private:
  void printScalar(const Json::Value &value) {
    switch (value.type()) {
      case Json::stringValue:
        printStringOf(value);
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
  void printStringOf(const Json::Value &value) {
    const char *begin = nullptr;
    const char *end = nullptr;
    value.getString(&begin, &end);
    printString(std::string_view(begin, static_cast<std::size_t>(end - begin)));
  }

  void printArray(const Json::Value &array) {
    open('[');
    const char *separator = "";
    for (const Json::Value &element : array) {
      startItem(separator);
      print(element);
    }
    close(']', array);
  }

  void printObject(const Json::Value &object) {
    open('{');
    const char *separator = "";
    for (auto member = object.begin(); member != object.end(); ++member) {
      startItem(separator);
      printString(member.name());
      out_ += layout_ == JsonLayout::kIndented ? ": " : ":";
      print(*member);
    }
    close('}', object);
  }

  void open(char bracket) {
    out_ += bracket;
    ++depth_;
  }

  void startItem(const char *&separator) {
    passOn(kPieceSize);
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
  const JsonSink *const sink_;
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
  JsonPrinter(out, JsonLayout::kCompact).printString(text);
}

bool appendJson(std::string &out, const Json::Value &value, JsonLayout layout) {
  if (isDeeperThan(kMaxDepth, value)) {
    return false;
  }
  JsonPrinter(out, layout).print(value);
  return true;
}

bool writeJson(const JsonSink &sink, const Json::Value &value, JsonLayout layout) {
  if (isDeeperThan(kMaxDepth, value)) {
    return false;
  }
  std::string piece;
  JsonPrinter printer(piece, layout, &sink);
  printer.print(value);
  printer.passOn(1);
  return true;
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
