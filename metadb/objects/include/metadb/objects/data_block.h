// The contents of a data block: a gapless run of items, each a live object or a placeholder (free space),
// from offset 0 to exactly the end of the block.
//
//   offset  size  field of an item
//        0     4  header word, big-endian: the item's length in bytes, this word included (always even);
//                 bit 0 is not part of the length: 1 = placeholder, 0 = live object
//        4     …  the record of an object; bytes without meaning in a placeholder

#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <span>

#include "common/bytes.h"

namespace mdb {

namespace format::item {
inline constexpr std::size_t header = 0;
inline constexpr std::size_t record = 4;
inline constexpr std::uint32_t header_size = 4;
inline constexpr std::uint32_t placeholder_bit = 1;
static_assert(header + sizeof(std::uint32_t) == record);
static_assert(header_size == record);
}  // namespace format::item

// One item, read from a block and found sound: it has room for its header and ends within the block.
struct Item {
  std::uint32_t offset;        // in the block
  std::uint32_t length_bytes;  // header included
  bool is_placeholder;

  std::uint32_t end() const { return offset + length_bytes; }
};

// The item whose header lies at `offset` of the block's bytes; nothing when it is not sound.
inline std::optional<Item> sound_item_at(std::span<const std::byte> block_bytes, std::uint32_t offset) {
  if (std::uint64_t{offset} + format::item::header_size > block_bytes.size())
    return std::nullopt;
  const std::uint32_t header = bytes::load_u32(block_bytes, offset + format::item::header);
  const Item item{offset, header & ~format::item::placeholder_bit,
                  (header & format::item::placeholder_bit) != 0};
  if (item.length_bytes < format::item::header_size)
    return std::nullopt;
  if (std::uint64_t{offset} + item.length_bytes > block_bytes.size())
    return std::nullopt;
  return item;
}

// Throws what item_at throws.
[[noreturn]] void throw_unsound_item(std::uint32_t block, std::uint32_t offset);

// The same for callers that cannot go on without it; `block` is for the message.
// Throws error_consistency "Object at offset … in block … has zero length".
inline Item item_at(std::span<const std::byte> block_bytes, std::uint32_t block, std::uint32_t offset) {
  const std::optional<Item> item = sound_item_at(block_bytes, offset);
  if (!item)
    throw_unsound_item(block, offset);
  return *item;
}

// Writes the header word of an item. REQUIRES: offset + 4 ≤ block_bytes.size().
void store_item_header(std::span<std::byte> block_bytes, std::uint32_t offset, std::uint32_t length_bytes,
                       bool is_placeholder);

// The items of a block in order, for a range-for; stepping onto an unsound one throws what item_at throws.
// The block's bytes must stay where they are while the range is in use.
class BlockItems {
 public:
  BlockItems(std::uint32_t block, std::span<const std::byte> block_bytes)
      : block_(block), bytes_(block_bytes) {}

  class Iterator {
   public:
    Iterator(std::uint32_t block, std::span<const std::byte> bytes)
        : block_(block), bytes_(bytes), item_(item_at(bytes, block, 0)) {}

    const Item& operator*() const { return item_; }
    Iterator& operator++() {
      at_end_ = item_.end() == bytes_.size();
      if (!at_end_)
        item_ = item_at(bytes_, block_, item_.end());
      return *this;
    }
    bool operator==(std::default_sentinel_t) const { return at_end_; }

   private:
    std::uint32_t block_;
    std::span<const std::byte> bytes_;
    Item item_;
    bool at_end_ = false;
  };

  Iterator begin() const { return {block_, bytes_}; }
  std::default_sentinel_t end() const { return {}; }

 private:
  std::uint32_t block_;
  std::span<const std::byte> bytes_;
};

}  // namespace mdb
