// Small databases that hold a bit of everything, made by the libraries in memory, and what a server does with
// a database, tried on one of unknown worth. Nothing here touches a disk.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "metadb/objects/index_key.h"
#include "small_pair.h"

namespace fuzz {

using Bytes = std::vector<std::byte>;

// Small blocks make deep trees of few bytes.
inline constexpr std::array<mdb_test::MdbShape, 3> shapes = {{
    {.block_size = 128, .journal_bytes = 12'288},
    {.block_size = 256, .journal_bytes = 8'192, .journal = mdb::JournalPlacement::internal},
    {.block_size = 256, .journal_bytes = 16'384, .index_count = 6},
}};

using Files = std::map<std::string, Bytes>;  // by path

// Has these files.
struct Computer : support::Computer {
  explicit Computer(const Files& files = {}) {
    sim.set_free_bytes(256 << 10);
    for (const auto& [path, bytes] : files)
      sim.add_file(path, bytes);
  }
};

// A pair as a process that died leaves it: of these nodes most of the last ones are in the journal alone.
inline constexpr std::uint32_t node_count = 14;
inline constexpr std::uint32_t unapplied_nodes = 3;
Files make_files(const mdb_test::MdbShape& shape);

using Records = std::map<mdb::IndexKey, Bytes>;
struct Contents {
  Records records;  // by the key that index 0 has for them
  bool is_whole = true;
};

// The steps of a server that opens /db/main.odb, with the journal beside it unless it has its own.
// Throws what they throw.
void open_database();

// Follows every index from end to end and reads every record that one names.
Contents read_everything();

// Opens the database if it can be opened, reads everything, stores, moves and erases records, and closes and
// opens it once more. No step that fails keeps the rest from being tried.
void use_database();

}  // namespace fuzz
