// MD5 as published in RFC 1321; used for the stored password digest.

#pragma once

#include <array>
#include <cstdint>

#include "common/hash.h"

namespace security {

class Md5 final : public Hash {
 public:
  using Hash::update;
  Md5() { reset(); }
  void reset() override;
  std::size_t digest_size() const override { return 16; }
  void update(std::size_t length, const void* data) override;
  void update(std::byte byte) override;
  void final(std::byte* output) override;

 private:
  void transform(const std::byte* block);

  std::array<std::uint32_t, 4> state_;
  std::array<std::uint32_t, 2> bit_count_;  // low half first
  std::array<std::byte, 64> buffer_;
};

// The digest of the text's bytes (no terminator) as 32 lower-case hexadecimal characters.
std::string md5_hex(std::string_view text);

}  // namespace security
