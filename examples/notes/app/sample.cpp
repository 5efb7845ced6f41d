#include "app/sample.h"

#include <array>
#include <random>

namespace notes {
namespace {

constexpr std::array<const char *, 3> kNotebooks = {"home", "ideas", "work"};
constexpr std::array<const char *, 12> kWords = {"apple",  "bridge", "candle", "driver",
                                                 "engine", "forest", "garden", "harbour",
                                                 "island", "jacket", "kettle", "lantern"};

std::mt19937 generator(std::int64_t number) {
  return std::mt19937(static_cast<std::mt19937::result_type>(number));
}

}  // namespace

std::string sampleNotebook(std::int64_t number) {
  return kNotebooks[static_cast<std::size_t>(number) % kNotebooks.size()];
}

std::string sampleTitle(std::int64_t number) {
  return "Note " + std::to_string(number);
}

std::string sampleBody(std::int64_t number) {
  std::mt19937 random = generator(number);
  std::string body;
  for (auto words = 10 + random() % 90; words > 0; --words) {
    body += kWords[random() % kWords.size()];
    body += words > 1 ? ' ' : '.';
  }
  return body;
}

std::string sampleAttachment(std::int64_t number) {
  std::mt19937 random = generator(number);
  std::string content(1024 + random() % 64512, '\0');
  for (char &byte : content) {
    byte = static_cast<char>(random() & 0xff);
  }
  return content;
}

}  // namespace notes
