// The header of the meta database: block size, place of the journal, index roots, extent of the allocation
// map. It is held in memory while the database is open; the layers above read their fields here.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace mdb {

enum class JournalPlacement : std::uint32_t { internal = 0, external = 1 };

struct HeaderFields {
  std::uint32_t block_size;
  JournalPlacement journal_placement;
  std::string journal_path;           // external only
  std::uint32_t journal_first_block;  // internal only
  std::uint32_t journal_block_count;  // internal only
  std::vector<std::uint32_t> index_roots;
  std::uint32_t bitmap_first;  // first block of the allocation map
  std::uint32_t data_first;    // first block after it
};

// Builds the header, writes it to the open store and keeps it, as mdb_open_header would; sets the store's
// block size. Does not attach the journal.
// Throws error_internal "Too long journal path", "Journal type unknown", "The header does not fit into a
// block", and what byte_write throws.
void mdb_write_header(const HeaderFields& fields);

// Reads and checks the header of the open store, sets its block size and attaches the journal: at
// `journal_path` when given, else where the header says.
// Throws error_fubar, error_unsupported, and what byte_read and journal_map throw.
void mdb_open_header(const std::optional<std::string>& journal_path = std::nullopt);

// Forgets the header.
void mdb_forget_header();

// Whether a header has been written or read, and not been forgotten since.
bool mdb_header_is_loaded();

// REQUIRES (all below): the header is loaded.
std::uint32_t bitmap_first();
std::uint32_t data_first();
// The number of index roots that the header counts; at most 6 are honoured.
std::uint32_t index_root_count();
// The root block of an index. REQUIRES: index < min(6, index_root_count()).
std::uint32_t index_root(std::uint32_t index);

inline constexpr std::uint32_t max_index_count = 6;

}  // namespace mdb
