// The CRC-32 of IEEE 802.3 (reflected, polynomial 0xEDB88320).

#pragma once

#include <cstdint>

#include "common/hash.h"

namespace security {

class Crc32 final : public Hash {
 public:
  using Hash::update;
  void reset() override { register_ = initial; }
  std::size_t digest_size() const override { return 4; }
  void update(std::size_t length, const void* data) override;
  void update(std::byte byte) override;
  // Writes value() as four bytes, big-endian.
  void final(std::byte* output) override;

  // The checksum of what has been fed so far; the computation may go on.
  std::uint32_t value() const { return ~register_; }

 private:
  static constexpr std::uint32_t initial = 0xFFFF'FFFF;
  std::uint32_t register_ = initial;
};

// The checksum of one run of bytes.
std::uint32_t crc32(std::span<const std::byte> data);

}  // namespace security
