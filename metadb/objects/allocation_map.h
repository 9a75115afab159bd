// The allocation map: one class byte for every block, in a run of whole blocks of the file, the byte of
// block 0 first. Blocks of the map are loaded when they are first needed, each into a page of its own.
// mark_block, mark_query and alloc_transaction_end are the public face of the same pages.

#pragma once

#include <cstddef>
#include <cstdint>

namespace mdb::allocation_map {

// Forgets all pages, then loads and counts the map page by page; logs the counts.
// Throws error_internal before the block size is known, error_consistency for an unknown class byte.
void open(std::uint32_t bitmap_first, std::uint32_t map_blocks);

// Forgets the map's place and all pages.
void reset();

// Forgets all pages; they are read anew when needed.
void drop_pages();

// Block numbers below this have a class byte; at most 2^32.
std::uint64_t block_count();

// Which class bytes a search stops at, as a mask: a byte matches when none of the mask's bits is set in it.
inline constexpr std::byte match_empty{0xFF};
inline constexpr std::byte match_empty_or_used{0xFE};

enum class FreedPages { search, skip };

// The first block in [first, end) whose class byte matches; `end` (or `first`, if higher) when there is
// none. Pages in which a block has been freed since the last commit can be skipped.
// REQUIRES: end ≤ block_count().
std::uint64_t find(std::uint64_t first, std::uint64_t end, std::byte mask,
                   FreedPages freed_pages = FreedPages::search);

}  // namespace mdb::allocation_map
