// The ways to compute the checksum. All give the same result; the fastest that the processor can run is
// chosen at run time, the first time a checksum is needed.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace security::crc32_variants {

// x^32 + x^26 + ... + 1 without its highest term, lowest bit first: bit 31 - k stands for x^k.
inline constexpr std::uint32_t polynomial = 0xEDB8'8320;

// Feeds bytes to the checksum's register and returns what the register then holds.
using Update = std::uint32_t (*)(std::uint32_t register_value, std::span<const std::byte> data);

// Sixteen bytes a step from tables; runs everywhere.
std::uint32_t update_by_tables(std::uint32_t register_value, std::span<const std::byte> data);

// Carry-less multiplication of 16 bytes at a time. REQUIRES: multiplying_update() is not null.
std::uint32_t update_by_multiplication(std::uint32_t register_value, std::span<const std::byte> data);

// The multiplications of one lane of 16 bytes, of two and of four at a time, from the slowest to the fastest;
// null when this processor, or the one built for, has none. One that has several lanes has the one as well.
Update multiplying_update();
Update two_lane_update();
Update four_lane_update();

}  // namespace security::crc32_variants
