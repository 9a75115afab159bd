#include "small_pair.h"

#include <algorithm>

#include "common/errors.h"
#include "metadb/objects/indexes.h"
#include "metadb/objects/objects.h"
#include "metadb/storage/buffer_cache.h"
#include "nodemodel/node_lookup.h"
#include "nodemodel/node_store.h"
#include "nodemodel/node_types.h"
#include "nodemodel/record_format.h"
#include "nodemodel/record_reader.h"
#include "timeseries/backing_store.h"
#include "timeseries/block_map.h"
#include "timeseries/chains.h"
#include "timeseries/create_tsdb.h"
#include "timeseries/header.h"
#include "timeseries/levels.h"

namespace support {

void create_tsdb(const std::string& path, const TsdbShape& shape) {
  tsdb::btb_open(path);
  tsdb::btb_set_block_size(shape.block_size);
  tsdb::init_block_map(shape.block_count);
  tsdb::btb_grow(shape.block_count);
  tsdb::create_header(shape.block_size, shape.block_count, shape.set_count);
  for (std::uint32_t set = 0; set < shape.set_count; ++set) {
    for (const tsdb::ChainTraits& traits : tsdb::chain_traits) {
      const std::uint32_t entries = shape.entry_counts[tsdb::kind_index(traits.kind)];
      if (entries != 0)
        tsdb::create_chain(traits.kind, set, entries);
    }
  }
  tsdb::write_header();
  tsdb::sync_writes();
}

void open_nodes(const std::string& path, const std::optional<std::string>& journal_path) {
  mdb::mdb_open(path, journal_path);
  mdb::node_model_init();
  mdb::index_init();
  for (std::uint32_t index = 2; index < std::min(mdb::index_root_count(), mdb::max_index_count); ++index)
    mdb::index_create_root(mdb::index_root(index));
}

void drop_databases() {
  try {
    if (mdb::backing_is_open())
      mdb::mdb_close();
  } catch (const mdb::error_io&) {
    // The computer may have been off in between.
  }
  tsdb::tsdb_close();
}

Computer::~Computer() {
  drop_databases();
  mdb::cache_set_limit(8192);
}

mdb::ObjectReference store_server_node(std::uint32_t id, const NodeFacts& node,
                                       mdb::ObjectReference reference) {
  using dbcache::node_type_t;
  const std::uint32_t number = id + node.parent - id / 10;  // another parent comes with other properties
  mdb::clear_cache();
  mdb::add_property(mdb::PropertyNodeId(mdb::property_id::node_id, {0, id}));
  mdb::add_property(mdb::PropertyNodeId(mdb::property_id::parent_id, {0, node.parent}));
  mdb::add_property(mdb::PropertyEnum<node_type_t>(mdb::property_id::node_type,
                                                   id == 1 ? node_type_t::domain : node_type_t::host));
  mdb::add_property(mdb::PropertyString(mdb::property_id::name, node.name));
  if (mdb::index_root_count() >= mdb::max_index_count) {
    mdb::add_property(mdb::PropertyBool(502, number % 3 == 0));
    mdb::add_property(mdb::PropertySomething32<unsigned, 1>(100, number));
    mdb::add_property(mdb::PropertySomething32<unsigned, 8>(2601, number));
    if (number % 2 == 0)
      mdb::add_property(mdb::PropertyNodeId(59, {1, number}));
    if (number % 5 == 0)
      mdb::add_property(mdb::PropertyNodeId(3800, {2, 7}));
    if (number % 7 == 0)
      mdb::add_property(mdb::PropertyNodeId(3901, {3, number}));
  }
  return mdb::node_store(reference);
}

void store_as_in(const Nodes& nodes, std::uint32_t id, std::uint32_t from) {
  const auto reference = mdb::node_find({0, from});
  if (const auto node = nodes.find(id); node != nodes.end()) {
    store_server_node(id, node->second, reference.value_or(mdb::ObjectReference{}));
  } else if (reference) {
    mdb::node_erase(*reference);
  }
}

Nodes stored_nodes(std::uint32_t first_id, std::uint32_t id_count) {
  Nodes nodes;
  for (std::uint32_t id = first_id; id < first_id + id_count; ++id) {
    const auto reference = mdb::node_find({0, id});
    if (!reference)
      continue;
    mdb::BlockBuffer scratch;
    mdb::for_each_entry(mdb::object_view(*reference, scratch), [&](const mdb::RecordEntry& entry) {
      if (entry.property_id() == mdb::property_id::parent_id)
        nodes[id].parent = entry.node_id().k1;
      if (entry.property_id() == mdb::property_id::name) {
        mdb::PropertyString name;
        entry.read_into(name);
        nodes[id].name = name.value();
      }
    });
  }
  return nodes;
}

void make_pair(simulation::SimulatedSystem& sim, const mdb_test::MdbShape& mdb, const TsdbShape& tsdb,
               std::uint32_t nodes) {
  mdb_test::create_mdb(sim, mdb);
  sim.add_file(tsdb_path, {});
  create_tsdb(tsdb_path, tsdb);
  for (std::uint32_t datatype = 1; datatype <= 4; ++datatype)
    tsdb::allocate_described_ts({.datatype = datatype, .levels = {{20, 1}, {10, 2}, {5, 3}}});
  // The second opening brings what the journal has into the database.
  for (std::uint32_t stored = 0; nodes != 0 && stored < 2 * nodes; stored += nodes) {
    open_nodes(mdb_test::mdb_path);
    for (std::uint32_t number = stored + 1; number <= nodes; ++number)
      store_server_node(number, {number / 10, "node " + std::to_string(number)});
    mdb_test::close_mdb();
  }
}

}  // namespace support
