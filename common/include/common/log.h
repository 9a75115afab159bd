// The log call: a level bit, an area bit and a text. Each database library has a mask of its own and
// tests it before it builds a message; the sink filters nothing.

#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "common/text.h"

namespace logging {

using Level = std::uint32_t;
inline constexpr Level detail = 1;
inline constexpr Level information = 2;
inline constexpr Level warning = 4;
inline constexpr Level severe = 8;

using Area = std::uint32_t;
inline constexpr Area journal = 1;
inline constexpr Area chains = 2;  // growth of chains, levels and check IDs
inline constexpr Area replay = 2;  // journal replay and transactions share the bit
inline constexpr Area phase_shift = 4;
inline constexpr Area objects = 8;  // the MDB header and objects
inline constexpr Area space = 16;   // MDB space allocation and store growth
inline constexpr Area index = 256;

inline constexpr Level default_mask = information | warning | severe;

// For richer sinks: six letters for seven names, as the server's sinks expect them.
inline constexpr std::array<std::string_view, 7> level_names = {"trace", "debug",    "info", "warning",
                                                                "error", "critical", "off"};
inline constexpr std::array<std::string_view, 6> level_letters = {"T", "D", "I", "W", "E", "O"};
inline constexpr std::string_view colour_reset = "\033[0m";
inline constexpr std::string_view line_end = "\r\n";

using Sink = void (*)(Level level, Area area, std::string_view text);

// Hands the text to the sink.
void write(Level level, Area area, std::string_view text);

// Replaces the sink (null for the first one, which writes the text and a newline to standard error and
// ignores level and area) and returns the one before.
Sink set_sink(Sink sink);

// Writes the concatenated pieces when `mask` has the level's bit.
template <typename... Pieces>
void write_masked(Level mask, Level level, Area area, const Pieces&... pieces) {
  if ((mask & level) != 0)
    write(level, area, text::concat(pieces...));
}

}  // namespace logging

namespace tsdb {

// The library's log mask; its bits are also its debug flags.
inline logging::Level log_mask = logging::default_mask;

// Writes the concatenated pieces when log_mask has the level's bit. Throws nothing but what memory throws.
template <typename... Pieces>
void log(logging::Level level, logging::Area area, const Pieces&... pieces) {
  logging::write_masked(log_mask, level, area, pieces...);
}

}  // namespace tsdb

namespace mdb {

// The library's log mask.
inline logging::Level log_mask = logging::default_mask;

// Writes the concatenated pieces when log_mask has the level's bit. Throws nothing but what memory throws.
template <typename... Pieces>
void log(logging::Level level, logging::Area area, const Pieces&... pieces) {
  logging::write_masked(log_mask, level, area, pieces...);
}

}  // namespace mdb
