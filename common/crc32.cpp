#include "common/crc32.h"

#include "common/bytes.h"
#include "crc32_variants.h"

namespace security {
namespace crc32_variants {
namespace {

constexpr std::size_t bytes_per_step = 16;

// tables[k][b] is what byte b adds to the register when k more bytes follow it.
using Tables = std::array<std::array<std::uint32_t, 256>, bytes_per_step>;

consteval Tables make_tables() {
  Tables tables{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t remainder = byte;
    for (int bit = 0; bit < 8; ++bit)
      remainder = remainder >> 1 ^ (remainder & 1) * polynomial;
    tables[0][byte] = remainder;
  }
  for (std::size_t k = 1; k < tables.size(); ++k) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      const std::uint32_t nearer = tables[k - 1][byte];
      tables[k][byte] = nearer >> 8 ^ tables[0][nearer & 255];
    }
  }
  return tables;
}

constexpr Tables tables = make_tables();

std::uint32_t fed_byte(std::uint32_t value, std::byte byte) {
  return tables[0][(value ^ std::to_integer<std::uint32_t>(byte)) & 255] ^ value >> 8;
}

// What four bytes, the first of them lowest in `word`, add when `following` bytes come after them.
std::uint32_t contribution(std::uint32_t word, std::size_t following) {
  return tables[following + 3][word & 255] ^ tables[following + 2][word >> 8 & 255] ^
         tables[following + 1][word >> 16 & 255] ^ tables[following][word >> 24];
}

std::uint32_t load_little_endian(const std::byte* from) {
  return std::to_integer<std::uint32_t>(from[0]) | std::to_integer<std::uint32_t>(from[1]) << 8 |
         std::to_integer<std::uint32_t>(from[2]) << 16 | std::to_integer<std::uint32_t>(from[3]) << 24;
}

}  // namespace

std::uint32_t update_by_tables(std::uint32_t value, std::span<const std::byte> data) {
  const std::byte* p = data.data();
  std::size_t left = data.size();
  for (; left >= bytes_per_step; left -= bytes_per_step, p += bytes_per_step) {
    // What does not wait for the step before comes first: only the rest is a chain.
    const std::uint32_t others = contribution(load_little_endian(p + 4), 8) ^
                                 contribution(load_little_endian(p + 8), 4) ^
                                 contribution(load_little_endian(p + 12), 0);
    value = others ^ contribution(value ^ load_little_endian(p), 12);
  }
  for (; left >= 8; left -= 8, p += 8) {
    value = contribution(value ^ load_little_endian(p), 4) ^ contribution(load_little_endian(p + 4), 0);
  }
  for (; left >= 4; left -= 4, p += 4)
    value = contribution(value ^ load_little_endian(p), 0);
  for (; left > 0; --left, ++p)
    value = fed_byte(value, *p);
  return value;
}

}  // namespace crc32_variants

namespace {

std::uint32_t choose_and_update(std::uint32_t value, std::span<const std::byte> data);

constinit crc32_variants::Update chosen_update = choose_and_update;

// Stands in for the chosen variant until the first checksum is computed.
std::uint32_t choose_and_update(std::uint32_t value, std::span<const std::byte> data) {
  for (const crc32_variants::Update update :
       {&crc32_variants::update_by_tables, crc32_variants::multiplying_update(),
        crc32_variants::two_lane_update(), crc32_variants::four_lane_update()}) {
    if (update != nullptr)
      chosen_update = update;
  }
  return chosen_update(value, data);
}

}  // namespace

void Crc32::update(std::size_t length, const void* data) {
  register_ = chosen_update(register_, {static_cast<const std::byte*>(data), length});
}

void Crc32::update(std::byte byte) {
  register_ = crc32_variants::fed_byte(register_, byte);
}

void Crc32::final(std::byte* output) {
  bytes::store_u32({output, sizeof(std::uint32_t)}, 0, value());
}

std::uint32_t crc32(std::span<const std::byte> data) {
  Crc32 crc;
  crc.update(data);
  return crc.value();
}

}  // namespace security
