// The blocks of an index tree. All words are big-endian; block number 0 means that there is no block.
//
// Leaf node, "LEAF":                            Internal node, "RINT":
//
//   offset  size  field                           offset  size  field
//        0     4  magic                                0     4  magic
//        4     4  left neighbour leaf                  4     4  nkeys, keys in use
//        8     4  right neighbour leaf                 8     4  ptr0, child with the keys below key 0
//       12     4  nkeys, entries in use               12     8  key 0 (k0, k1)
//       16     8  key of entry 0 (k0, k1)             20     4  rptr of key 0, child with the keys from
//       24     8  data of entry 0 (block, offset)              key 0 up to, not including, key 1
//       32        entry 1, and so on                  24        key 1, and so on
//
// What follows the last entry in use has no meaning.

#pragma once

#include <cstddef>
#include <cstdint>

#include "common/bytes.h"

namespace mdb::format {

// What the two kinds of node have in common: a magic, a count, and entries that each begin with a key.
struct NodeLayout {
  std::uint32_t magic;
  std::size_t nkeys;         // offset of the count
  std::size_t first_entry;   // offset of entry 0
  std::size_t entry_size;    // bytes in an entry
  std::size_t first_zeroed;  // offset from which a fresh node is zeroed

  // The number of entries that a block has room for.
  constexpr std::uint32_t capacity(std::size_t block_size) const {
    return static_cast<std::uint32_t>((block_size - first_entry) / entry_size);
  }

  // The number of bytes that a fresh node has zeroed: as many entries as a leaf has room for.
  constexpr std::size_t zeroed_size(std::size_t block_size) const {
    return (block_size - 16) / 16 * entry_size;
  }
};

// Within an entry of either kind.
namespace node_key {
inline constexpr std::size_t k0 = 0;
inline constexpr std::size_t k1 = 4;
inline constexpr std::size_t size = 8;
}  // namespace node_key

inline constexpr std::size_t node_magic = 0;

namespace leaf {
inline constexpr std::size_t left = 4;
inline constexpr std::size_t right = 8;
inline constexpr std::size_t nkeys = 12;
inline constexpr std::size_t first_entry = 16;
// Within an entry:
inline constexpr std::size_t data_block = node_key::size;
inline constexpr std::size_t data_offset = data_block + 4;
inline constexpr std::size_t entry_size = data_offset + 4;

inline constexpr NodeLayout layout = {bytes::magic("LEAF"), nkeys, first_entry, entry_size, first_entry};
static_assert(entry_size == 16 && nkeys + 4 == first_entry);
static_assert(layout.capacity(4096) == 255 && layout.capacity(512) == 31);
}  // namespace leaf

namespace internal {
inline constexpr std::size_t nkeys = 4;
inline constexpr std::size_t first_entry = 12;
// Within an entry:
inline constexpr std::size_t rptr = node_key::size;
inline constexpr std::size_t entry_size = rptr + 4;
// Child 0 is ptr0, child i + 1 the rptr of key i: they lie one entry apart.
inline constexpr std::size_t first_child = 8;

inline constexpr NodeLayout layout = {bytes::magic("RINT"), nkeys, first_entry, entry_size, first_child};
static_assert(entry_size == 12 && nkeys + 4 == first_child && first_child + 4 == first_entry);
static_assert(first_child + entry_size == first_entry + rptr);
static_assert(layout.capacity(4096) == 340 && layout.capacity(512) == 41);
}  // namespace internal

}  // namespace mdb::format
