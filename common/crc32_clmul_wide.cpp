// The checksum by carry-less multiplication, 32 bytes at a time, for processors that multiply two lanes at
// once. Folding alone is done here, so that the rest stands in one place.

#include <immintrin.h>

#include "crc32_folding.h"
#include "crc32_variants.h"

namespace security::crc32_variants {
namespace {

constexpr std::size_t pair_size = sizeof(__m256i);
constexpr std::size_t pair_count = 4;  // so that a multiplication need not wait for the one before it
constexpr std::size_t stride_size = pair_count * pair_size;
constexpr Movers over_a_stride(8 * stride_size);
// Below this setting out costs what the width gains.
constexpr std::size_t worthwhile_size = 4 * stride_size;

__m256i load(const std::byte* from) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(static_cast<const void*>(from)));
}

void fold_onto(__m256i (&pairs)[pair_count], const std::byte* next) {
  const __m256i movers =
      _mm256_broadcastsi128_si256(_mm_set_epi64x(static_cast<long long>(over_a_stride.high_lane_half),
                                                 static_cast<long long>(over_a_stride.low_lane_half)));
  for (__m256i& pair : pairs) {
    const __m256i high_powers = _mm256_clmulepi64_epi128(pair, movers, 0x00);
    const __m256i low_powers = _mm256_clmulepi64_epi128(pair, movers, 0x11);
    pair = _mm256_xor_si256(_mm256_xor_si256(high_powers, low_powers), load(next));
    next += pair_size;
  }
}

// REQUIRES: data holds a stride. Apart from the choice below, which would set out for it each time.
[[gnu::noinline]] std::uint32_t update_by_strides(std::uint32_t value, std::span<const std::byte> data) {
  __m256i pairs[pair_count];
  for (std::size_t i = 0; i < pair_count; ++i)
    pairs[i] = load(&data[i * pair_size]);
  pairs[0] = _mm256_xor_si256(pairs[0], _mm256_castsi128_si256(_mm_cvtsi32_si128(static_cast<int>(value))));
  for (data = data.subspan(stride_size); data.size() >= stride_size; data = data.subspan(stride_size))
    fold_onto(pairs, data.data());
  // What has been folded is a message of one stride with the same remainder.
  return update_by_multiplication(update_by_multiplication(0, std::as_bytes(std::span(pairs))), data);
}

std::uint32_t update_by_wide_multiplication(std::uint32_t value, std::span<const std::byte> data) {
  return data.size() < worthwhile_size ? update_by_multiplication(value, data)
                                       : update_by_strides(value, data);
}

}  // namespace

Update wide_multiplying_update() {
  const bool has_all = multiplying_update() != nullptr && __builtin_cpu_supports("avx2") &&
                       __builtin_cpu_supports("vpclmulqdq");
  return has_all ? update_by_wide_multiplication : nullptr;
}

}  // namespace security::crc32_variants
