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

TEST(Unusual, IsANote) {
  const std::pair<const char*, void (*)()> states[] = {
      {"a live object that no index names", [] { (void)mdb::object_allocate(40); }},
      {"index 5: it is empty",
       [] {
         for (std::uint32_t number = 7; number <= 80; number += 7)
           Pair::erase_node(number);  // nothing has property 3901 any more
       }},
  };
  for (const auto& [note, bring_about] : states) {
    const Pair pair;
    Pair::open_mdb();
    bring_about();
    mdb_test::close_mdb();
    const inspect::Inspection inspection = Pair::inspect();
    expect_sound(inspection);
    EXPECT_THAT(lines_of(inspection, Severity::note), Contains(HasSubstr(note)));
  }
}

}  // namespace
}  // namespace inspect_test
