// The block allocation map: one bit for each block of the file, in memory. Hands out runs of contiguous
// free blocks, first fit from block 1; block 0 is the header and never handed out.

#pragma once

#include <array>
#include <cstdint>

namespace tsdb {

// A hint for each size class: free_hints()[j] is a block at which 2^j free blocks or more were last seen;
// 0 is no hint.
using FreeHints = std::array<std::uint32_t, 8>;

// Starts an empty map of `block_count` blocks. Returns the bitmap's capacity in blocks: the number rounded
// up to a multiple of 32 (64 bits wide, as the last block numbers round up to 2^32).
std::uint64_t init_block_map(std::uint32_t block_count);

// Gives the map a new number of blocks. Returns the new capacity. Blocks in new words of 32 are free; one in
// use that is cut off within the last word stays marked and is met again when the map grows.
// Throws error_unref_used when a word that would be dropped has a block in use; the map is as it was.
std::uint64_t resize_block_map(std::uint32_t block_count);

// The capacity that a map of so many blocks has.
constexpr std::uint64_t block_map_capacity(std::uint64_t block_count) {
  return (block_count + 31) / 32 * 32;
}

// Marks a free run of `block_count` blocks used and returns its first block; 0 when there is no such run
// or no block is asked for. Does not count in used_blocks().
std::uint32_t allocate_blocks(std::uint32_t block_count);

// Marks a range used and counts its blocks in used_blocks().
// Throws error_dcalloc when a block of it is in use, error_internal when it leaves the map; the map is
// then as it was.
void mark_allocated(std::uint32_t first_block, std::int32_t block_count);

// Sets the state of one block; counts nothing. Throws error_internal for a block outside the map.
void set_block_state(std::uint64_t block, bool used);

// Throws error_internal for a block outside the map.
bool block_in_use(std::uint64_t block);

// Blocks that the map manages; of these, those that mark_allocated() has counted; the hints. 0 without a map.
std::uint32_t total_blocks();
std::uint32_t used_blocks();
const FreeHints& free_hints();

// Back to a map of no blocks.
void forget_block_map();

}  // namespace tsdb
