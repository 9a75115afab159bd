// Pointer chains in the file: their creation, growth, writing and commit. One mechanism for the four
// kinds; what differs is in chain_traits.

#pragma once

#include <cstdint>

#include "timeseries/chain.h"

namespace tsdb {

// Creates a chain with zero entries for `check_count` checks, in one run, and enters it in the header in
// memory (write_header() brings that to the file).
// Throws error_dbnospace when no free run is large enough, error_internal for a set that does not exist,
// and what btb_WriteFile() throws.
void create_chain(ChainKind kind, std::uint32_t chain_set, std::uint32_t check_count);
void create_head_chain(std::uint32_t chain_set, std::uint32_t check_count);
void create_tail_chain(std::uint32_t chain_set, std::uint32_t check_count);
void create_lblock_chain(std::uint32_t chain_set, std::uint32_t check_count);
void create_check_chain(std::uint32_t chain_set, std::uint32_t check_count);

// Appends a run of `block_count` blocks with zero entries, growing the database where it has no room.
// The new run is written; the one before it, which now names it, stays dirty in memory. Runs of the chain
// move: positions hold over this call, references do not.
// Throws error_dbnospace when there is no room even then, and what grow_tsdb() and btb_WriteFile() throw.
void grow_chain(Chain& chain, std::uint32_t block_count);

// Writes a run with one block write; it is dirty no more. Durable with the next sync_writes().
// Throws what btb_WriteFile() throws; the run stays dirty then.
void write_run(Run& run);

// Writes all runs of a chain, the clean ones too, as write_run() does.
void write_runs(Chain& chain);

// Raises the chain's timestamp, renews its line of the chain table and writes the header.
// Throws error_internal for a chain without runs, and what btb_WriteFile() throws.
void commit_chain(Chain& chain);

}  // namespace tsdb
