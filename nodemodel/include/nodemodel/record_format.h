// A node record: property entries one after the other, in the order in which they were added.
//
//   offset  size  field
//        0     4  property id
//        4     4  length of the entry in bytes, padding included; a multiple of 8
//        8     4  type code; bit 31 is the property's mark
//       12        the value, then up to 7 bytes of padding, which have no meaning
//
//   type  value
//      1  unsigned 32-bit
//      3  a text and a zero byte
//      4  a node id, two words
//      5  a node type, 32-bit
//      6  a flag, one byte
//      9  unsigned 32-bit, a time series' check id

#pragma once

#include <cstddef>
#include <cstdint>

namespace mdb::format::property_entry {

inline constexpr std::size_t id = 0;
inline constexpr std::size_t length = 4;
inline constexpr std::size_t type = 8;
inline constexpr std::size_t value = 12;
inline constexpr std::size_t alignment = 8;
inline constexpr std::uint32_t mark_bit = 0x8000'0000;

// Within the value of a node id.
inline constexpr std::size_t node_id_first = 0;
inline constexpr std::size_t node_id_second = 4;

inline constexpr std::size_t word_size = 4;
inline constexpr std::size_t node_id_size = 8;
inline constexpr std::size_t flag_size = 1;
static_assert(type + sizeof(std::uint32_t) == value &&
              node_id_second + sizeof(std::uint32_t) == node_id_size);

// The length with the padding that follows it.
constexpr std::size_t padded(std::size_t size) {
  return (size + alignment - 1) / alignment * alignment;
}

}  // namespace mdb::format::property_entry

namespace mdb::property_type {
inline constexpr std::uint32_t number = 1;
inline constexpr std::uint32_t string = 3;
inline constexpr std::uint32_t node_id = 4;
inline constexpr std::uint32_t enumeration = 5;
inline constexpr std::uint32_t flag = 6;
inline constexpr std::uint32_t check_id = 9;
}  // namespace mdb::property_type

// The ids of properties that the storage itself knows, all shared between the node types.
namespace mdb::property_id {
inline constexpr std::uint32_t node_id = 0;
inline constexpr std::uint32_t parent_id = 2;
inline constexpr std::uint32_t node_type = 3;
inline constexpr std::uint32_t name = 51;
}  // namespace mdb::property_id
