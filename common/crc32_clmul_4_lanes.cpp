// The checksum by carry-less multiplication, four lanes at a time.

#include <immintrin.h>

#include "crc32_wide_folding.h"

namespace security::crc32_variants {
namespace {

struct FourLanes {
  struct Register {
    __m512i lanes;
  };

  static Register load(const std::byte* from) { return {_mm512_loadu_si512(from)}; }
  static Register added(Register to, std::uint32_t value) {
    const __m128i word = _mm_cvtsi32_si128(static_cast<int>(value));
    return {_mm512_xor_si512(to.lanes, _mm512_zextsi128_si512(word))};
  }
  static Register movers(const Movers& constants) {
    const auto high = static_cast<long long>(constants.high_lane_half);
    const auto low = static_cast<long long>(constants.low_lane_half);
    return {_mm512_set_epi64(high, low, high, low, high, low, high, low)};
  }
  static Register folded(Register from, Register movers, Register onto) {
    constexpr int sum_of_three = 0x96;
    const __m512i high_powers = _mm512_clmulepi64_epi128(from.lanes, movers.lanes, 0x00);
    const __m512i low_powers = _mm512_clmulepi64_epi128(from.lanes, movers.lanes, 0x11);
    return {_mm512_ternarylogic_epi64(high_powers, low_powers, onto.lanes, sum_of_three)};
  }
};

}  // namespace

Update four_lane_update() {
  const bool has_all = multiplying_update() != nullptr && __builtin_cpu_supports("avx512f") &&
                       __builtin_cpu_supports("vpclmulqdq");
  return has_all ? WideFolding<FourLanes>::update : nullptr;
}

}  // namespace security::crc32_variants
