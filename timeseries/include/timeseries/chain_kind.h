// The four kinds of pointer chains and everything in which they differ.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "common/bytes.h"
#include "timeseries/format.h"

namespace tsdb {

// The values are the kinds' indexes in the chain table and in log lines.
enum class ChainKind : std::uint32_t { head = 0, tail = 1, lblock = 2, check = 3 };

struct ChainTraits {
  ChainKind kind;
  std::uint32_t magic;
  std::uint32_t entry_size_bytes;
  std::string_view name;
  std::string_view printed_name;
  // Head and tail chains announce the writing of a new run.
  bool is_ht_data;
  // A search for a free entry reports its result also for a run without one.
  bool reports_vain_search;
};

// In the order of the kinds' indexes, which is also the order of creation within a chain set.
// clang-format off
inline constexpr std::array<ChainTraits, 4> chain_traits = {{
    {ChainKind::head,   bytes::magic("HEAD"), format::end_entry::size,    "head",   "Head",   true,  false},
    {ChainKind::tail,   bytes::magic("TAIL"), format::end_entry::size,    "tail",   "Tail",   true,  false},
    {ChainKind::lblock, bytes::magic("LBAL"), format::lblock_entry::size, "lblock", "LBlock", false, false},
    {ChainKind::check,  bytes::magic("CHCK"), format::check_entry::size,  "check",  "Check",  false, true},
}};
// clang-format on

// The kind's index in the chain table and in log lines.
constexpr std::uint32_t kind_index(ChainKind kind) {
  return static_cast<std::uint32_t>(kind);
}

// The kind's line of the table above.
constexpr const ChainTraits& traits_of(ChainKind kind) {
  return chain_traits[kind_index(kind)];
}

static_assert([] {
  for (std::size_t index = 0; index < chain_traits.size(); ++index) {
    if (kind_index(chain_traits[index].kind) != index)
      return false;
  }
  return true;
}());

}  // namespace tsdb
