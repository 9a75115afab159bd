// The header of the meta database, the first bytes of block 0.
//
//   offset  size  field
//        0     4  magic "QMDB"
//        4     4  version, 1
//        8     4  block size in bytes, a power of two
//       12     4  journal type: 1 internal, 2 external
//       16     4  A: internal: first block of the journal; external: length of the path field
//       20     …  internal: 4 bytes, number of journal blocks; external: the path, padded with zeros to A
//   20 + A     4  n, number of index roots
//   24 + A    4n  root blocks of the indexes
//   24 + A + 4n   4  unused
//   28 + A + 4n   4  first block of the allocation map
//   32 + A + 4n   4  first block after the allocation map
//
// The tail's place follows from A whatever the journal type. With an internal journal in block 1 it begins at
// byte 21, over the low bytes of the journal's block count: that count reads back as its top byte alone, and
// an opened database measures the journal instead. Databases that exist rely on it.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "common/bytes.h"

namespace mdb::format {

namespace header {
inline constexpr std::uint32_t magic_word = bytes::magic("QMDB");
inline constexpr std::uint32_t current_version = 1;
inline constexpr std::uint32_t type_internal = 1;
inline constexpr std::uint32_t type_external = 2;

inline constexpr std::size_t magic = 0;
inline constexpr std::size_t version = 4;
inline constexpr std::size_t block_size = 8;
inline constexpr std::size_t journal_type = 12;
inline constexpr std::size_t journal_first_block = 16;  // internal
inline constexpr std::size_t path_field_length = 16;    // external
inline constexpr std::size_t journal_block_count = 20;  // internal
inline constexpr std::size_t path = 20;                 // external

// The tail, from 20 + A.
inline constexpr std::size_t root_count = 0;
inline constexpr std::size_t roots = 4;
inline constexpr std::size_t bitmap_first_after_roots = 4;
inline constexpr std::size_t data_first_after_roots = 8;

inline constexpr std::size_t size = 1024;
inline constexpr std::size_t max_path_field = 992;
inline constexpr std::size_t path_alignment = 8;
inline constexpr std::uint32_t min_block_size = 64;
inline constexpr std::uint32_t max_block_size = 1U << 20;
}  // namespace header

// Offset of the tail for the word at offset 16.
constexpr std::uint64_t header_tail(std::uint32_t a) {
  return header::path + std::uint64_t{a};
}

// Size of a tail with `root_count` roots.
constexpr std::uint64_t header_tail_size(std::uint32_t root_count) {
  return header::roots + 4 * std::uint64_t{root_count} + header::data_first_after_roots + 4;
}

}  // namespace mdb::format
