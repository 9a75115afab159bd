// The journal: a header of 48 bytes and two halves of entries.
//
//   offset  size  journal header
//        0     4  magic "JHDR"
//        4     4  version, 1
//        8     4  reserved, 0
//       12     4  reserved, never written
//       16    16  index pointer of the first half
//       32    16  index pointer of the second half
//
//   offset  size  index pointer
//        0     8  serial of the half, higher than every earlier one
//        8     4  jpos: byte offset in the journal of the half's first entry
//       12     4  CRC-32 of bytes 0 to 11
//
// With a journal of L bytes the first half ends at L / 2, the second at L, rounded down. Every entry begins
// at a multiple of 8. The last 8 bytes of a half are kept for a redirection.
//
//   offset  size  transaction begin        offset  size  update
//        0     4  magic "TBEG"                  0     4  magic "TUPD"
//        4     4  never written                 4     4  n, number of data bytes
//        8     8  serial of the half            8     8  byte offset in the database
//                                              16     4  0
//   offset  size  transaction end              20     n  data
//        0     4  magic "TEND"             20 + n   0-7  never written, up to a multiple of 8
//        4     4  CRC-32 of the begin
//                 and update entries       offset  size  redirection
//                                               0     4  magic "TRED"
//                                               4     4  jpos at which writing goes on in the other half

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "common/bytes.h"
#include "common/crc32.h"
#include "common/errors.h"

namespace mdb::format {

namespace journal_header {
inline constexpr std::uint32_t magic_word = bytes::magic("JHDR");
inline constexpr std::uint32_t current_version = 1;
inline constexpr std::size_t magic = 0;
inline constexpr std::size_t version = 4;
inline constexpr std::size_t reserved = 8;
inline constexpr std::size_t unwritten = 12;
inline constexpr std::size_t pointers = 16;
inline constexpr std::size_t pointer_count = 2;
}  // namespace journal_header

namespace index_pointer {
inline constexpr std::size_t serial = 0;
inline constexpr std::size_t jpos = 8;
inline constexpr std::size_t crc = 12;
inline constexpr std::size_t size = 16;
static_assert(crc + sizeof(std::uint32_t) == size);
}  // namespace index_pointer

inline constexpr std::size_t journal_header_size =
    journal_header::pointers + journal_header::pointer_count * index_pointer::size;
static_assert(journal_header_size == 48);

inline constexpr std::size_t entry_alignment = 8;

namespace begin_entry {
inline constexpr std::uint32_t magic_word = bytes::magic("TBEG");
inline constexpr std::size_t unwritten = 4;
inline constexpr std::size_t serial = 8;
inline constexpr std::size_t size = 16;
}  // namespace begin_entry

namespace update_entry {
inline constexpr std::uint32_t magic_word = bytes::magic("TUPD");
inline constexpr std::size_t length = 4;
inline constexpr std::size_t target = 8;
inline constexpr std::size_t zero = 16;
inline constexpr std::size_t data = 20;
}  // namespace update_entry

namespace end_entry {
inline constexpr std::uint32_t magic_word = bytes::magic("TEND");
inline constexpr std::size_t crc = 4;
inline constexpr std::size_t size = 8;
}  // namespace end_entry

namespace redirection_entry {
inline constexpr std::uint32_t magic_word = bytes::magic("TRED");
inline constexpr std::size_t jpos = 4;
inline constexpr std::size_t size = 8;
}  // namespace redirection_entry

// The first position at or after this one at which an entry can begin.
constexpr std::uint64_t round_up_to_entry(std::uint64_t position) {
  return (position + entry_alignment - 1) / entry_alignment * entry_alignment;
}

// Size of an update entry with its padding.
constexpr std::uint64_t update_entry_size(std::uint64_t data_length) {
  return round_up_to_entry(update_entry::data + data_length);
}
static_assert(update_entry_size(0) == 24 && update_entry_size(4) == 24 && update_entry_size(5) == 32 &&
              update_entry_size(12) == 32 && update_entry_size(13) == 40);

// Where the halves of a journal of `length` bytes lie.
struct JournalGeometry {
  std::uint64_t length;

  // First byte of a half, and the first byte behind it.
  constexpr std::uint64_t half_start(unsigned half) const { return half == 0 ? 0 : length / 2; }
  constexpr std::uint64_t half_end(unsigned half) const { return half == 0 ? length / 2 : length; }
  // Where the first entry of a half can begin.
  constexpr std::uint64_t first_entry(unsigned half) const {
    return round_up_to_entry(std::max<std::uint64_t>(journal_header_size, half_start(half)));
  }
  // Entries other than a redirection end here at the latest.
  constexpr std::uint64_t writable_limit(unsigned half) const {
    const std::uint64_t end = half_end(half);
    return end < redirection_entry::size
               ? 0
               : (end - redirection_entry::size) / entry_alignment * entry_alignment;
  }
};

struct IndexPointer {
  std::uint64_t serial = 0;
  std::uint32_t jpos = 0;
};

// Byte offset of the index pointer of half 0 or 1. Throws error_range for any other.
constexpr std::size_t index_pointer_offset(unsigned half) {
  if (half >= journal_header::pointer_count)
    throw error_range("Invalid journal index");
  return journal_header::pointers + half * index_pointer::size;
}

// What the pointer of a half says, be it valid or not.
// REQUIRES (this and the two below): `journal` holds the journal's header.
inline IndexPointer load_index_pointer(std::span<const std::byte> journal, unsigned half) {
  const auto pointer = journal.subspan(index_pointer_offset(half), index_pointer::size);
  return {bytes::load_u64(pointer, index_pointer::serial), bytes::load_u32(pointer, index_pointer::jpos)};
}

// Whether the CRC of a half's pointer fits it.
inline bool index_pointer_is_valid(std::span<const std::byte> journal, unsigned half) {
  const auto pointer = journal.subspan(index_pointer_offset(half), index_pointer::size);
  return security::crc32(pointer.first(index_pointer::crc)) == bytes::load_u32(pointer, index_pointer::crc);
}

// Stores a half's pointer with its CRC; durable after the next journal_sync().
inline void store_index_pointer(std::span<std::byte> journal, unsigned half, IndexPointer value) {
  const auto pointer = journal.subspan(index_pointer_offset(half), index_pointer::size);
  bytes::store_u64(pointer, index_pointer::serial, value.serial);
  bytes::store_u32(pointer, index_pointer::jpos, value.jpos);
  bytes::store_u32(pointer, index_pointer::crc, security::crc32(pointer.first(index_pointer::crc)));
}

}  // namespace mdb::format
