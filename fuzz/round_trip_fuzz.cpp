// Writes, frames and reads any payload. Input: a value in this notation. Every text is a value.
//
//   n t f        null, true, false
//   i-5; u5;     signed and unsigned integer
//   d1e-3;       floating-point number; also dnan; and dinf;
//   sTEXT;       string of any bytes; "\" takes the next byte as it is
//   [...]        array of values
//   {TEXT;...}   object of keys and values
//
// Reading the text of a value yields the same value, except for: a null payload (no text), NaN (becomes
// null), an infinity and nesting beyond 1000 levels (not parsed), and strings that are not UTF-8
// (replacement characters).

#include <json/value.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "protocol/json_text.h"
#include "protocol/packet_frame.h"
#include "support/check.h"
#include "support/frame.h"

namespace {

using namespace ZARN::ARVLAPP;

constexpr int kMaxParsedDepth = 1000;
constexpr int kMaxDepth = kMaxParsedDepth + 8;

class ValueReader {
 public:
  explicit ValueReader(const std::string &input) : input_(input) {}

  Json::Value read(int depth = 1) {
    const char kind = next();
    switch (depth <= kMaxDepth ? kind : 'n') {
      case 't':
        return true;
      case 'f':
        return false;
      case 'i':
        return Json::Int64(std::strtoll(readText().c_str(), nullptr, 10));
      case 'u':
        return Json::UInt64(std::strtoull(readText().c_str(), nullptr, 10));
      case 'd':
        return std::strtod(readText().c_str(), nullptr);
      case 's':
        return readText();
      case '[':
        return readArray(depth);
      case '{':
        return readObject(depth);
      default:
        return Json::Value();
    }
  }

 private:
  bool isAtEnd() const { return at_ >= input_.size(); }
  char next() { return isAtEnd() ? '\0' : input_[at_++]; }

  bool skip(char expected) {
    const bool isThere = !isAtEnd() && input_[at_] == expected;
    at_ += isThere ? 1 : 0;
    return isThere;
  }

  std::string readText() {
    std::string text;
    while (!isAtEnd() && !skip(';')) {
      skip('\\');
      text += next();
    }
    return text;
  }

  Json::Value readArray(int depth) {
    Json::Value array(Json::arrayValue);
    while (!isAtEnd() && !skip(']')) {
      array.append(read(depth + 1));
    }
    return array;
  }

  Json::Value readObject(int depth) {
    Json::Value object(Json::objectValue);
    while (!isAtEnd() && !skip('}')) {
      const std::string key = readText();
      object[key] = read(depth + 1);
    }
    return object;
  }

  const std::string &input_;
  std::size_t at_ = 0;
};

// Returns whether the bytes are valid UTF-8: no overlong form, no surrogate, nothing beyond U+10FFFF.
bool isUtf8(const std::string &text) {
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i++]);
    const int following = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
    if ((lead >= 0x80 && lead < 0xC2) || lead > 0xF4) {
      return false;
    }
    for (int n = 0; n < following; ++n, ++i) {
      const auto byte = static_cast<unsigned char>(i < text.size() ? text[i] : '\0');
      const bool isFirst = n == 0;
      const int lowest = isFirst && lead == 0xE0 ? 0xA0 : isFirst && lead == 0xF0 ? 0x90 : 0x80;
      const int highest = isFirst && lead == 0xED ? 0x9F : isFirst && lead == 0xF4 ? 0x8F : 0xBF;
      if (byte < lowest || byte > highest) {
        return false;
      }
    }
  }
  return true;
}

struct Traits {
  bool isUtf8 = true;
  bool isFinite = true;
  int depth = 1;
};

Traits traitsOf(const Json::Value &value) {
  Traits traits;
  traits.isUtf8 = !value.isString() || isUtf8(value.asString());
  traits.isFinite = value.type() != Json::realValue || !std::isinf(value.asDouble());
  for (auto member = value.begin(); member != value.end(); ++member) {
    const Traits inner = traitsOf(*member);
    traits.isUtf8 = traits.isUtf8 && inner.isUtf8 && (value.isArray() || isUtf8(member.name()));
    traits.isFinite = traits.isFinite && inner.isFinite;
    traits.depth = std::max(traits.depth, inner.depth + 1);
  }
  return traits;
}

bool isInteger(const Json::Value &value) {
  return value.type() == Json::intValue || value.type() == Json::uintValue;
}

bool isSameNumber(double a, double b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// The parser chooses the signedness of an integer by its value.
bool isSame(const Json::Value &written, const Json::Value &read) {
  if (isInteger(written)) {
    return isInteger(read) && written.asString() == read.asString();
  }
  if (written.type() == Json::realValue) {
    return std::isnan(written.asDouble()) ? read.isNull()
                                          : read.type() == Json::realValue &&
                                                isSameNumber(written.asDouble(), read.asDouble());
  }
  if (!written.isArray() && !written.isObject()) {
    return written == read;
  }
  if (written.type() != read.type() || written.size() != read.size()) {
    return false;
  }
  auto other = read.begin();
  for (auto member = written.begin(); member != written.end(); ++member, ++other) {
    if ((written.isObject() && member.name() != other.name()) || !isSame(*member, *other)) {
      return false;
    }
  }
  return true;
}

bool readFrame(const std::string &frame, std::uint16_t type, Json::Value &payload) {
  PacketHeader header;
  FUZZ_CHECK(decodePacketHeader(frame.data(), header) == HeaderStatus::kOk);
  FUZZ_CHECK(header.type == type);
  FUZZ_CHECK(kPacketHeaderSize + header.payloadLength == frame.size());
  const char *text = frame.data() + kPacketHeaderSize;
  return parseJsonText(text, text + header.payloadLength, payload);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const std::string input(reinterpret_cast<const char *>(data), size);
  const Json::Value written = ValueReader(input).read();
  const Traits traits = traitsOf(written);

  const std::string text = toJsonText(written);
  FUZZ_CHECK(text.empty() == written.isNull());
  FUZZ_CHECK(text.empty() || text.back() == '\n');

  Json::Value read;
  const bool isRead = readFrame(arvl_fuzz::makeFrame(static_cast<std::uint16_t>(size), text),
                                static_cast<std::uint16_t>(size), read);
  FUZZ_CHECK(isRead == (!written.isNull() && traits.isFinite && traits.depth <= kMaxParsedDepth));
  if (isRead && traits.isUtf8) {
    FUZZ_CHECK(isSame(written, read));
  }
  return 0;
}
