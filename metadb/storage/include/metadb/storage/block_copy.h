// How the layers above read blocks: as private copies that they may change, or as views. Both show the
// committed bytes and, over them, what the open transaction has journalled so far.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "metadb/storage/block_buffer.h"
#include "metadb/storage/buffer_cache.h"

namespace mdb {

// A private copy of the block. Throws what block_read throws.
BlockBuffer read_block_copy(std::uint32_t block);

// Records that the whole block shall be what `copy` holds, as transaction_update does and with what it
// throws. When the transaction is committed and the block is cached, the buffer itself may become the cached
// block. REQUIRES: it is not empty.
void write_block_copy(std::uint32_t block, BlockBuffer copy);

// The block for looking at only, without a copy where the open transaction has not touched it, else in
// `scratch`. Valid until the next call that may read or commit a block, and as long as `scratch` is kept.
// Throws what block_read throws.
std::span<const std::byte> view_block(std::uint32_t block, BlockBuffer& scratch);

// What view_block shows, with its version, which is 0 for a copy in `scratch`. Throws what block_read throws.
BlockView view_block_version(std::uint32_t block, BlockBuffer& scratch);

// Reads bytes of the store past the cache, then lays over them what is committed but not yet applied and
// what the open transaction has journalled. For the allocation map, which has pages of its own.
// Throws what byte_read throws.
void read_bytes_current(std::span<std::byte> buffer, std::uint64_t offset);

}  // namespace mdb
