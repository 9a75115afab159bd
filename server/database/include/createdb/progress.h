// What a user sees of a growth that takes its time.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace createdb {

// Shows behind what stands on standard error how far a growth has come: from its second second on, a few
// times a second, on a terminal only. Wipes it when the growth is complete or the object goes.
class GrowthProgress {
 public:
  GrowthProgress();
  ~GrowthProgress() { show({}); }
  GrowthProgress(const GrowthProgress&) = delete;
  GrowthProgress& operator=(const GrowthProgress&) = delete;

  // REQUIRES: 0 < written_bytes <= all_bytes.
  void advance(std::uint64_t written_bytes, std::uint64_t all_bytes);

 private:
  void show(const std::string& text);

  bool is_on_terminal_;
  std::uint64_t start_;  // microseconds of the monotonic clock
  std::uint64_t next_;   // when the next text is due
  std::size_t shown_ = 0;
};

// Per cent, bytes a second and the time left, such as "12 %, 340.5 MiB/s, 1:05 left". The time is what the
// rest takes at the average speed so far, rounded up to a second.
// REQUIRES: 0 < written_bytes <= all_bytes, elapsed_microseconds > 0.
std::string progress_text(std::uint64_t written_bytes, std::uint64_t all_bytes,
                          std::uint64_t elapsed_microseconds);

}  // namespace createdb
