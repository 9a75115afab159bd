#include "createdb/progress.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iostream>
#include <string_view>

#include "common/text.h"
#include "platform/platform.h"

namespace createdb {
namespace {

constexpr std::uint64_t microseconds_per_second = 1'000'000;
constexpr std::uint64_t first_shown_after = microseconds_per_second;
constexpr std::uint64_t shown_every = microseconds_per_second / 5;

constexpr std::array<std::string_view, 5> units = {"B/s", "KiB/s", "MiB/s", "GiB/s", "TiB/s"};

std::string speed_text(double bytes_per_second) {
  std::size_t unit = 0;
  for (; bytes_per_second >= 1024 && unit + 1 < units.size(); ++unit)
    bytes_per_second /= 1024;
  const auto tenths = static_cast<std::uint64_t>(bytes_per_second * 10);
  return text::concat(tenths / 10, '.', tenths % 10, ' ', units[unit]);
}

std::string time_text(std::uint64_t seconds) {
  const std::uint64_t minutes = seconds / 60;
  const std::string rest = text::two_digits(static_cast<std::uint32_t>(seconds % 60));
  if (minutes < 60)
    return text::concat(minutes, ':', rest);
  return text::concat(minutes / 60, ':', text::two_digits(static_cast<std::uint32_t>(minutes % 60)), ':',
                      rest);
}

}  // namespace

std::string progress_text(std::uint64_t written_bytes, std::uint64_t all_bytes,
                          std::uint64_t elapsed_microseconds) {
  const auto written = static_cast<double>(written_bytes);
  const auto all = static_cast<double>(all_bytes);
  const double elapsed_seconds = static_cast<double>(elapsed_microseconds) / microseconds_per_second;
  const double seconds_left = std::ceil(elapsed_seconds * (all - written) / written);
  return text::concat(static_cast<std::uint64_t>(100 * written / all), " %, ",
                      speed_text(written / elapsed_seconds), ", ",
                      time_text(static_cast<std::uint64_t>(seconds_left)), " left");
}

GrowthProgress::GrowthProgress()
    : is_on_terminal_(platform::system().is_terminal(platform::Stream::error)),
      start_(platform::system().monotonic_microseconds()),
      next_(start_ + first_shown_after) {}

void GrowthProgress::advance(std::uint64_t written_bytes, std::uint64_t all_bytes) {
  if (!is_on_terminal_)
    return;
  if (written_bytes == all_bytes) {
    show({});
    return;
  }
  const std::uint64_t now = platform::system().monotonic_microseconds();
  if (now <= next_)
    return;
  next_ = now + shown_every;
  show(progress_text(written_bytes, all_bytes, now - start_));
}

// With backspaces alone, which every console knows.
void GrowthProgress::show(const std::string& text) {
  std::string output(shown_, '\b');
  output += text;
  const std::size_t rest = shown_ > text.size() ? shown_ - text.size() : 0;
  output += std::string(rest, ' ') + std::string(rest, '\b');
  shown_ = text.size();
  std::cerr << output << std::flush;
}

}  // namespace createdb
