// Splits a stream of any bytes into lines, in bounded memory.
#ifndef ARVL_HOST_STEP_LINE_SPLITTER_H_
#define ARVL_HOST_STEP_LINE_SPLITTER_H_

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace arvl_host {

class LineSplitter {
 public:
  // The bytes of a line beyond this are counted and dropped.
  static constexpr std::size_t kMaxLine = 4096;

  using Sink = std::function<void(std::string_view line)>;

  explicit LineSplitter(Sink sink) : sink_(std::move(sink)) {}

  void add(std::string_view bytes);
  // Emits the last line if the stream did not end with a line feed.
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
