#include "text/trace_text.h"

#include <json/value.h>
#include <json/writer.h>

#include <cmath>
#include <cstdio>
#include <ctime>

namespace arvl_host {

namespace {

// Deep enough for any sensible payload, and within the 256 levels that jq reads, with room for the
// line around it.
constexpr int kMaxDepth = 200;

constexpr char kHexDigits[] = "0123456789abcdef";

struct Character {
  std::uint32_t codePoint;  // or the byte, where no character begins
  std::size_t length;
  bool valid;
};

unsigned byteAt(std::string_view text, std::size_t index) {
  return static_cast<unsigned char>(text[index]);
}

bool isContinuation(std::string_view text, std::size_t index) {
  return index < text.size() && (byteAt(text, index) & 0xC0U) == 0x80U;
}

// The bytes that a lead byte announces, 0 for a byte that leads nothing.
std::size_t announcedLength(unsigned lead) {
  if (lead < 0x80) {
    return 1;
  }
  if (lead >= 0xC2 && lead <= 0xDF) {
    return 2;
  }
  if ((lead & 0xF0U) == 0xE0) {
    return 3;
  }
  return lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
}

bool isWellFormed(std::uint32_t codePoint, std::size_t length) {
  if (length == 3) {
    return codePoint >= 0x800 && (codePoint < 0xD800 || codePoint > 0xDFFF);
  }
  return length != 4 || (codePoint >= 0x10000 && codePoint <= 0x10FFFF);
}

Character characterAt(std::string_view text, std::size_t index) {
  const unsigned lead = byteAt(text, index);
  const std::size_t length = announcedLength(lead);
  std::uint32_t codePoint = length > 1 ? lead & (0x7FU >> length) : lead;
  for (std::size_t i = 1; i < length; ++i) {
    if (!isContinuation(text, index + i)) {
      return {lead, 1, false};
    }
    codePoint = codePoint << 6U | (byteAt(text, index + i) & 0x3FU);
  }
  if (length == 0 || !isWellFormed(codePoint, length)) {
    return {lead, 1, false};
  }
  return {codePoint, length, true};
}

// Control characters, and the invisible ones that reorder or hide their neighbours.
bool isHidden(std::uint32_t c) {
  return c < 0x20 || (c >= 0x7F && c <= 0x9F) || (c >= 0x200B && c <= 0x200F) ||
         (c >= 0x2028 && c <= 0x202E) || (c >= 0x2060 && c <= 0x206F) || c == 0xFEFF;
}

// \x and two digits, \u and four.
void appendEscape(std::string &out, char letter, unsigned number) {
  out.append("\\").append(1, letter);
  for (unsigned shift = letter == 'x' ? 8 : 16; shift > 0;) {
    shift -= 4;
    out += kHexDigits[number >> shift & 0xFU];
  }
}

// '\n' gives 'n'; 0 where there is no such short form.
char shortEscape(std::uint32_t c) {
  switch (c) {
    case '\b':
      return 'b';
    case '\f':
      return 'f';
    case '\n':
      return 'n';
    case '\r':
      return 'r';
    case '\t':
      return 't';
    default:
      return 0;
  }
}

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

// Writes one value with all that it holds.
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

  // In place: a payload may be one string.
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

int hexValue(char digit) {
  const std::string_view digits(kHexDigits);
  const std::size_t value = digits.find(digit);
  return value == std::string_view::npos ? -1 : static_cast<int>(value);
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

// JsonCpp makes three bytes of a lone surrogate: ED B2 80 to ED B3 BF stand for the bytes 80 to FF.
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

std::string_view cutText(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) {
    return text;
  }
  for (std::size_t back = 1; back <= 3 && back <= limit; ++back) {
    const Character c = characterAt(text, limit - back);
    if (c.valid && c.length > back) {
      return text.substr(0, limit - back);
    }
  }
  return text.substr(0, limit);
}

std::string visibleText(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const Character c = characterAt(text, at);
    if (const char letter = c.valid ? shortEscape(c.codePoint) : '\0') {
      out.append("\\").append(1, letter);
    } else if (!c.valid || (isHidden(c.codePoint) && c.codePoint < 0x80)) {
      appendEscape(out, 'x', c.codePoint);
    } else if (isHidden(c.codePoint)) {
      appendEscape(out, 'u', c.codePoint);
    } else {
      out.append(text.substr(at, c.length));
    }
    at += c.length;
  }
  return out;
}

bool isUtf8(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    const Character c = characterAt(text, i);
    if (!c.valid) {
      return false;
    }
    i += c.length;
  }
  return true;
}

std::string escapeHtml(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string toHex(std::string_view bytes) {
  std::string hex;
  hex.reserve(2 * bytes.size());
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    hex += kHexDigits[byte >> 4U];
    hex += kHexDigits[byte & 0xFU];
  }
  return hex;
}

bool fromHex(std::string_view hex, std::string &bytes) {
  bytes.clear();
  for (std::size_t at = 0; at + 1 < hex.size(); at += 2) {
    const int high = hexValue(hex[at]);
    const int low = hexValue(hex[at + 1]);
    if (high < 0 || low < 0) {
      return false;
    }
    bytes += static_cast<char>(high * 16 + low);
  }
  return hex.size() % 2 == 0;
}

std::string durationText(std::int64_t microseconds) {
  char text[48];
  if (microseconds < 1000) {
    std::snprintf(text, sizeof text, "%lld µs", static_cast<long long>(microseconds));
  } else if (microseconds < 1000000) {
    std::snprintf(text, sizeof text, "%.1f ms", static_cast<double>(microseconds) / 1e3);
  } else {
    std::snprintf(text, sizeof text, "%.2f s", static_cast<double>(microseconds) / 1e6);
  }
  return text;
}

std::string countText(std::uint64_t count, const char *noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string dateText(std::int64_t microseconds) {
  const std::time_t seconds = microseconds / 1000000;
  std::tm date = {};
  char text[64] = "";
  if (gmtime_r(&seconds, &date) != nullptr) {
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &date);
  }
  return text;
}

std::string isoDate(std::int64_t microseconds) {
  const std::string text = dateText(microseconds);
  return text.empty() ? "" : text.substr(0, 10) + "T" + text.substr(11, 8) + "Z";
}

}  // namespace arvl_host
