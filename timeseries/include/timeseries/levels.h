// Levels and the time series made of them. A level is a run of data blocks, described by an entry of the
// current lblock chain; the entry's number is the level's number. Head and tail chains have an entry for
// it under the same number.

#pragma once

#include <cstdint>
#include <vector>

#include "timeseries/chain.h"

namespace tsdb {

struct LevelDescription {
  // How many values the level has room for; not 0.
  std::uint32_t entry_count = 0;
  // Stored with the level, not interpreted.
  std::uint32_t parameter = 0;
};

struct SeriesDescription {
  // 1 to 4: values of 28, 20, 28 and 1 bytes.
  std::uint32_t datatype = 0;
  // Each level is linked to the one after it.
  std::vector<LevelDescription> levels;
};

// Bytes of a stored entry. Throws error_dbtype for an unknown datatype.
std::uint32_t entry_size_of(std::uint32_t datatype);

// Number of the first free entry of an lblock chain, all bits set when there is none. Throws nothing.
std::uint32_t find_free_lblock(Chain& chain);

// Allocates a level of `block_count` blocks that is followed by level `next_lblock` (0 for none) and
// returns its number, never 0: the first level of a database costs its blocks twice, as entry 0 is filled
// and left behind. In memory until sync_chains().
// Throws error_dbnospace when blocks or entries run out and growth does not help, and what grow_tsdb() and
// grow_chain() throw. Nothing is given back on a failure.
std::uint32_t allocate_level(std::uint32_t block_count, std::uint32_t parameter, std::uint32_t next_lblock);

// Allocates all levels of a series, registers it in the check chain and returns its check ID; durable on
// return.
// Throws error_internal for a series without levels, error_dbtype for an unknown datatype, and what
// allocate_level() and allocate_check_id() throw. Levels allocated before a failure stay allocated.
std::int32_t allocate_described_ts(const SeriesDescription& description);

}  // namespace tsdb
