// The checksum by carry-less multiplication, 16 bytes at a time.

#include <emmintrin.h>
#include <wmmintrin.h>

#include "crc32_folding.h"
#include "crc32_variants.h"

namespace security::crc32_variants {
namespace {

constexpr std::size_t lane_size = sizeof(__m128i);
constexpr std::size_t stride_size = 4 * lane_size;
// Below this the tables are as fast: the final reduction costs about as much as 24 bytes there.
constexpr std::size_t worthwhile_size = 2 * lane_size;

// P with its term x^32, as a register of 33 bits.
constexpr std::uint64_t whole_polynomial = std::uint64_t{polynomial} << 1 | 1;

// The quotient of x^64 by P, as a register of 33 bits, by long division: each step brings one more power
// down, from x^64 to x^0, and bit 0 of the remainder is the term x^32.
consteval std::uint64_t reciprocal() {
  std::uint64_t remainder = 1;  // x^32, the first power that P divides
  std::uint64_t quotient = 0;
  for (int bit = 0; bit <= 32; ++bit) {
    if ((remainder & 1) != 0) {
      remainder ^= whole_polynomial;
      quotient |= std::uint64_t{1} << bit;
    }
    remainder >>= 1;
  }
  return quotient;
}

constexpr Movers over_one_lane(128);
constexpr Movers over_four_lanes(512);
constexpr std::uint64_t over_96_bits = mover(96);
constexpr std::uint64_t over_64_bits = mover(64);
constexpr std::uint64_t polynomial_reciprocal = reciprocal();

__m128i load(const std::byte* from) {
  return _mm_loadu_si128(static_cast<const __m128i*>(static_cast<const void*>(from)));
}

__m128i lane_of(const Movers& movers) {
  return _mm_set_epi64x(static_cast<long long>(movers.high_lane_half),
                        static_cast<long long>(movers.low_lane_half));
}

__m128i word(std::uint64_t value) {
  return _mm_cvtsi64_si128(static_cast<long long>(value));
}

__m128i folded(__m128i lane, __m128i movers, __m128i onto) {
  const __m128i high_powers = _mm_clmulepi64_si128(lane, movers, 0x00);
  const __m128i low_powers = _mm_clmulepi64_si128(lane, movers, 0x11);
  return _mm_xor_si128(_mm_xor_si128(high_powers, low_powers), onto);
}

// The register of the checksum: the lane times x^32, modulo P.
std::uint32_t reduced(__m128i lane) {
  // L·x^96 + H·x^32, 96 bits that end at the lane's end.
  const __m128i high_powers = _mm_clmulepi64_si128(lane, word(over_96_bits), 0x00);
  const __m128i low_powers = _mm_slli_si128(_mm_srli_si128(lane, 8), 4);
  const __m128i powers96 = _mm_xor_si128(high_powers, low_powers);
  // The upper 32 of them moved by 64 onto the rest, which leaves 64 bits in the lane's second half.
  const __m128i powers64 = _mm_xor_si128(_mm_clmulepi64_si128(powers96, word(over_64_bits), 0x00), powers96);
  const __m128i powers = _mm_srli_si128(powers64, 8);
  // Their upper half times the reciprocal is the quotient by P; what P times it leaves is the remainder.
  const __m128i lower_32_bits = word(0xFFFF'FFFF);
  const __m128i quotient = _mm_and_si128(
      _mm_clmulepi64_si128(_mm_and_si128(powers, lower_32_bits), word(polynomial_reciprocal), 0x00),
      lower_32_bits);
  const __m128i remainder =
      _mm_xor_si128(_mm_clmulepi64_si128(quotient, word(whole_polynomial), 0x00), powers);
  return static_cast<std::uint32_t>(static_cast<std::uint64_t>(_mm_cvtsi128_si64(remainder)) >> 32);
}

// Folds whole strides from the front of `data`, four lanes at a time so that four multiplications are
// always on their way, and takes them off it.
// REQUIRES: data holds a stride; `first` is its first lane, with the register added.
__m128i folded_strides(__m128i first, std::span<const std::byte>& data) {
  const std::byte* p = data.data();
  __m128i lanes[4] = {first, load(p + lane_size), load(p + 2 * lane_size), load(p + 3 * lane_size)};
  const __m128i movers = lane_of(over_four_lanes);
  for (data = data.subspan(stride_size); data.size() >= stride_size; data = data.subspan(stride_size)) {
    p = data.data();
    for (__m128i& lane : lanes) {
      lane = folded(lane, movers, load(p));
      p += lane_size;
    }
  }
  __m128i sum = lanes[0];
  for (std::size_t i = 1; i < std::size(lanes); ++i)
    sum = folded(sum, lane_of(over_one_lane), lanes[i]);
  return sum;
}

}  // namespace

std::uint32_t update_by_multiplication(std::uint32_t value, std::span<const std::byte> data) {
  if (data.size() < worthwhile_size)
    return update_by_tables(value, data);
  __m128i lane = _mm_xor_si128(load(data.data()), word(value));
  if (data.size() >= stride_size) {
    lane = folded_strides(lane, data);
  } else {
    data = data.subspan(lane_size);
  }
  for (; data.size() >= lane_size; data = data.subspan(lane_size)) {
    lane = folded(lane, lane_of(over_one_lane), load(data.data()));
  }
  return update_by_tables(reduced(lane), data);
}

Update multiplying_update() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("pclmul") ? update_by_multiplication : nullptr;
}

}  // namespace security::crc32_variants
