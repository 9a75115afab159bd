// The chains of the open database: N chain sets with one chain of each kind, and for each kind the set in
// which changes are made.

#pragma once

#include <cstdint>

#include "timeseries/chain.h"

namespace tsdb {

// Makes `set_count` chains of each kind, without runs; set 0 becomes the current one of every kind.
void create_chain_sets(std::uint32_t set_count, std::uint32_t block_size);

// Forgets all chains, unwritten changes included.
void forget_chain_sets();

// How many sets there are; 0 before create_chain_sets().
std::uint32_t chain_set_count();

// Throws error_internal for a set that does not exist. The reference holds until the sets are forgotten.
Chain& chain_of(ChainKind kind, std::uint32_t chain_set);

// The chain of the kind's current set. Throws error_internal before the sets exist.
Chain& current_chain(ChainKind kind);

// The set in which the kind is changed.
std::uint32_t current_set(ChainKind kind);

// REQUIRES: the set exists.
void set_current(ChainKind kind, std::uint32_t chain_set);

// The set of the head chain that was committed last.
std::uint32_t committed_head_set();
// For the sync that has committed it.
void set_committed_head(std::uint32_t chain_set);

}  // namespace tsdb
