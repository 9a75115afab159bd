// A meta database of nodes on a simulated computer, and what it holds.

#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "metadb/storage/mdb_header.h"
#include "simulation/simulated_system.h"
#include "small_pair.h"

namespace crash {

struct Shape {
  std::uint32_t block_size;
  std::uint32_t journal_bytes;
  mdb::JournalPlacement placement;
};

using Node = support::NodeFacts;
using State = std::map<std::uint32_t, Node>;  // by the second word of the node's id

// Ids run from 1 to this.
inline constexpr std::uint32_t max_id = 40;

// All below work on the system that the libraries use. The database is made with few data blocks, so that it
// soon has to grow.
void create_database(simulation::SimulatedSystem& system, const Shape& shape);
void open_database();
using support::drop_databases;

void store_node(std::uint32_t id, const Node& node);
// Stores the node over the record of another one, which is gone then.
void rename_node(std::uint32_t from, std::uint32_t to, const Node& node);
void erase_node(std::uint32_t id);
State stored_state();

// The damage that an inspection finds, a line each.
std::string findings();

}  // namespace crash
