// The header of the meta database.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "file_image.h"
#include "inspect/facts.h"
#include "inspect/report.h"

namespace inspect {

// Where things lie, once the header made sense.
struct MdbLayout {
  std::uint32_t block_size = 0;
  bool journal_is_internal = false;
  std::uint32_t journal_first_block = 0;  // internal
  std::uint32_t journal_block_count = 0;  // internal: what reads back of the count
  std::string journal_path;               // external
  std::vector<std::uint32_t> roots;       // all that the header counts
  std::uint32_t map_first_block = 0;
  std::uint32_t data_first_block = 0;

  std::uint64_t map_position() const { return std::uint64_t{map_first_block} * block_size; }
  // How many blocks have a class byte and a number of 32 bits.
  std::uint64_t addressable_blocks() const;
};

inline Place place_in_mdb(std::uint64_t block, std::uint64_t offset) {
  return {DatabaseFile::mdb, block, offset};
}

// Checks every field and fills the facts that come from them. Nothing when the layout cannot be relied on.
// Throws Unreadable.
std::optional<MdbLayout> check_mdb_header(const SourceFile& file, MdbFacts& facts, Report& report);

}  // namespace inspect
