#include "step/line_splitter.h"

#include <algorithm>

namespace arvl_host {

void LineSplitter::add(std::string_view bytes) {
  for (;;) {
    const std::size_t end = bytes.find('\n');
    if (end == std::string_view::npos) {
      keep(bytes);
      return;
    }
    keep(bytes.substr(0, end));
    emit();
    bytes.remove_prefix(end + 1);
  }
}

void LineSplitter::finish() {
  if (!line_.empty() || cut_ != 0) {
    emit();
  }
}

void LineSplitter::keep(std::string_view bytes) {
  const std::size_t room = kMaxLine - line_.size();
  line_.append(bytes.substr(0, room));
  cut_ += bytes.size() - std::min(bytes.size(), room);
}

void LineSplitter::emit() {
  if (cut_ != 0) {
    line_ += " [" + std::to_string(cut_) + " more bytes]";
  }
  sink_(line_);
  line_.clear();
  cut_ = 0;
}

}  // namespace arvl_host
