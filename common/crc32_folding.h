// What the checksum by carry-less multiplication rests on: polynomials over GF(2), lowest bit first.
//
// A register of n bits holds a polynomial below x^n; its bit i stands for x^(n-1-i), so a little-endian
// load of message bytes has the first bit of the message as its highest power. The product of two 64-bit
// registers comes out as bits 0 to 126; read as a 128-bit register that is the product of the polynomials
// times x. Every constant below therefore holds one power less than the distance that it moves.
//
// Folding: V = L·x^64 + H, moved up by d bits, is congruent modulo P to L·(x^(64+d) mod P) +
// H·(x^d mod P), which fits the register again and is added to the bits that stand d later.

#pragma once

#include <cstdint>

#include "crc32_variants.h"

namespace security::crc32_variants {

// x^exponent mod P, in the upper half of a 64-bit register.
consteval std::uint64_t power_of_x(int exponent) {
  std::uint32_t power = 0x8000'0000;  // x^0
  for (int i = 0; i < exponent; ++i)
    power = power >> 1 ^ (power & 1) * polynomial;
  return std::uint64_t{power} << 32;
}

// The constant that a product needs to move its other factor up by `distance` bits.
consteval std::uint64_t mover(int distance) {
  return power_of_x(distance - 1);
}

// The two constants that move a lane of 16 bytes up by `distance` bits.
struct Movers {
  std::uint64_t low_lane_half;   // for the half with the higher powers
  std::uint64_t high_lane_half;  // for the half with the lower powers

  explicit consteval Movers(int distance)
      : low_lane_half(mover(distance + 64)), high_lane_half(mover(distance)) {}
};

}  // namespace security::crc32_variants
