// What orderly and interrupted runs leave: nothing of it is damage, and what is unusual is noted.

#include "damage.h"
#include "metadb/objects/objects.h"

namespace inspect_test {
namespace {

using inspect::Severity;
using testing::Contains;
using testing::HasSubstr;

TEST(SoundPair, HasNoFindingsAndItsFactsAndIsNotTouched) {
  Pair pair;
  pair.sim.clear_events();
  const inspect::Inspection inspection = pair.inspect();
  expect_sound(inspection);
  EXPECT_THAT(lines_of(inspection, Severity::note), testing::IsEmpty());
  using simulation::Operation;
  for (const Operation operation :
       {Operation::write, Operation::sync, Operation::map, Operation::create, Operation::remove})
    EXPECT_EQ(pair.sim.count(operation), 0U);

  EXPECT_EQ(inspection.tsdb->series_count, 4U);
  EXPECT_EQ(inspection.tsdb->level_count, 13U);  // the first one costs its blocks twice
  EXPECT_EQ(inspection.tsdb->chains[0][0].block_count, 2U);
  EXPECT_EQ(inspection.tsdb->chains[3][*inspection.tsdb->newest_set[3]].timestamp, 4U);
  EXPECT_EQ(inspection.mdb->indexes[1].entry_count, node_count);
  EXPECT_EQ(inspection.mdb->indexes[2].entry_count, node_count / 3);
  EXPECT_EQ(inspection.mdb->indexes[3].entry_count, node_count / 2);
  EXPECT_GE(inspection.mdb->indexes[0].leaf_count, 3U);
  EXPECT_EQ(inspection.mdb->records_by_type[7], node_count - 1);
  EXPECT_EQ(inspection.mdb->class_counts[4], root_count);
  EXPECT_EQ(inspection.journal->replayed_transactions, 0U);
}

TEST(SoundPair, MayHaveTreesOfSeveralLevels) {
  Pair pair({.nodes = 1'600, .map_blocks = 4});
  expect_sound(pair.inspect());
  pair.open_mdb();
  // From the middle outwards, so that leaves and nodes in the middle of the trees go.
  for (std::uint32_t number = 500; number < 1'200; number += 2)
    pair.erase_node(number);
  pair.close_mdb();
  const inspect::Inspection inspection = pair.inspect();
  expect_sound(inspection);
  EXPECT_GT(inspection.mdb->class_counts[5], 1U);
  EXPECT_EQ(inspection.mdb->indexes[0].entry_count, 1'250U);
}

TEST(NewPair, WithoutIndexRootsIsSound) {
  Pair pair({.nodes = 0});
  const inspect::Inspection inspection = pair.inspect();
  expect_sound(inspection);
  EXPECT_THAT(lines_of(inspection, Severity::note), testing::SizeIs(root_count));
  EXPECT_THAT(lines_of(inspection, Severity::note), testing::Each(HasSubstr("its root is not made yet")));
}

void lengthen(Pair& pair, const char* name) {
  pair.change(name, [](FileBytes& file) { file.resize(file.size() + 100); });
}

// Puts a node without keys between the root of an index and its one leaf.
void add_level(Pair& pair, bool with_child) {
  const std::uint32_t number = pair.shape.data_first() + 50;
  const std::uint64_t root = pair.root(5), node = std::uint64_t{number} * block_size;
  const std::uint32_t leaf = word(pair.file("main.odb"), root + 8);
  pair.change("main.odb", [&](FileBytes& file) {
    write_all(
        file,
        {{pair.class_byte(number), 5, 1}, {node, bytes::magic("RINT")}, {node + 8, with_child ? leaf : 0}});
    if (with_child) {
      set_word(file, root + 8, number);
    } else {
      write_all(file, {{root + 4, 1}, {root + 12, 0xFFFF}, {root + 20, number}});
    }
  });
}

TEST(Unusual, IsANote) {
  const std::pair<const char*, std::function<void(Pair&)>> states[] = {
      {"a live object that no index names",
       [](Pair& pair) {
         pair.open_mdb();
         (void)mdb::object_allocate(40);
         pair.close_mdb();
       }},
      {"index 5: it is empty",
       [](Pair& pair) {
         pair.open_mdb();
         for (std::uint32_t number = 7; number <= node_count; number += 7)
           pair.erase_node(number);  // nothing has property 3901 any more
         pair.close_mdb();
       }},
      {"index 5: a node without keys", [](Pair& pair) { add_level(pair, true); }},
      {"index 5: a node without keys and child", [](Pair& pair) { add_level(pair, false); }},
      {"belongs to no time series",
       [](Pair& pair) {
         pair.change("main.tsdb", [&](FileBytes& file) { set_word(file, pair.entry(3, 2), 0); });
       }},
      {"was raised ahead of its next commit",
       [](Pair& pair) {
         // The set after the newest, in the state in which another chain's commit writes it.
         const std::uint32_t newest = pair.newest_set(1);
         pair.change("main.tsdb", [&](FileBytes& file) {
           set_word(file, Pair::table_entry(1, (newest + 1) % tsdb_sets) + 4,
                    word(file, Pair::table_entry(1, newest) + 4));
         });
       }},
      {"a run that was being added and was not written",
       [](Pair& pair) {
         const std::uint64_t changing = pair.chain(1, (pair.newest_set(1) + 1) % tsdb_sets);
         pair.change("main.tsdb", [&](FileBytes& file) { set_word(file, changing + 4, 127); });
       }},
      {"growth was interrupted", [](Pair& pair) { lengthen(pair, "main.odb"); }},
      {"growth was interrupted", [](Pair& pair) { lengthen(pair, "main.tsdb"); }},
  };
  for (const auto& [note, bring_about] : states) {
    SCOPED_TRACE(note);
    Pair pair;
    bring_about(pair);
    const inspect::Inspection inspection = pair.inspect();
    expect_sound(inspection);
    EXPECT_THAT(lines_of(inspection, Severity::note), Contains(HasSubstr(note)));
  }
}

}  // namespace
}  // namespace inspect_test
