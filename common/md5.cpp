#include "common/md5.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "common/text.h"

namespace security {
namespace {

constexpr std::size_t block_size = 64;
constexpr std::size_t length_offset = 56;  // of the bit count in the last block
constexpr std::size_t steps_per_round = 16;

constexpr std::array<std::uint32_t, 4> initial_state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};

// floor(2^32 × |sin(n)|) for n = 1 to 64.
constexpr std::array<std::uint32_t, 64> sines = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

// What tells the four rounds apart: the function of three words, which of the block's words step i takes
// (first + i × stride, modulo 16), and the rotations, which repeat every four steps.
struct Round {
  std::uint32_t (*mix)(std::uint32_t x, std::uint32_t y, std::uint32_t z);
  std::size_t first_word;
  std::size_t word_stride;
  std::array<int, 4> rotations;
};

constexpr std::array<Round, 4> rounds = {{
    {[](auto x, auto y, auto z) { return z ^ (x & (y ^ z)); }, 0, 1, {7, 12, 17, 22}},
    {[](auto x, auto y, auto z) { return (x & z) + (y & ~z); }, 1, 5, {5, 9, 14, 20}},
    {[](auto x, auto y, auto z) { return x ^ y ^ z; }, 5, 3, {4, 11, 16, 23}},
    {[](auto x, auto y, auto z) { return y ^ (x | ~z); }, 0, 7, {6, 10, 15, 21}},
}};

std::uint32_t load_little_endian(const std::byte* from) {
  return std::to_integer<std::uint32_t>(from[0]) | std::to_integer<std::uint32_t>(from[1]) << 8 |
         std::to_integer<std::uint32_t>(from[2]) << 16 | std::to_integer<std::uint32_t>(from[3]) << 24;
}

// The words by their names in the usual description; after a step each has the value of its left neighbour.
struct Words {
  std::uint32_t a, b, c, d;
};

template <std::size_t step>
void take_step(Words& state, const std::array<std::uint32_t, 16>& words) {
  constexpr Round round = rounds[step / steps_per_round];
  constexpr std::size_t i = step % steps_per_round;
  constexpr std::size_t word = (round.first_word + i * round.word_stride) % 16;
  const std::uint32_t sum = state.a + words[word] + sines[step] + round.mix(state.b, state.c, state.d);
  state = {state.d, state.b + std::rotl(sum, round.rotations[i % round.rotations.size()]), state.b, state.c};
}

// Each with its constants known when it is compiled, which doubles the speed.
template <std::size_t... steps>
void take_steps(Words& state, const std::array<std::uint32_t, 16>& words, std::index_sequence<steps...>) {
  (take_step<steps>(state, words), ...);
}

template <std::size_t count>
void store_little_endian(const std::array<std::uint32_t, count>& words, std::byte* to) {
  for (const std::uint32_t word : words) {
    for (int shift = 0; shift < 32; shift += 8)
      *to++ = static_cast<std::byte>(word >> shift);
  }
}

}  // namespace

void Md5::reset() {
  state_ = initial_state;
  bit_count_ = {};
  buffer_ = {};
}

void Md5::update(std::size_t length, const void* data) {
  auto* input = static_cast<const std::byte*>(data);
  std::size_t buffered = bit_count_[0] / 8 % block_size;
  const auto low_bits = static_cast<std::uint32_t>(std::uint64_t{length} << 3);
  bit_count_[0] += low_bits;
  bit_count_[1] += static_cast<std::uint32_t>(std::uint64_t{length} >> 29) + (bit_count_[0] < low_bits);

  while (length > 0) {
    const std::size_t taken = std::min(length, block_size - buffered);
    std::memcpy(buffer_.data() + buffered, input, taken);
    input += taken;
    length -= taken;
    buffered += taken;
    if (buffered < block_size)
      return;
    transform(buffer_.data());
    buffered = 0;
  }
}

void Md5::update(std::byte byte) {
  update(1, &byte);
}

void Md5::final(std::byte* output) {
  static constexpr std::array<std::byte, block_size> padding = {std::byte{0x80}};
  std::array<std::byte, sizeof bit_count_> stored_count{};
  store_little_endian(bit_count_, stored_count.data());

  const std::size_t buffered = bit_count_[0] / 8 % block_size;
  update((buffered < length_offset ? length_offset : length_offset + block_size) - buffered, padding.data());
  update(stored_count);
  store_little_endian(state_, output);
}

void Md5::transform(const std::byte* block) {
  std::array<std::uint32_t, 16> words{};
  for (std::size_t i = 0; i < words.size(); ++i)
    words[i] = load_little_endian(block + 4 * i);

  Words state{state_[0], state_[1], state_[2], state_[3]};
  take_steps(state, words, std::make_index_sequence<sines.size()>());
  state_ = {state_[0] + state.a, state_[1] + state.b, state_[2] + state.c, state_[3] + state.d};
}

std::string md5_hex(std::string_view text) {
  Md5 md5;
  md5.update(text.size(), text.data());
  std::array<std::byte, 16> digest{};
  md5.final(digest.data());

  std::string hex;
  for (const std::byte byte : digest) {
    hex += text::hex_digits[std::to_integer<std::size_t>(byte >> 4)];
    hex += text::hex_digits[std::to_integer<std::size_t>(byte & std::byte{15})];
  }
  return hex;
}

}  // namespace security
