#include "metadb/objects/data_block.h"

#include "common/bytes.h"
#include "common/errors.h"
#include "common/text.h"

namespace mdb {

void throw_unsound_item(std::uint32_t block, std::uint32_t offset) {
  throw error_consistency(text::concat("Object at offset ", offset, " in block ", block, " has zero length"));
}

void store_item_header(std::span<std::byte> block_bytes, std::uint32_t offset, std::uint32_t length_bytes,
                       bool is_placeholder) {
  const std::uint32_t flag = is_placeholder ? format::item::placeholder_bit : 0;
  bytes::store_u32(block_bytes, offset + format::item::header, length_bytes | flag);
}

}  // namespace mdb
