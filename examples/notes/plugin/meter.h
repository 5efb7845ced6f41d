// Computes the percentage of the whole job from the bytes of one part of it.
#ifndef NOTES_PLUGIN_METER_H_
#define NOTES_PLUGIN_METER_H_

#include <cstdint>

namespace notes {

class Meter {
 public:
  // The part begins and ends at these percentages.
  Meter(int from, int to) : from_(from), to_(to) {}

  void expect(std::int64_t bytes) { expected_ += bytes; }

  // Adds the bytes and returns the percentage reached.
  int add(std::int64_t bytes) {
    done_ += bytes;
    return expected_ > 0 ? from_ + static_cast<int>((to_ - from_) * done_ / expected_) : to_;
  }

 private:
  int from_;
  int to_;
  std::int64_t expected_ = 0;
  std::int64_t done_ = 0;
};

}  // namespace notes

#endif  // NOTES_PLUGIN_METER_H_
