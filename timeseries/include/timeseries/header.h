// The header, block 0 of the file, kept in memory from its creation until the database is closed. The
// file holds what the last write_header() wrote.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "timeseries/chain_kind.h"

namespace tsdb {

// Writes a header with an empty chain table to block 0, marks that block allocated and makes the chain
// sets, without runs. `capacity_blocks` is not used.
// Throws error_internal when there is a header, when `block_size` is below 32 bytes or too small for the
// chain table, and when the map has no block 0; error_dcalloc when block 0 is in use; what btb_WriteFile()
// throws. A header whose writing or marking failed stays in memory.
void create_header(std::uint32_t block_size, std::uint32_t capacity_blocks, std::uint32_t chain_set_count);

// Writes the header to block 0; durable after sync_writes().
// Throws error_internal without a header, and what btb_WriteFile() throws.
void write_header();

// Forgets the header; the file keeps it.
void forget_header();

// The header as the next write_header() would write it; empty without one.
std::span<const std::byte> header_block();

// A line of the chain table. These three throw error_internal for a chain that does not exist.
ChainTableEntry chain_table_entry(ChainKind kind, std::uint32_t chain_set);

// Sets a line with a CRC that fits it.
void set_chain_table_entry(ChainKind kind, std::uint32_t chain_set, std::uint64_t timestamp,
                           std::uint32_t first_block);

// Sets the timestamp alone; the CRC is left to the chain's own commit.
void set_chain_timestamp(ChainKind kind, std::uint32_t chain_set, std::uint64_t timestamp);

}  // namespace tsdb
