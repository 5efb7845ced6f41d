// Counts events and keeps the first different texts about them.
#ifndef ARVL_HOST_TEXT_TALLY_H_
#define ARVL_HOST_TEXT_TALLY_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace arvl_host {

struct Tally {
  enum class Added { kNew, kKnown, kNotKept };

  static constexpr std::size_t kMaxTexts = 100;  // limits the memory

  std::uint64_t count = 0;         // of all texts that were added
  std::vector<std::string> texts;  // without duplicates

  Added add(const std::string &text) {
    ++count;
    if (std::find(texts.begin(), texts.end(), text) != texts.end()) {
      return Added::kKnown;
    }
    if (texts.size() == kMaxTexts) {
      return Added::kNotKept;
    }
    texts.push_back(text);
    return Added::kNew;
  }
};

}  // namespace arvl_host

#endif  // ARVL_HOST_TEXT_TALLY_H_
