#include "timeseries/header.h"

#include <vector>

#include "common/bytes.h"
#include "common/crc32.h"
#include "common/errors.h"
#include "common/text.h"
#include "platform/platform.h"
#include "timeseries/backing_store.h"
#include "timeseries/block_map.h"
#include "timeseries/chain_sets.h"

namespace tsdb {
namespace {

namespace chain_entry = format::chain_entry;

struct Header {
  // Empty until the header is created.
  std::vector<std::byte> block;
  std::uint32_t chain_set_count = 0;
};

Header header;

void require_room(std::uint32_t block_size, std::uint32_t chain_set_count) {
  const std::uint64_t table_end =
      format::header::chain_table + chain_traits.size() * chain_entry::size * std::uint64_t{chain_set_count};
  if (block_size >= format::minimum_block_size && table_end <= block_size)
    return;
  throw error_internal(text::concat("A header with ", chain_set_count, " chain sets does not fit into ",
                                    block_size, " bytes"));
}

std::span<std::byte> entry_bytes(ChainKind kind, std::uint32_t chain_set) {
  if (chain_set >= header.chain_set_count) {
    throw error_internal(text::concat("The header has no chain set ", chain_set));
  }
  const std::size_t number = std::size_t{kind_index(kind)} * header.chain_set_count + chain_set;
  return std::span(header.block)
      .subspan(format::header::chain_table + number * chain_entry::size, chain_entry::size);
}

}  // namespace

void create_header(std::uint32_t block_size, std::uint32_t /*capacity_blocks*/,
                   std::uint32_t chain_set_count) {
  if (!header.block.empty())
    throw error_internal("Header loaded, then re-created");
  require_room(block_size, chain_set_count);
  header = {std::vector<std::byte>(block_size), chain_set_count};
  bytes::store_u32(header.block, format::header::magic, format::header::magic_value);
  bytes::store_u32(header.block, format::header::version, format::header::version_value);
  bytes::store_u32(header.block, format::header::block_size, block_size);
  bytes::store_u32(header.block, format::header::creation_time,
                   static_cast<std::uint32_t>(platform::system().calendar_seconds()));
  bytes::store_u32(header.block, format::header::chain_set_count, chain_set_count);
  write_header();
  mark_allocated(0, 1);
  create_chain_sets(chain_set_count, block_size);
}

void write_header() {
  if (header.block.empty())
    throw error_internal("There is no header to write");
  btb_WriteFile(0, header.block, 1);
}

void forget_header() {
  header = Header();
}

std::span<const std::byte> header_block() {
  return header.block;
}

ChainTableEntry chain_table_entry(ChainKind kind, std::uint32_t chain_set) {
  return format::decode_chain_entry(entry_bytes(kind, chain_set));
}

void set_chain_table_entry(ChainKind kind, std::uint32_t chain_set, std::uint64_t timestamp,
                           std::uint32_t first_block) {
  const std::span<std::byte> entry = entry_bytes(kind, chain_set);
  bytes::store_u64(entry, chain_entry::timestamp, timestamp);
  bytes::store_u32(entry, chain_entry::first_block, first_block);
  bytes::store_u32(entry, chain_entry::crc, security::crc32(format::covered_by_crc(entry)));
}

void set_chain_timestamp(ChainKind kind, std::uint32_t chain_set, std::uint64_t timestamp) {
  bytes::store_u64(entry_bytes(kind, chain_set), chain_entry::timestamp, timestamp);
}

}  // namespace tsdb
