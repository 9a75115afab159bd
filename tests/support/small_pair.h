// Databases as a server makes and opens them, and a node as it stores and reads one.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "metadb/objects/database.h"
#include "metadb/objects/reference.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/journal.h"
#include "metadb/storage/mapped_journal.h"
#include "metadb/storage/mdb_header.h"
#include "nodemodel/serialization_cache.h"
#include "observe.h"
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

namespace support {

inline constexpr const char* tsdb_path = "/db/main.tsdb";

struct TsdbShape {
  std::uint32_t block_size = 512;
  std::uint32_t block_count = 32;
  std::uint32_t set_count = 2;
  std::array<std::uint32_t, 4> entry_counts = {10, 10, 10, 10};  // of the head, tail, lblock, check chains
};

// Fills the file, which exists and is empty, and leaves the database open.
void create_tsdb(const std::string& path, const TsdbShape& shape);

// As the death of the process leaves everything, of both databases.
void drop_databases();

// A computer with an empty /db that the libraries use while it lives, and again after the life of a copy,
// which is another one with the same disk. What they have open at its end is dropped.
class Computer {
 public:
  Computer() { sim.add_directory(mdb_test::directory); }
  Computer(const Computer& other) : sim(other.sim) {}
  ~Computer();
  Computer& operator=(const Computer&) = delete;

  simulation::SimulatedSystem sim;

 private:
  simulation::Installed installed_{sim};
  LogCapture log_;
};

// Opens the meta database up to the node model; its indexes get the roots that they lack.
void open_nodes(const std::string& path, const std::optional<std::string>& journal_path = std::nullopt);

struct NodeFacts {
  std::uint32_t parent = 0;  // the second word of its id
  std::string name;
  bool operator==(const NodeFacts&) const = default;
};
using Nodes = std::map<std::uint32_t, NodeFacts>;  // by the second word of their ids

// A node like those of a server: of the indexes that the database has, each gets its share of them.
mdb::ObjectReference store_server_node(std::uint32_t id, const NodeFacts& node,
                                       mdb::ObjectReference reference = {});
// Makes the node `id` in the database what it is in `nodes`, over the record of node `from`, which is gone
// then.
void store_as_in(const Nodes& nodes, std::uint32_t id, std::uint32_t from);
// Those of the database with such ids.
Nodes stored_nodes(std::uint32_t first_id, std::uint32_t id_count);

// Makes a pair with time series of every datatype and nodes numbered from 1 on, and closes it; its journal
// has nothing to apply.
void make_pair(simulation::SimulatedSystem& sim, const mdb_test::MdbShape& mdb, const TsdbShape& tsdb,
               std::uint32_t nodes);

}  // namespace support
