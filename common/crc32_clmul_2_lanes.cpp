// The checksum by carry-less multiplication, two lanes at a time.

#include <immintrin.h>

#include "crc32_wide_folding.h"

namespace security::crc32_variants {
namespace {

struct TwoLanes {
  struct Register {
    __m256i lanes;
  };

  static Register load(const std::byte* from) {
    return {_mm256_loadu_si256(static_cast<const __m256i*>(static_cast<const void*>(from)))};
  }
  static Register added(Register to, std::uint32_t value) {
    const __m128i word = _mm_cvtsi32_si128(static_cast<int>(value));
    return {_mm256_xor_si256(to.lanes, _mm256_zextsi128_si256(word))};
  }
  static Register movers(const Movers& constants) {
    const auto high = static_cast<long long>(constants.high_lane_half);
    const auto low = static_cast<long long>(constants.low_lane_half);
    return {_mm256_set_epi64x(high, low, high, low)};
  }
  static Register folded(Register from, Register movers, Register onto) {
    const __m256i high_powers = _mm256_clmulepi64_epi128(from.lanes, movers.lanes, 0x00);
    const __m256i low_powers = _mm256_clmulepi64_epi128(from.lanes, movers.lanes, 0x11);
    return {_mm256_xor_si256(_mm256_xor_si256(high_powers, low_powers), onto.lanes)};
  }
};

}  // namespace

Update two_lane_update() {
  const bool has_all = multiplying_update() != nullptr && __builtin_cpu_supports("avx2") &&
                       __builtin_cpu_supports("vpclmulqdq");
  return has_all ? WideFolding<TwoLanes>::update : nullptr;
}

}  // namespace security::crc32_variants
