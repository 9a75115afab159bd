#include "node_database.h"

#include "common/errors.h"
#include "common/text.h"
#include "inspect/inspection.h"
#include "metadb/objects/database.h"
#include "metadb/objects/indexes.h"
#include "metadb/objects/objects.h"
#include "nodemodel/node_lookup.h"
#include "nodemodel/node_store.h"
#include "nodemodel/record_reader.h"
#include "nodemodel/serialization_cache.h"
#include "small_mdb.h"

namespace crash {
namespace {

enum PropertyId : std::uint32_t { own_id = 0, parent_id = 2, name = 51 };

Node node_at(mdb::ObjectReference reference) {
  Node node{};
  mdb::for_each_entry(mdb::object_load(reference), [&](const mdb::RecordEntry& entry) {
    if (entry.property_id() == parent_id)
      node.parent = entry.node_id().k1;
    if (entry.property_id() == name) {
      mdb::PropertyString text;
      entry.read_into(text);
      node.text = text.value();
    }
  });
  return node;
}

}  // namespace

void create_database(simulation::SimulatedSystem& system, const Shape& shape) {
  mdb_test::create_mdb(system, {.block_size = shape.block_size,
                                .map_blocks = 2,
                                .data_blocks = 6,
                                .journal_bytes = shape.journal_bytes,
                                .journal = shape.placement});
}

void open_database() {
  mdb::mdb_open(mdb_test::mdb_path);
  mdb::node_model_init();
  mdb::index_init();
}

void drop_database() {
  try {
    mdb::mdb_close();
  } catch (const mdb::error_io&) {
    // The computer may have been off in between.
  }
}

void store_node(std::uint32_t id, const Node& node) {
  rename_node(id, id, node);
}

void rename_node(std::uint32_t from, std::uint32_t to, const Node& node) {
  mdb::clear_cache();
  mdb::add_property(mdb::PropertyNodeId(own_id, {0, to}));
  mdb::add_property(mdb::PropertyNodeId(parent_id, {0, node.parent}));
  mdb::add_property(mdb::PropertyString(name, node.text));
  mdb::node_store(mdb::node_find({0, from}).value_or(mdb::ObjectReference{}));
}

void erase_node(std::uint32_t id) {
  mdb::node_erase(mdb::node_find({0, id}).value());
}

State stored_state() {
  State state;
  for (std::uint32_t id = 1; id <= max_id; ++id) {
    if (const auto reference = mdb::node_find({0, id}))
      state[id] = node_at(*reference);
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
