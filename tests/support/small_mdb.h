// The files of a small meta database on a simulated disk, as the libraries make them.

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "metadb/objects/database.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/journal.h"
#include "metadb/storage/mapped_journal.h"
#include "metadb/storage/mdb_header.h"
#include "simulation/simulated_system.h"

namespace mdb_test {

using Bytes = std::vector<std::byte>;

inline constexpr const char* directory = "/db";
inline constexpr const char* mdb_path = "/db/main.odb";
inline constexpr const char* journal_path = "/db/main.odbj";

struct MdbShape {
  std::uint32_t block_size = 512;
  std::uint32_t map_blocks = 1;
  std::uint32_t data_blocks = 16;  // addressable from the start; the first of them are the index roots
  std::uint32_t journal_bytes = 65'536;
  mdb::JournalPlacement journal = mdb::JournalPlacement::external;
  std::uint32_t index_count = 2;

  bool is_internal() const { return journal == mdb::JournalPlacement::internal; }
  std::uint32_t header_blocks() const { return (1024 + block_size - 1) / block_size; }
  std::uint32_t map_first() const {
    return header_blocks() + (is_internal() ? journal_bytes / block_size : 0);
  }
  std::uint32_t data_first() const { return map_first() + map_blocks; }
  std::uint32_t block_count() const { return data_first() + data_blocks; }
};

// The orderly end.
inline void close_mdb() {
  mdb::journal_shutdown();
  mdb::backing_sync();
  mdb::mdb_close();
}

// Leaves the database closed, without its index roots.
inline void create_mdb(simulation::SimulatedSystem& sim, const MdbShape& shape) {
  sim.add_directory(directory);
  sim.add_file(mdb_path, Bytes(std::size_t{shape.block_count()} * shape.block_size));
  if (!shape.is_internal())
    sim.add_file(journal_path, Bytes(shape.journal_bytes));
  std::vector<std::uint32_t> roots;
  for (std::uint32_t index = 0; index < shape.index_count; ++index)
    roots.push_back(shape.data_first() + index);
  mdb::backing_open(mdb_path);
  mdb::mdb_write_header({.block_size = shape.block_size,
                         .journal_placement = shape.journal,
                         .journal_path = journal_path,
                         .journal_first_block = shape.header_blocks(),
                         .journal_block_count = shape.journal_bytes / shape.block_size,
                         .index_roots = roots,
                         .bitmap_first = shape.map_first(),
                         .data_first = shape.data_first()});
  const std::uint64_t offset = std::uint64_t{shape.header_blocks()} * shape.block_size;
  mdb::journal_map(shape.is_internal() ? mdb_path : journal_path, shape.is_internal() ? offset : 0,
                   shape.journal_bytes, !shape.is_internal());
  mdb::journal_format();
  close_mdb();
}

}  // namespace mdb_test
