// Databases as a server makes and opens them, and a node as it stores and reads one.

#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "metadb/objects/reference.h"
#include "nodemodel/node_store.h"
#include "nodemodel/serialization_cache.h"
#include "observe.h"
#include "small_mdb.h"

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
  ~Computer() { drop_databases(); }
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
// One with its usual parent.
mdb::ObjectReference store_server_node(std::uint32_t id, const std::string& name,
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
