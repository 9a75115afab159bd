// Nodes: the stored form byte for byte, what damaged records do, and random work on nodes, which the data
// blocks and all indexes below them follow.

#include <gmock/gmock.h>

#include "mdb_fixture.h"
#include "nodemodel/node_lookup.h"
#include "nodemodel/node_store.h"
#include "nodemodel/node_types.h"
#include "nodemodel/record_reader.h"
#include "nodemodel/serialization_cache.h"
#include "server.h"

namespace mdb_test {
namespace {

using mdb::PropertyBool;
using mdb::PropertyNodeId;
using mdb::PropertyString;
using testing::HasSubstr;
using Number = mdb::PropertySomething32<unsigned, 1>;
using CheckId = mdb::PropertySomething32<unsigned, 8>;
using NodeType = mdb::PropertyEnum<dbcache::node_type_t>;

// Puts a record of these properties into the cache.
template <typename... Properties>
void serialize(const Properties&... properties) {
  mdb::clear_cache();
  (mdb::add_property(properties), ...);
}
template <typename... Properties>
ObjectReference store_node(ObjectReference reference, const Properties&... properties) {
  serialize(properties...);
  return mdb::node_store(reference);
}

PropertyNodeId own_id(std::uint32_t number) {
  return PropertyNodeId(0, {0, number});
}
PropertyNodeId parent(std::uint32_t number) {
  return PropertyNodeId(2, {0, number});
}

std::vector<std::uint32_t> words_of_cache() {
  std::vector<std::uint32_t> words(mdb::cache_bytes().size() / 4);
  for (std::size_t i = 0; i < words.size(); ++i)
    words[i] = bytes::load_u32(mdb::cache_bytes(), 4 * i);
  return words;
}

TEST(SerializationCache, WritesEveryKindOfEntryIntoExactlyOneBlock) {
  IndexMdb database(8192);
  PropertyString marked(51, std::string("admin\0cut", 9));
  marked.mark = 4;
  serialize(PropertyNodeId(0, {1, 6}), NodeType(3, dbcache::node_type_t::user), marked,
            PropertyBool(902, true), CheckId(2601, 77), Number(1, 9), Number(1, 10));
  // A node ID, a type, "admin" with a mark, a flag, a check ID, and the first of two numbers of an ID.
  const std::vector<std::uint32_t> expected = {
      0,           24, 4,   1,  6, 0,           3,    16, 5, 2,  51, 24, 0x8000'0003, 0x6164'6D69,
      0x6E00'0000, 0,  902, 16, 6, 0x0100'0000, 2601, 16, 9, 77, 1,  16, 1,           9};
  EXPECT_EQ(words_of_cache(), expected);
  // Padding keeps what the buffer held.
  serialize(PropertyString(1, "ABCDEFGHIJKLMNOPQRS"));
  serialize(PropertyString(1, "ab"));
  EXPECT_EQ(words_of_cache().back(), 0x61620044U);
  for (const auto& [length, entry] : {std::pair{3u, 16u}, {4u, 24u}, {8179u, 8192u}}) {
    serialize(PropertyString(51, std::string(length, 'x')));
    EXPECT_EQ(mdb::cache_length(), entry);
  }
  EXPECT_EQ(thrown_by([] { serialize(Number(9, 1), PropertyString(51, std::string(8164, 'x'))); }),
            "bigobj: No space in serialization cache for property 51");
  database.reopen();
  EXPECT_TRUE(mdb::cache_bytes().empty() && mdb::raw_access_buffer().empty());
}

TEST(RecordReader, GivesBackWhatWasStoredAndNamesWhatDoesNotFit) {
  IndexMdb database;
  PropertyString name(51, "abcdefg"), text;
  name.mark = 1;
  Number number;
  const ObjectReference reference = store_node({}, Number(9, 77), name);
  const auto read = [&] {
    const mdb::ObjectHandle object = mdb::object_load(reference);
    mdb::RecordReader reader(object);
    reader.next()->read_into(number);
    reader.next()->read_into(text);
    EXPECT_FALSE(reader.next());
  };
  read();
  EXPECT_EQ(std::tuple(number.id(), number.value(), number.mark), std::tuple(9u, 77u, 0));
  EXPECT_EQ(std::tuple(text.id(), text.value(), text.mark), std::tuple(51u, "abcdefg", 1));

  const std::uint32_t second = reference.offset + 4 + 16;
  const std::string place = text::concat(" at offset ", second, " in block ", reference.block);
  for (const std::uint32_t length : {0u, 11u, 25u, 0xFFFF'FFF8u}) {
    set_word(reference.block, second + 4, length);
    EXPECT_THAT(thrown_by(read),
                HasSubstr(text::concat(" has length ", length, " with 24 bytes left in its object")));
    EXPECT_EQ(thrown_by([&] { mdb::node_erase(reference); }), thrown_by(read));
  }
  set_word(reference.block, second + 4, 19);
  EXPECT_EQ(thrown_by(read), "need_repair: Value of property 51 crosses the end of its entry" + place);
}

TEST(NodeStore, FailsWholeForAMissingIndexOrATakenId) {
  IndexMdb database;
  const ObjectReference node = store_node({}, own_id(6), parent(1), Number(9, 1));
  const auto expect_no_index = [&](const auto&... properties) {
    const std::string words = "internal: Attempt to insert in non-unique non-existant index";
    expect_refusal([&] { store_node(node, own_id(6), properties...); }, words);
    EXPECT_EQ(thrown_by([&] { store_node({}, own_id(7), properties...); }), words);
    EXPECT_EQ(mdb::node_find({0, 7}), std::nullopt);
  };
  for (const std::uint32_t id : {59u, 3800u, 3901u})
    expect_no_index(parent(1), PropertyNodeId(id, {0, 3}));
  expect_no_index(parent(2), PropertyBool(502, true));
  EXPECT_THROW(store_node({}, own_id(6), Number(9, 1)), mdb::error_index_conflict);
}

class NodeModel : public testing::TestWithParam<std::uint64_t> {};

TEST_P(NodeModel, StoresWhatTheRecordSays) {
  support::Server server({.map_blocks = 8, .index_count = 6}, GetParam());
  for (int step = 1; step <= 400; ++step) {
    take_some_step(server);
    if (step % 20 != 0)
      continue;
    server.read_all();
    EXPECT_EQ(support::expect_sound().mdb->unnamed_object_count, 0U);
  }
  for (const auto& [id, node] : support::Server::stored())
    support::store_as_in({}, id, id);
  const auto classes = support::expect_sound().mdb->class_counts;
  EXPECT_EQ(classes[std::size_t(BlockClass::used)] + classes[std::size_t(BlockClass::full)], 0U);
}

INSTANTIATE_TEST_SUITE_P(Seeds, NodeModel, testing::Range<std::uint64_t>(1, 5));

}  // namespace
}  // namespace mdb_test
