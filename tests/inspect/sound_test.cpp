// What orderly and interrupted runs leave: nothing of it is damage, and what is unusual is noted.

#include "metadb/objects/objects.h"
#include "pair_fixture.h"

namespace inspect_test {
namespace {

using simulation::Operation;
using testing::Contains;
using testing::IsEmpty;
using testing::SizeIs;

TEST(SoundPair, HasNoFindingsAndIsNotTouched) {
  Pair pair;
  pair.sim.clear_events();
  const inspect::Inspection inspection = Pair::inspect();
  expect_sound(inspection);
  EXPECT_THAT(lines_of(inspection, Severity::note), IsEmpty());
  for (const Operation operation :
       {Operation::write, Operation::sync, Operation::map, Operation::create, Operation::remove})
    EXPECT_EQ(pair.sim.count(operation), 0U);
  EXPECT_EQ(inspection.tsdb->level_count, 13U);  // the first one costs its blocks twice
  EXPECT_EQ(inspection.mdb->indexes[3].entry_count, 40U);
  EXPECT_GE(inspection.mdb->indexes[0].leaf_count, 3U);
}

TEST(SoundPair, MayHaveTreesOfSeveralLevels) {
  Pair pair({.nodes = 1'600, .map_blocks = 4});
  const inspect::IndexFacts tree = Pair::inspect().mdb->indexes[0];
  ASSERT_EQ(tree.nodes.back().depth, 2U);
  // In the page each of its boxes stands over its leaves.
  const std::string page = run({"--report", "-", "/db"}).out;
  EXPECT_THAT(page, HasSubstr(text::concat("\"trees\":[[[[0,", tree.leaf_count, ",1,",
                                           tree.nodes.front().key_count, ",")));
  EXPECT_THAT(page, HasSubstr("\"nodes\":{\"node_count\":1600,\"shown\":[[0,"));
  Pair::open_mdb();
  // From the middle outwards, so that leaves and nodes in the middle of the trees go.
  for (std::uint32_t number = 500; number < 1'200; number += 2)
    Pair::erase_node(number);
  mdb_test::close_mdb();
  expect_sound(Pair::inspect());
  EXPECT_EQ(Pair::inspect().mdb->indexes[0].entry_count, 1'250U);
}

TEST(NewPair, WithoutIndexRootsIsSound) {
  const Pair pair({.nodes = 0});
  const inspect::Inspection inspection = Pair::inspect();
  expect_sound(inspection);
  EXPECT_THAT(lines_of(inspection, Severity::note),
              AllOf(SizeIs(root_count), Each(HasSubstr("its root is not made yet"))));
}

void lengthen(FileBytes& file) {
  file.resize(file.size() + 100);
}

// Puts a node without keys between the root of an index and its one leaf, or beside that.
void add_level(Pair& pair, bool with_child) {
  constexpr std::uint32_t number = some_data / block_size;
  const std::uint64_t root = pair.root(5);
  const std::uint32_t leaf = load_u32(pair.file("main.odb"), root + 8);
  pair.change("main.odb", Writes{{pair.class_byte(number), 5, 1},
                                 {some_data, bytes::magic("RINT")},
                                 {some_data + 8, with_child ? leaf : 0}});
  pair.change("main.odb", with_child ? Writes{{root + 8, number}}
                                     : Writes{{root + 4, 1}, {root + 12, 0xFFFF}, {root + 20, number}});
}

TEST(Unusual, IsANote) {
  // The set of tail chains that changes next.
  const auto changing = [](Pair&) { return (Pair::newest_set(1) + 1) % tsdb_sets; };
  const std::pair<const char*, std::function<void(Pair&)>> states[] = {
      {"a live object that no index names",
       [](Pair&) {
         Pair::open_mdb();
         (void)mdb::object_allocate(40);
         mdb_test::close_mdb();
       }},
      {"index 5: it is empty",
       [](Pair&) {
         Pair::open_mdb();
         for (std::uint32_t number = 7; number <= 80; number += 7)
           Pair::erase_node(number);  // nothing has property 3901 any more
         mdb_test::close_mdb();
       }},
      {"index 5: a node without keys", [](Pair& pair) { add_level(pair, true); }},
      {"index 5: a node without keys and child", [](Pair& pair) { add_level(pair, false); }},
      {"belongs to no time series",
       [](Pair& pair) {
         pair.change("main.tsdb", Writes{{pair.entry(3, 2), 0}});
       }},
      {"was raised ahead of its next commit",  // as another chain's commit writes it
       [=](Pair& pair) {
         const std::uint64_t now = Pair::table_entry(1, Pair::newest_set(1)) + 4;
         const std::uint32_t time = load_u32(pair.file("main.tsdb"), now);
         pair.change("main.tsdb", Writes{{Pair::table_entry(1, changing(pair)) + 4, time}});
       }},
      {"a run that was being added and was not written",
       [=](Pair& pair) {
         pair.change("main.tsdb", Writes{{pair.chain(1, changing(pair)) + 4, 127}});
       }},
      {"growth was interrupted", [](Pair& pair) { pair.change("main.odb", lengthen); }},
      {"growth was interrupted", [](Pair& pair) { pair.change("main.tsdb", lengthen); }},
  };
  for (const auto& [note, bring_about] : states) {
    SCOPED_TRACE(note);
    Pair pair;
    bring_about(pair);
    const inspect::Inspection inspection = Pair::inspect();
    expect_sound(inspection);
    EXPECT_THAT(lines_of(inspection, Severity::note), Contains(HasSubstr(note)));
  }
}

}  // namespace
}  // namespace inspect_test
