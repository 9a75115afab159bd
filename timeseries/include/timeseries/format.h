// The time series database file, byte by byte. Nobody else knows an offset.
//
// The file is an array of blocks of equal size; a block number is 32 bits wide. Block 0 is the header,
// every other block is a pointer block, a data block of a level, or free (zero). Integers are unsigned
// and big-endian, of 32 bits unless the table says otherwise.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "common/bytes.h"

namespace tsdb::format {

// The header, block 0; what no field covers is zero.
//
//   offset  size  field
//        0     4  magic "TSDB"
//        4     4  format version
//        8     4  block size in bytes
//       12     4  reserved, 0
//       16     4  creation time, seconds since 1970-01-01 UTC, low 32 bits
//       20     4  number of chain sets N
//       24   64N  chain table: 4N entries
namespace header {
inline constexpr std::size_t magic = 0;
inline constexpr std::size_t version = 4;
inline constexpr std::size_t block_size = 8;
inline constexpr std::size_t reserved = 12;
inline constexpr std::size_t creation_time = 16;
inline constexpr std::size_t chain_set_count = 20;
inline constexpr std::size_t chain_table = 24;
static_assert(chain_set_count + sizeof(std::uint32_t) == chain_table);

inline constexpr std::uint32_t magic_value = bytes::magic("TSDB");
inline constexpr std::uint32_t version_value = 1;
static_assert(magic_value == 0x5453'4442);
}  // namespace header

// The chain table: one entry for each chain, N of a kind, kinds in the order of ChainKind.
//
//   offset  size  field
//        0     8  timestamp, raised by one at each commit of the chain
//        8     4  first block of the chain's first run
//       12     4  CRC-32 of bytes 0 to 11
namespace chain_entry {
inline constexpr std::size_t timestamp = 0;
inline constexpr std::size_t first_block = 8;
inline constexpr std::size_t crc = 12;
inline constexpr std::size_t size = 16;
static_assert(timestamp + sizeof(std::uint64_t) == first_block);
static_assert(crc + sizeof(std::uint32_t) == size);
}  // namespace chain_entry

// A block below this size holds no entry of every kind.
inline constexpr std::uint32_t minimum_block_size = 32;

// A pointer block: a piece of a chain.
//
//   offset  size  field
//        0     4  magic of the chain's kind: "HEAD", "TAIL", "LBAL" or "CHCK"
//        4     4  number of the next block of the chain, 0 in the last
//        8     4  chain set number
//       12     4  sequence number of the block within its run, from 0
//       16        entries, as many as fit whole; zero behind them
namespace pointer_block {
inline constexpr std::size_t magic = 0;
inline constexpr std::size_t next_block = 4;
inline constexpr std::size_t chain_set = 8;
inline constexpr std::size_t sequence = 12;
inline constexpr std::size_t entries = 16;
static_assert(sequence + sizeof(std::uint32_t) == entries);
}  // namespace pointer_block

// An entry of a head or tail chain, numbered like the lblock entry of its level: one word.
namespace end_entry {
inline constexpr std::uint32_t size = 4;
}  // namespace end_entry

// An entry of an lblock chain: one level. An entry whose first block is 0 is free.
//
//   offset  size  field
//        0     4  first data block of the level
//        4     4  number of data blocks
//        8     4  lblock number of the next level of the series, 0 for the last
//       12     4  level parameter, not interpreted here
namespace lblock_entry {
inline constexpr std::size_t first_block = 0;
inline constexpr std::size_t block_count = 4;
inline constexpr std::size_t next_lblock = 8;
inline constexpr std::size_t parameter = 12;
inline constexpr std::uint32_t size = 16;
static_assert(parameter + sizeof(std::uint32_t) == size);
static_assert(pointer_block::entries + size == minimum_block_size);
}  // namespace lblock_entry

// An entry of a check chain: one time series; its number is the check ID. An entry whose first word is 0
// is free.
//
//   offset  size  field
//        0     4  datatype (to the store: a word that is not 0)
//        4     4  lblock number of the first level
namespace check_entry {
inline constexpr std::size_t datatype = 0;
inline constexpr std::size_t first_lblock = 4;
inline constexpr std::uint32_t size = 8;
static_assert(first_lblock + sizeof(std::uint32_t) == size);
}  // namespace check_entry

}  // namespace tsdb::format

namespace tsdb {

// One line of the chain table, decoded.
struct ChainTableEntry {
  std::uint64_t timestamp = 0;
  std::uint32_t first_block = 0;
  std::uint32_t crc = 0;

  bool operator==(const ChainTableEntry&) const = default;
};

// A level as its lblock entry describes it.
struct LBlockEntry {
  std::uint32_t first_block = 0;
  std::uint32_t block_count = 0;
  std::uint32_t next_lblock = 0;
  std::uint32_t parameter = 0;

  // The words in the order of the entry.
  std::array<std::uint32_t, 4> words() const { return {first_block, block_count, next_lblock, parameter}; }
  bool operator==(const LBlockEntry&) const = default;
};

// What a check ID stands for; `a` is never 0 in an entry in use.
struct CheckEntry {
  std::uint32_t a = 0;
  std::uint32_t b = 0;

  std::array<std::uint32_t, 2> words() const { return {a, b}; }
  bool operator==(const CheckEntry&) const = default;
};

namespace format {

// REQUIRES (all below): the span covers the entry or the block's first 16 bytes.

// A line of the chain table, its CRC unchecked.
inline ChainTableEntry decode_chain_entry(std::span<const std::byte> entry) {
  return {bytes::load_u64(entry, chain_entry::timestamp), bytes::load_u32(entry, chain_entry::first_block),
          bytes::load_u32(entry, chain_entry::crc)};
}

// The bytes that the CRC of a chain table entry covers.
inline std::span<const std::byte> covered_by_crc(std::span<const std::byte> entry) {
  return entry.first(chain_entry::crc);
}

// Fills the first 16 bytes of a pointer block; `next_block` is 0 in the last one.
inline void encode_pointer_block_header(std::span<std::byte> block, std::uint32_t magic,
                                        std::uint32_t next_block, std::uint32_t chain_set,
                                        std::uint32_t sequence) {
  bytes::store_u32(block, pointer_block::magic, magic);
  bytes::store_u32(block, pointer_block::next_block, next_block);
  bytes::store_u32(block, pointer_block::chain_set, chain_set);
  bytes::store_u32(block, pointer_block::sequence, sequence);
}

}  // namespace format
}  // namespace tsdb
