#include "metadb/objects/data_block.h"

#include "common/bytes.h"
#include "common/errors.h"
#include "common/text.h"

namespace mdb {

std::optional<Item> sound_item_at(std::span<const std::byte> block_bytes, std::uint32_t offset) {
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

Item item_at(std::span<const std::byte> block_bytes, std::uint32_t block, std::uint32_t offset) {
  const std::optional<Item> item = sound_item_at(block_bytes, offset);
  if (!item) {
    throw error_consistency(
        text::concat("Object at offset ", offset, " in block ", block, " has zero length"));
  }
  return *item;
}

void store_item_header(std::span<std::byte> block_bytes, std::uint32_t offset, std::uint32_t length_bytes,
                       bool is_placeholder) {
  const std::uint32_t flag = is_placeholder ? format::item::placeholder_bit : 0;
  bytes::store_u32(block_bytes, offset + format::item::header, length_bytes | flag);
}

BlockItems::Iterator& BlockItems::Iterator::operator++() {
  at_end_ = item_.end() == bytes_.size();
  if (!at_end_)
    item_ = item_at(bytes_, block_, item_.end());
  return *this;
}

}  // namespace mdb
