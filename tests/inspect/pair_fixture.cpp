#include "pair_fixture.h"

#include <algorithm>

#include "nodemodel/node_lookup.h"
#include "nodemodel/node_store.h"
#include "nodemodel/node_types.h"
#include "nodemodel/serialization_cache.h"
#include "timeseries/levels.h"

namespace inspect_test {

namespace {

constexpr std::uint32_t journal_header_bytes = 48;

}  // namespace

std::uint32_t word(const FileBytes& file, std::uint64_t offset) {
  return bytes::load_u32(file, offset);
}

void set_word(FileBytes& file, std::uint64_t offset, std::uint32_t value) {
  bytes::store_u32(file, offset, value);
}

Pair::Pair(const Shape& wanted)
    : shape{.map_blocks = wanted.map_blocks,
            .data_blocks = 60,
            .journal =
                wanted.internal_journal ? mdb::JournalPlacement::internal : mdb::JournalPlacement::external,
            .index_count = root_count} {
  mdb_test::create_mdb(sim, shape);
  make_tsdb(wanted.nodes > 0);
  if (wanted.nodes == 0)
    return;
  open_mdb();
  for (std::uint32_t number = 1; number <= wanted.nodes; ++number)
    store_node(number);
  close_mdb();
  open_mdb();  // brings what the journal has into main.odb
  close_mdb();
  change(shape.is_internal() ? "main.odb" : "main.odbj", [&](FileBytes& file) {
    const std::uint64_t start = shape.is_internal() ? block(shape.header_blocks()) : 0;
    const auto halves = std::span(file).subspan(start, shape.journal_bytes).subspan(journal_header_bytes);
    std::ranges::fill(halves, std::byte{0});
  });
}

Pair::~Pair() {
  support::drop_databases();
}

void Pair::make_tsdb(bool with_series) {
  sim.add_file(support::tsdb_path, {});
  // Head and lblock chains of two blocks.
  support::create_tsdb(support::tsdb_path, {block_size, 128, tsdb_sets, {200, 10, 40, 10}});
  for (std::uint32_t datatype = 1; with_series && datatype <= 4; ++datatype)
    tsdb::allocate_described_ts({.datatype = datatype, .levels = {{20, 1}, {10, 2}, {5, 3}}});
}

void Pair::open_mdb() {
  support::open_nodes(mdb_test::mdb_path);
}

void Pair::close_mdb() {
  mdb_test::close_mdb();
}

// A node like those of a server: every index has its share of them.
mdb::ObjectReference Pair::store_node(std::uint32_t number, mdb::ObjectReference reference) {
  using NodeType = mdb::PropertyEnum<dbcache::node_type_t>;
  mdb::clear_cache();
  mdb::add_property(mdb::PropertyNodeId(0, {0, number}));
  mdb::add_property(mdb::PropertyNodeId(2, {0, number / 40}));
  mdb::add_property(NodeType(3, number == 1 ? dbcache::node_type_t::domain : dbcache::node_type_t::host));
  mdb::add_property(mdb::PropertyString(51, "node " + std::to_string(number)));
  mdb::add_property(mdb::PropertyBool(502, number % 3 == 0));
  mdb::add_property(mdb::PropertySomething32<unsigned, 1>(100, number));
  mdb::add_property(mdb::PropertySomething32<unsigned, 8>(2601, number));
  if (number % 2 == 0)
    mdb::add_property(mdb::PropertyNodeId(59, {1, number}));
  if (number % 5 == 0)
    mdb::add_property(mdb::PropertyNodeId(3800, {2, 7}));
  if (number % 7 == 0)
    mdb::add_property(mdb::PropertyNodeId(3901, {3, number}));
  return mdb::node_store(reference);
}

void Pair::erase_node(std::uint32_t number) {
  mdb::node_erase(mdb::node_find({0, number}).value());
}

void Pair::change(const std::string& name, const std::function<void(FileBytes&)>& change) {
  FileBytes bytes = file(name);
  change(bytes);
  sim.set_contents("/db/" + name, bytes);
}

std::uint64_t Pair::object_of(std::uint32_t number) const {
  for (const auto& [at, key, data] : tree(0).entries) {
    if (key.k1 == number)
      return block(data.block) + data.offset;
  }
  ADD_FAILURE() << "no node " << number;
  return 0;
}

std::uint64_t Pair::property_of(std::uint32_t number, std::uint32_t property) const {
  const FileBytes bytes = file("main.odb");
  const std::uint64_t object = object_of(number);
  const std::uint64_t end = object + word(bytes, object);
  for (std::uint64_t at = object + 4; at < end; at += word(bytes, at + 4)) {
    if (word(bytes, at) == property)
      return at;
  }
  ADD_FAILURE() << "no property " << property;
  return 0;
}

std::uint64_t Pair::index_entry_of(std::uint32_t index, std::uint32_t number) const {
  for (const auto& [at, key, data] : tree(index).entries) {
    if (block(data.block) + data.offset == object_of(number))
      return at;
  }
  ADD_FAILURE() << "no entry of node " << number;
  return 0;
}

std::uint64_t Pair::entry(std::uint32_t kind, std::uint32_t number) const {
  constexpr std::uint32_t widths[] = {4, 4, 16, 8};
  return chain(kind, newest_set(kind)) + 16 + std::uint64_t{widths[kind]} * number;
}

std::vector<std::string> lines_of(const inspect::Inspection& inspection, inspect::Severity severity) {
  std::vector<std::string> lines;
  for (const inspect::Finding& finding : inspection.report.findings()) {
    if (finding.severity != severity)
      continue;
    std::string line(name_of(finding.place.file));
    line += " " + (finding.place.block ? std::to_string(*finding.place.block) : "-") + ":" +
            std::to_string(finding.place.offset) + " " + finding.text;
    lines.push_back(line);
  }
  return lines;
}

void expect_sound(const inspect::Inspection& inspection) {
  EXPECT_EQ(inspection.verdict(), inspect::Verdict::sound);
  EXPECT_THAT(lines_of(inspection, inspect::Severity::damage), testing::IsEmpty());
  EXPECT_THAT(inspection.unavailable, testing::IsEmpty());
}

}  // namespace inspect_test
