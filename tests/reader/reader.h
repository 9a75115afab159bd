// Reads the files of a pair of databases, from their bytes alone: it shares nothing with the libraries that
// wrote them, checksums included. What is not as it must be is thrown as a std::runtime_error that says
// where.

#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace reader {

using Bytes = std::vector<std::uint8_t>;
using Span = std::span<const std::uint8_t>;

Bytes read_file(const std::string& path);
bool all_zero(Span bytes);
// Big-endian; a position outside the bytes throws.
std::uint32_t u32_at(Span bytes, std::uint64_t offset);

// ---- The time series database ----

enum Kind : std::uint32_t { head, tail, lblock, check };
inline constexpr std::array all_kinds = {head, tail, lblock, check};

// The words of entries that are not all zero, by the number of the entry.
using Entries = std::map<std::uint64_t, std::vector<std::uint32_t>>;

struct Chain {
  std::uint64_t timestamp = 0;
  std::vector<std::uint32_t> blocks{};  // in chain order
  std::uint32_t run_count = 0;          // of blocks that were added together
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
  std::uint32_t creation_time;
  std::uint32_t set_count;
};

// ---- The meta database ----

using Place = std::pair<std::uint32_t, std::uint32_t>;  // block, offset
using Key = std::pair<std::uint32_t, std::uint32_t>;

struct Mdb {
  // Takes the bytes of the file, and of the journal when that is a file of its own, else none. Checks the
  // headers and carries out what the journal holds, in memory.
  Mdb(Bytes bytes, Bytes external_journal);

  // The classes of all blocks that are not empty.
  std::map<std::uint32_t, std::uint32_t> block_classes() const;
  // The properties of each record as texts "ID/TYPE=VALUE ", the value without its padding: a text as it is,
  // all else in hex. Checks that items tile their blocks.
  std::map<Place, std::string> records() const;
  // Checks the root and its only leaf, which is `leaf`.
  std::map<Key, Place> index(std::uint32_t number, std::uint32_t leaf) const;

  Bytes file;
  Bytes journal;
  std::uint32_t journal_type;  // 1 internal, 2 external
  std::string journal_path;    // with its padding
  std::vector<std::uint32_t> roots;
  std::uint32_t bitmap_first;
  std::uint32_t data_first;
  std::uint64_t serials[2];  // of the journal's index pointers

 private:
  void replay();
  std::uint64_t replay_transaction(std::uint64_t begin);
  Span block(std::uint32_t number) const;
};

}  // namespace reader
