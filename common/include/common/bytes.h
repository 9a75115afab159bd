// Byte order: every integer in every file is big-endian, a 64-bit one as two words, high word first.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace bytes {

// A four-character magic as the word whose stored bytes read as the characters.
constexpr std::uint32_t magic(const char (&text)[5]) {
  std::uint32_t word = 0;
  for (int i = 0; i < 4; ++i)
    word = word << 8 | static_cast<unsigned char>(text[i]);
  return word;
}

// The integer at a byte offset. REQUIRES: all 4 of its bytes lie within `data`.
inline std::uint32_t load_u32(std::span<const std::byte> data, std::size_t offset) {
  const std::byte* p = data.data() + offset;
  return std::to_integer<std::uint32_t>(p[0]) << 24 | std::to_integer<std::uint32_t>(p[1]) << 16 |
         std::to_integer<std::uint32_t>(p[2]) << 8 | std::to_integer<std::uint32_t>(p[3]);
}

// The same for 8 bytes.
inline std::uint64_t load_u64(std::span<const std::byte> data, std::size_t offset) {
  return std::uint64_t{load_u32(data, offset)} << 32 | load_u32(data, offset + 4);
}

// Stores an integer at a byte offset. REQUIRES: all 4 of its bytes lie within `data`.
inline void store_u32(std::span<std::byte> data, std::size_t offset, std::uint32_t value) {
  std::byte* p = data.data() + offset;
  p[0] = static_cast<std::byte>(value >> 24);
  p[1] = static_cast<std::byte>(value >> 16);
  p[2] = static_cast<std::byte>(value >> 8);
  p[3] = static_cast<std::byte>(value);
}

// The same for 8 bytes.
inline void store_u64(std::span<std::byte> data, std::size_t offset, std::uint64_t value) {
  store_u32(data, offset, static_cast<std::uint32_t>(value >> 32));
  store_u32(data, offset + 4, static_cast<std::uint32_t>(value));
}

// Copies `source` to the front of `target`, in the processor's widest steps.
// REQUIRES: it fits there, and the two do not overlap.
inline void copy(std::span<const std::byte> source, std::span<std::byte> target) {
  if (!source.empty())
    std::memcpy(target.data(), source.data(), source.size());
}

}  // namespace bytes
