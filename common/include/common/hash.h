// Hashes behind one interface: checksums and digests.

#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace security {

class Hash {
 public:
  virtual ~Hash() = default;

  // Starts a new computation.
  virtual void reset() = 0;
  // Size of the digest in bytes.
  virtual std::size_t digest_size() const = 0;
  // Feeds `length` bytes, or one; what is fed in pieces counts as one run.
  virtual void update(std::size_t length, const void* data) = 0;
  virtual void update(std::byte byte) = 0;
  // Writes digest_size() bytes. A further update needs a reset() first.
  virtual void final(std::byte* output) = 0;

  // Feeds a run of bytes, of any length.
  void update(std::span<const std::byte> data) { update(data.size(), data.data()); }
};

}  // namespace security
