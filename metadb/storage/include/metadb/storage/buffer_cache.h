// The most recently used blocks of the meta database, each as the file holds it with every committed
// journal update laid over it. Invariants:
//
//   C1  A cached block holds committed bytes only, all of them; nothing changes it but
//       cache_apply_update and cache_apply_block, which a commit calls.
//   C2  Every entry of the list but one whose reading failed is named by exactly one slot of the table.
//   C3  live slots ≤ non-empty slots, and live × 4 ≤ slots after an insertion until the table is at its
//       largest.
//   C4  A block's version is new whenever its bytes may be: once it is read, once an update is laid over it
//       or takes its place.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "metadb/storage/block_buffer.h"

namespace mdb {

// Bytes of a block, with a number that tells whether a later view of it shows the same.
struct BlockView {
  std::span<const std::byte> bytes;
  std::uint64_t version;  // C4; that of no other block; 0 for bytes that are not the cache's
};

// The block's committed bytes. The view is valid until the next call that may read or commit a block.
// Throws what block_read throws; then the cache is as before, but the least recently used block may be gone.
BlockView cache_get_version(std::uint32_t block);
std::span<const std::byte> cache_get_block(std::uint32_t block);

// The block's committed bytes when it is cached, else an empty span. Touches neither order nor meters.
std::span<const std::byte> cache_peek(std::uint32_t block);

// Lays a committed update over every cached block that it touches.
void cache_apply_update(std::uint64_t target, std::span<const std::byte> data);

// The same for an update of a whole block, which when it is cached is `image` from then on.
void cache_apply_block(std::uint32_t block, BlockBuffer image);

// Drops every entry.
void cache_clear();

// The number of entries at which the least recently used one makes room; 8,192 at start. For use while the
// cache is empty. REQUIRES: limit > 0.
void cache_set_limit(std::uint32_t limit);

struct CacheStatistics {
  std::uint32_t entries;
  std::uint32_t slots;
  std::uint32_t live;
  std::uint32_t non_empty;
  std::uint64_t probes;  // every probe after the first of a look-up
  std::uint64_t rehashes;
};
// The state of the cache, and what it has counted since the last cache_clear().
CacheStatistics cache_statistics();

}  // namespace mdb
