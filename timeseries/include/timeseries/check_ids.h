// Check IDs: the numbers of the entries of the current check chain.

#pragma once

#include <cstdint>

#include "timeseries/chain.h"

namespace tsdb {

// Number of the first free entry of a check chain, -1 when all are in use (or the first free one has a
// number that a check ID cannot have).
std::int32_t find_free_check_entry(Chain& chain);

// Stores an entry. Throws error_internal for a number beyond the chain.
void set_check_pointer(Chain& chain, std::uint32_t entry_number, const CheckEntry& entry);

// Stores the pair (a, b) under a new check ID and returns that; durable on return.
// REQUIRES: a is not 0, which marks free entries.
// Throws error_internal when it is, error_dbnospace when the check chain is full and cannot grow, and what
// sync_chains() throws (the entry then stays, in memory).
std::int32_t allocate_check_id(std::uint32_t a, std::uint32_t b);

}  // namespace tsdb
