// The percentage of the whole job, from the bytes of one stretch of it.
#ifndef NOTES_PLUGIN_METER_H_
#define NOTES_PLUGIN_METER_H_

#include <cstdint>

namespace notes {

class Meter {
 public:
  // The stretch leads from one percentage to the other.
  Meter(int from, int to) : from_(from), to_(to) {}

  void expect(std::int64_t bytes) { expected_ += bytes; }

  // The percentage that is reached with so many bytes more.
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
