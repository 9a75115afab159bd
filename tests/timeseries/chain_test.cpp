// Chains: how they and the database grow, and what a sync does to them.

#include "timeseries/chain.h"

#include "timeseries/growth.h"
#include "timeseries/meters.h"
#include "timeseries/phase_shift.h"
#include "tsdb_fixture.h"

namespace tsdb_test {

class ChainTest : public TsdbTest {
 protected:
  // The writes of a sync ("w" and the block) and its flushes ("s").
  std::string sync() {
    sim.clear_events();
    tsdb::sync_chains();
    std::string found;
    for (const simulation::Event& event : sim.events()) {
      if (event.operation == Operation::write)
        found += text::concat("w", event.position / tsdb::btb_block_size(), " ");
      if (event.operation == Operation::sync)
        found += "s ";
    }
    return found;
  }

  static void change_all_kinds() {
    for (const tsdb::ChainTraits& traits : tsdb::chain_traits)
      tsdb::set_chain_pointer(current_chain(traits.kind), 2, 5);
  }
};

TEST_F(ChainTest, EachKindGetsBlocksForItsEntries) {
  make_database(64, 1, 0);
  tsdb::create_head_chain(0, 61);
  tsdb::create_tail_chain(0, 61);
  tsdb::create_lblock_chain(0, 15);
  tsdb::create_check_chain(0, 31);
  tsdb::write_header();
  tsdb::sync_writes();
  EXPECT_THAT(committed(ChainKind::head).blocks, ElementsAre(1, 2));
  EXPECT_THAT(committed(ChainKind::tail).blocks, ElementsAre(3, 4));
  EXPECT_THAT(committed(ChainKind::lblock).blocks, ElementsAre(5));
  EXPECT_THAT(committed(ChainKind::check).blocks, ElementsAre(6, 7));
}

TEST_F(ChainTest, TheDatabaseGrowsByTenPerCentOrByWhatIsWantedOrByWhatThereIs) {
  make_database(1280, 1, 1);
  tsdb::grow_tsdb(7);
  EXPECT_EQ(tsdb::total_blocks(), 1400u);
  tsdb::grow_tsdb(141);
  EXPECT_EQ(sim.contents(path).size(), 1541u * 256);
  sim.set_free_bytes(0);
  tsdb::Chain& chain = tsdb::chain_of(ChainKind::check, 0);
  expect_refusals({{"dbnospace: Unable to allocate 2000 blocks even after attempted database growth!",
                    [&] { tsdb::grow_chain(chain, 2000); }}});
  EXPECT_FALSE(chain.dirty());
  EXPECT_THAT(LogCapture::take(),
              ElementsAre("2 2 Growing TSDB with 120 blocks", "2 2 Growing TSDB with 141 blocks",
                          "4 2 Wanted to grow TSDB with 2000 blocks, but only 0 blocks are available"));
  sim.set_free_bytes(3 * 256 / 2);
  EXPECT_THROW(tsdb::grow_tsdb(500), tsdb::error_read);  // three half-blocks, counted as blocks
  EXPECT_EQ(tsdb::btb_block_count(), 1542u);
  EXPECT_EQ(tsdb::total_blocks(), 1541u);
}

TEST_F(ChainTest, ASyncWritesCommitsAndFlushesInOrder) {
  make_database(64, 3, 1);
  const std::uint64_t shifts_before = tsdb::phase_shifts().value();
  const std::uint64_t timings_before = tsdb::phase_shift_time().count();
  EXPECT_EQ(sync(), "");
  EXPECT_THAT(LogCapture::take(), ElementsAre("2 4 Phase shift of all chains avoided"));
  tsdb::set_current(ChainKind::head, 2);
  change_all_kinds();
  EXPECT_EQ(sync(), "w3 w9 w2 w4 s w0 s w0 w0 s w0 s ");
  EXPECT_THAT(LogCapture::take(), ElementsAre("2 4 Phase shift from LBlock chain 0 to chain 1 complete!",
                                              "2 4 Phase shift from Head chain 2 to chain 0 complete!",
                                              "2 4 Phase shift from Tail chain 0 to chain 1 complete!",
                                              "2 4 Phase shift from Check chain 0 to chain 1 complete!"));
  EXPECT_EQ(tsdb::committed_head_set(), 2u);
  EXPECT_EQ(tsdb::phase_shifts().value(), shifts_before + 1);
  EXPECT_EQ(tsdb::phase_shift_time().count(), timings_before + 1);
}

TEST_F(ChainTest, OnlyTheChangedKindMovesAndAShiftedKindStaysInEverySync) {
  make_database(64, 3, 1);
  tsdb::set_chain_pointer(current_chain(ChainKind::tail), 0, 1);
  for (const char* operations : {"w2 s w0 s ", "w6 s w0 s ", "w10 s w0 s ", "w2 s w0 s "})
    EXPECT_EQ(sync(), operations);
}

TEST_F(ChainTest, ACommitRaisesTheTimestampAndAShiftTakesItButNeitherBlockNorCrc) {
  constexpr void (*shifts[])() = {tsdb::phase_shift_head, tsdb::phase_shift_tail, tsdb::phase_shift_lblock,
                                  tsdb::phase_shift_check};
  make_database(64, 2, 1);
  for (const tsdb::ChainTraits& traits : tsdb::chain_traits) {
    tsdb::set_chain_table_entry(traits.kind, 0, 0xFFFF'FFFF, 99);
    tsdb::commit_chain(current_chain(traits.kind));
    tsdb::sync_writes();
    tsdb::ChainTableEntry expected = tsdb::chain_table_entry(traits.kind, 1);
    expected.timestamp = std::uint64_t{1} << 32;
    EXPECT_EQ(committed(traits.kind).timestamp, expected.timestamp);
    EXPECT_THAT(committed(traits.kind).blocks, ElementsAre(1 + tsdb::kind_index(traits.kind)));
    shifts[tsdb::kind_index(traits.kind)]();
    EXPECT_EQ(tsdb::chain_table_entry(traits.kind, 1), expected);
    EXPECT_EQ(tsdb::current_set(traits.kind), 1u);
  }
}

TEST_F(ChainTest, WhatHasNoPlaceIsRefused) {
  make_database(64, 2, 61);
  tsdb::Chain& chain = tsdb::chain_of(ChainKind::head, 1);
  EXPECT_EQ(tsdb::chain_pointer_count(chain), 120u);
  expect_refusals({{"internal: Pointer for lblock 120 does not exist in chain 1",
                    [&] { tsdb::set_chain_pointer(chain, 120, 1); }},
                   {"internal: Pointer 120 does not exist in the run of 2 blocks at block 13",
                    [&] { tsdb::set_chain_pointer(chain.last_run(), 120, 1); }}});
  EXPECT_FALSE(chain.dirty());
  // A kind that cannot be copied stays in its set.
  make_database(40, 2, 1);
  tsdb::grow_chain(current_chain(ChainKind::check), 31);
  sim.set_free_bytes(0);
  change_all_kinds();
  EXPECT_THROW(tsdb::sync_chains(), tsdb::error_dbnospace);
  EXPECT_EQ(tsdb::current_set(ChainKind::head), 1u);
  EXPECT_EQ(tsdb::current_set(ChainKind::check), 0u);
}

}  // namespace tsdb_test
