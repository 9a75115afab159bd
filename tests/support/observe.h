// What a call says besides what it returns: the lines of the log, and its exception; and texts as bytes.

#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <vector>

#include "common/errors.h"
#include "common/log.h"
#include "common/text.h"

namespace support {

inline std::span<const std::byte> bytes_of(std::string_view text) {
  return std::as_bytes(std::span(text));
}

inline std::string text_of(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// Takes the place of the log's output while it lives, and gives back the masks at its end.
class LogCapture {
 public:
  LogCapture() { lines_.clear(); }
  ~LogCapture() {
    logging::set_sink(previous_);
    mdb::log_mask = tsdb::log_mask = logging::default_mask;
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // Each as "level area text".
  static const std::vector<std::string>& lines() { return lines_; }
  // The lines since the last call.
  static std::vector<std::string> take() { return std::exchange(lines_, {}); }

 private:
  static inline std::vector<std::string> lines_;
  logging::Sink previous_ =
      logging::set_sink([](logging::Level level, logging::Area area, std::string_view line) {
        lines_.push_back(text::concat(level, " ", area, " ", line));
      });
};

// The class and the full text of what the call throws, as "io: text" for an error_io; "nothing" when it
// returns.
template <typename Call>
std::string thrown_by(const Call& call) {
  try {
    call();
  } catch (const error::Exception& error) {
    const std::string mangled = typeid(error).name();  // N3mdb8error_ioE
    const std::size_t begin = mangled.find("error_") + 6;
    return mangled.substr(begin, mangled.size() - 1 - begin) + ": " + error.full_text();
  }
  return "nothing";
}

}  // namespace support
