#include "node_database.h"

#include "common/text.h"
#include "inspect/inspection.h"
#include "nodemodel/node_lookup.h"
#include "nodemodel/node_store.h"
#include "nodemodel/record_format.h"
#include "small_mdb.h"

namespace crash {

void create_database(simulation::SimulatedSystem& system, const Shape& shape) {
  mdb_test::create_mdb(system, {.block_size = shape.block_size,
                                .map_blocks = 2,
                                .data_blocks = 6,
                                .journal_bytes = shape.journal_bytes,
                                .journal = shape.placement});
}

void open_database() {
  support::open_nodes(mdb_test::mdb_path);
}

void store_node(std::uint32_t id, const Node& node) {
  rename_node(id, id, node);
}

void rename_node(std::uint32_t from, std::uint32_t to, const Node& node) {
  support::store_node(mdb::node_find({0, from}).value_or(mdb::ObjectReference{}),
                      mdb::PropertyNodeId(mdb::property_id::node_id, {0, to}),
                      mdb::PropertyNodeId(mdb::property_id::parent_id, {0, node.parent}),
                      mdb::PropertyString(mdb::property_id::name, node.name));
}

void erase_node(std::uint32_t id) {
  mdb::node_erase(mdb::node_find({0, id}).value());
}

State stored_state() {
  State state;
  for (std::uint32_t id = 1; id <= max_id; ++id) {
    if (const auto reference = mdb::node_find({0, id}))
      state[id] = support::read_node(*reference);
  }
  return state;
}

std::string findings() {
  std::string lines;
  const inspect::Inspection inspection = inspect::inspect_pair(mdb_test::directory, std::nullopt);
  for (const inspect::Finding& finding : inspection.report.findings()) {
    if (finding.severity == inspect::Severity::damage)
      lines += text::concat(inspect::name_of(finding.place.file), " block ", finding.place.block.value_or(0),
                            " offset ", finding.place.offset, ": ", finding.text, "\n");
  }
  return lines;
}

}  // namespace crash
