// How the layers above read blocks: as private copies that they may change, or as views. Both show the
// committed bytes and, over them, what the open transaction has journalled so far.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>

#include "metadb/storage/buffer_cache.h"

namespace mdb {

// A buffer of one block that its holder owns; empty when moved from or never filled.
class BlockBuffer {
 public:
  BlockBuffer() = default;
  // The bytes are not initialised.
  explicit BlockBuffer(std::size_t size)
      : data_(std::make_unique_for_overwrite<std::byte[]>(size)), size_(size) {}
  BlockBuffer(BlockBuffer&& other) noexcept
      : data_(std::move(other.data_)), size_(std::exchange(other.size_, 0)) {}
  BlockBuffer& operator=(BlockBuffer&& other) noexcept {
    data_ = std::move(other.data_);
    size_ = std::exchange(other.size_, 0);
    return *this;
  }

  bool empty() const { return size_ == 0; }
  std::size_t size() const { return size_; }
  std::span<std::byte> bytes() { return {data_.get(), size_}; }
  std::span<const std::byte> bytes() const { return {data_.get(), size_}; }

 private:
  std::unique_ptr<std::byte[]> data_;
  std::size_t size_ = 0;
};

// A private copy of the block. Throws what block_read throws.
BlockBuffer read_block_copy(std::uint32_t block);

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
