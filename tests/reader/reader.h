// Reads time series databases from their bytes alone: it shares nothing with the libraries that wrote them,
// checksums included. What is not as it must be is thrown as a std::runtime_error that says where.

#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <vector>

namespace reader {

using Bytes = std::vector<std::uint8_t>;
using Span = std::span<const std::uint8_t>;

enum Kind : std::uint32_t { head, tail, lblock, check };

// The words of entries that are not all zero, by the number of the entry.
using Entries = std::map<std::uint64_t, std::vector<std::uint32_t>>;

struct Chain {
  std::uint64_t timestamp = 0;
  std::vector<std::uint32_t> blocks{};  // in chain order
  Entries used{};
};

struct Tsdb {
  // Checks the header's fixed fields.
  explicit Tsdb(Bytes bytes);
  // Follows a chain from its entry in the header through its blocks; checks all of them. A chain whose entry
  // has a wrong CRC is empty.
  Chain chain(Kind kind, std::uint32_t set) const;
  // How many entries a block of that kind holds.
  std::uint32_t capacity(Kind kind) const;

  Bytes file;
  std::uint32_t block_size;
  std::uint32_t set_count;
};

}  // namespace reader
