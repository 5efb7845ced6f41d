// Lines out of a stream that may hold anything, in bounded memory.
#ifndef ARVL_HOST_STEP_LINE_SPLITTER_H_
#define ARVL_HOST_STEP_LINE_SPLITTER_H_

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace arvl_host {

class LineSplitter {
 public:
  // Of a longer line, what follows these bytes is counted and not kept.
  static constexpr std::size_t kMaxLine = 4096;

  using Sink = std::function<void(std::string_view line)>;

  explicit LineSplitter(Sink sink) : sink_(std::move(sink)) {}

  void add(std::string_view bytes);
  // What the stream ended with, if that was not a line feed.
  void finish();

 private:
  void keep(std::string_view bytes);
  void emit();

  Sink sink_;
  std::string line_;
  std::size_t cut_ = 0;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_LINE_SPLITTER_H_
