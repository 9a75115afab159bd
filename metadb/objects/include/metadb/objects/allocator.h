// The space allocator: one class byte a block in the allocation map, and the search for room in blocks.
// Every change is journalled inside a transaction. One open database a process, one thread.

#pragma once

#include <cstdint>

#include "metadb/objects/object_handle.h"

namespace mdb {

// The values of a class byte.
enum class BlockClass : std::uint32_t {
  empty = 0,
  used = 1,
  full = 2,
  root_index = 4,
  non_root_index = 5,
  leaf = 6,
  lob = 7,
};

// Forgets all pages, then loads and counts the whole map; logs the counts. From here on the allocator
// follows the ends of transactions. The first block that may be handed out is the first after the map.
// Throws error_internal before the block size is known, error_consistency for an unknown class byte.
void alloc_map_init(std::uint32_t bitmap_first, std::uint32_t map_blocks);

// Forgets everything, as when the database is closed.
void alloc_reset();

// Throws error_dbnospace, after its log line, for a size that no block can ever serve.
void alloc_check_size(std::uint32_t size);

// A placeholder that serves `size` bytes (header included): it is as long, or leaves room for a header. It
// lies in block `hint` when that is not 0 and has room, else in or after the last-good block, else anywhere;
// or is a whole block, Empty before. Changes of classes are transactions of their own; only a scan of all
// blocks lengthens the store.
// Throws error_dbnospace, error_consistency for a damaged block.
ObjectHandle alloc_space(std::uint32_t hint, std::uint32_t size);

// An Empty block at or after `start`, else anywhere; addressable, not yet marked.
// Throws error_dbnospace.
std::uint32_t alloc_empty_block(std::uint32_t start, bool allow_freed);

// Sets the class of a block. REQUIRES: a transaction is open. Throws error_range and what
// transaction_update throws; then the class is as before.
void mark_block(std::uint32_t block, BlockClass block_class);

// The class of a block. Throws error_range.
BlockClass mark_query(std::uint32_t block);

struct PlaceholderSearch {
  bool found;
  bool block_full;  // a whole scan met less than 25 % free
};

// Looks for a placeholder that serves `size` bytes in block `handle.block`, a Used or Full one; fills the
// handle's offset and data when found: the last one that serves when the free bytes met reach 25 % of the
// block, or the last one of a block where they do not.
// Throws error_internal for an Empty block, error_consistency for a damaged one.
PlaceholderSearch find_placeholder(ObjectHandle& handle, std::uint32_t size);

// The class that the block's contents ask for: empty, used or full. Throws error_consistency when damaged.
BlockClass classify_block(const ObjectHandle& handle);

// Makes the block addressable. Throws error_dbnospace.
void ensure_block(std::uint32_t block);

// Clears the marks of all loaded pages; called at the end of every outermost transaction.
void alloc_transaction_end();

}  // namespace mdb
