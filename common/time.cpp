#include "common/time.h"

#include "common/assertion.h"
#include "platform/platform.h"

namespace timing {
namespace {

constexpr std::int32_t microseconds_per_second = 1'000'000;

}  // namespace

SecondsMicroseconds normalize(SecondsMicroseconds time) {
  if (time.microseconds < 0)
    assertion_failed("Cannot normalize negative microseconds");
  return {time.seconds + time.microseconds / microseconds_per_second,
          time.microseconds % microseconds_per_second};
}

SecondsMicroseconds difference(SecondsMicroseconds later, SecondsMicroseconds earlier) {
  SecondsMicroseconds result{later.seconds - earlier.seconds, later.microseconds - earlier.microseconds};
  if (result.microseconds < 0) {
    result.seconds -= 1;
    result.microseconds += microseconds_per_second;
  }
  if (result.microseconds < 0)
    assertion_failed("Negative usec");
  return result;
}

std::uint64_t to_milliseconds(SecondsMicroseconds time) {
  return static_cast<std::uint64_t>(time.seconds) * 1000 +
         (static_cast<std::uint64_t>(time.microseconds) + 500) / 1000;
}

StopWatch::StopWatch() : start_(platform::system().monotonic_microseconds()) {}

std::uint64_t StopWatch::elapsed_microseconds() const {
  return platform::system().monotonic_microseconds() - start_;
}

std::uint64_t StopWatch::elapsed_milliseconds() const {
  const std::uint64_t elapsed = elapsed_microseconds();
  return to_milliseconds({static_cast<std::int32_t>(elapsed / microseconds_per_second),
                          static_cast<std::int32_t>(elapsed % microseconds_per_second)});
}

std::uint64_t monotonic_seconds() {
  return platform::system().monotonic_microseconds() / microseconds_per_second;
}

}  // namespace timing
