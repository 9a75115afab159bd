// A meta database of nodes on a simulated computer, and what it holds.

#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>

#include "common/errors.h"
#include "common/text.h"
#include "inspect/inspection.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/journal.h"
#include "metadb/storage/mapped_journal.h"
#include "nodemodel/node_lookup.h"
#include "nodemodel/record_format.h"
#include "observe.h"
#include "small_mdb.h"
#include "small_pair.h"

namespace crash {

using Node = support::NodeFacts;
using State = std::map<std::uint32_t, Node>;  // by the second word of the node's id, from 1 on
using support::drop_databases;

inline constexpr std::uint32_t max_id = 40;

// With few data blocks, so that it soon has to grow.
inline void create_database(simulation::SimulatedSystem& system, std::uint32_t block_size,
                            std::uint32_t journal_bytes, mdb::JournalPlacement placement) {
  mdb_test::create_mdb(system, {.block_size = block_size,
                                .map_blocks = 2,
                                .data_blocks = 6,
                                .journal_bytes = journal_bytes,
                                .journal = placement});
}
inline void open_database() {
  support::open_nodes(mdb_test::mdb_path);
}

// Stores the node in the database and in the state, over the record of node `from`, which is gone then.
inline void store(State& state, std::uint32_t from, std::uint32_t id, const Node& node) {
  state.erase(from);
  state[id] = node;
  support::store_node(mdb::node_find({0, from}).value_or(mdb::ObjectReference{}),
                      mdb::PropertyNodeId(mdb::property_id::node_id, {0, id}),
                      mdb::PropertyNodeId(mdb::property_id::parent_id, {0, node.parent}),
                      mdb::PropertyString(mdb::property_id::name, node.name));
}
inline void erase(State& state, std::uint32_t id) {
  state.erase(id);
  mdb::node_erase(mdb::node_find({0, id}).value());
}
inline State stored_state() {
  State state;
  for (std::uint32_t id = 1; id <= max_id; ++id) {
    if (const auto reference = mdb::node_find({0, id}))
      state[id] = support::read_node(*reference);
  }
  return state;
}

inline void expect_sound() {
  const inspect::Inspection inspection = inspect::inspect_pair(mdb_test::directory, std::nullopt);
  for (const inspect::Finding& finding : inspection.report.findings()) {
    EXPECT_EQ(finding.severity, inspect::Severity::note)
        << inspect::name_of(finding.place.file) << " block " << finding.place.block.value_or(0) << " offset "
        << finding.place.offset << ": " << finding.text;
  }
}

}  // namespace crash
