// Durations as seconds and microseconds.

#pragma once

#include <cstdint>

namespace timing {

struct SecondsMicroseconds {
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;

  bool operator==(const SecondsMicroseconds&) const = default;
};

// Carries whole seconds out of the microseconds. Negative microseconds abort the process with the text
// "Cannot normalize negative microseconds".
SecondsMicroseconds normalize(SecondsMicroseconds time);

// later - earlier, borrowing at most one second; microseconds that stay negative abort the process with
// the text "Negative usec".
SecondsMicroseconds difference(SecondsMicroseconds later, SecondsMicroseconds earlier);

// Whole seconds × 1000 plus the microseconds rounded to the nearest millisecond.
// REQUIRES: both fields are not negative.
std::uint64_t to_milliseconds(SecondsMicroseconds time);

// A clock that started when it was constructed; monotonic.
class StopWatch {
 public:
  StopWatch();
  std::uint64_t elapsed_microseconds() const;
  std::uint64_t elapsed_milliseconds() const;

 private:
  std::uint64_t start_;
};

// Whole seconds of the monotonic clock.
std::uint64_t monotonic_seconds();

}  // namespace timing
