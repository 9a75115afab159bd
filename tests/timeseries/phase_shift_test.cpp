#include "timeseries/phase_shift.h"

#include "timeseries/meters.h"
#include "tsdb_fixture.h"

namespace tsdb_test {

class PhaseShiftTest : public TsdbTest {
 protected:
  static void change_all_kinds(std::uint32_t value) {
    for (const tsdb::ChainTraits& traits : tsdb::chain_traits)
      tsdb::set_chain_pointer(current_chain(traits.kind), 2, value);
  }
  std::uint32_t committed_pointer(ChainKind kind) const { return committed(kind).used[2][0]; }

  // Its writes ("w" and the block) and flushes ("s").
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
};

TEST_F(PhaseShiftTest, ASyncWritesCommitsAndFlushesInOrder) {
  make_database(64, 3, 1);
  const std::uint64_t shifts_before = tsdb::phase_shifts().value();
  const std::uint64_t timings_before = tsdb::phase_shift_time().count();
  EXPECT_EQ(sync(), "");
  EXPECT_THAT(support::LogCapture::take(), ElementsAre("2 4 Phase shift of all chains avoided"));
  EXPECT_EQ(tsdb::phase_shifts().value(), shifts_before);
  tsdb::set_current(ChainKind::head, 2);
  change_all_kinds(5);
  EXPECT_EQ(sync(), "w3 w9 w2 w4 s w0 s w0 w0 s w0 s ");
  EXPECT_THAT(support::LogCapture::take(),
              ElementsAre("2 4 Phase shift from LBlock chain 0 to chain 1 complete!",
                          "2 4 Phase shift from Head chain 2 to chain 0 complete!",
                          "2 4 Phase shift from Tail chain 0 to chain 1 complete!",
                          "2 4 Phase shift from Check chain 0 to chain 1 complete!"));
  EXPECT_EQ(tsdb::committed_head_set(), 2u);
  EXPECT_EQ(tsdb::phase_shifts().value(), shifts_before + 1);
  EXPECT_EQ(tsdb::phase_shift_time().count(), timings_before + 1);
}

TEST_F(PhaseShiftTest, OnlyTheChangedKindMovesAndAShiftedKindStaysInEverySync) {
  make_database(64, 3, 1);
  tsdb::set_chain_pointer(current_chain(ChainKind::tail), 0, 1);
  for (const char* operations : {"w2 s w0 s ", "w6 s w0 s ", "w10 s w0 s ", "w2 s w0 s "})
    EXPECT_EQ(sync(), operations);
  EXPECT_EQ(committed(ChainKind::tail).timestamp, 4u);
}

TEST_F(PhaseShiftTest, ACommitRaisesTheTimestampAndAShiftTakesItButNeitherBlockNorCrc) {
  constexpr void (*shifts[])() = {tsdb::phase_shift_head, tsdb::phase_shift_tail, tsdb::phase_shift_lblock,
                                  tsdb::phase_shift_check};
  make_database(64, 2, 1);
  for (const tsdb::ChainTraits& traits : tsdb::chain_traits) {
    tsdb::set_chain_table_entry(traits.kind, 0, 0xFFFF'FFFF, 99);
    tsdb::commit_chain(current_chain(traits.kind));
    tsdb::sync_writes();
    EXPECT_EQ(committed(traits.kind).timestamp, std::uint64_t{1} << 32);
    EXPECT_THAT(committed(traits.kind).blocks, ElementsAre(1 + tsdb::kind_index(traits.kind)));
    tsdb::ChainTableEntry expected = tsdb::chain_table_entry(traits.kind, 1);
    expected.timestamp = std::uint64_t{1} << 32;
    shifts[tsdb::kind_index(traits.kind)]();
    EXPECT_EQ(tsdb::chain_table_entry(traits.kind, 1), expected);
    EXPECT_EQ(tsdb::current_set(traits.kind), 1u);
  }
}

// In one of the writes and flushes of a sync, or from there on until the power goes.
TEST_F(PhaseShiftTest, AFailureDuringASyncLeavesEachChainOldOrNewAndIsMadeUpForByTheNext) {
  for (std::uint64_t run = 0; run < 240; ++run) {
    SCOPED_TRACE(run);
    const bool lasting = run >= 12;
    make_database(64, 3, 1, simulation::sector_size);
    change_all_kinds(1);
    tsdb::sync_chains();
    change_all_kinds(2);
    sim.inject({.path_end = "main.tsdb", .occurrence = 1 + run % 12, .lasting = lasting});
    EXPECT_THROW(tsdb::sync_chains(), tsdb::error_io);
    if (lasting)
      sim.power_cut({.kept = simulation::Kept::random_sectors, .seed = run});
    sim.clear_faults();
    for (const tsdb::ChainTraits& traits : tsdb::chain_traits)
      EXPECT_THAT(committed_pointer(traits.kind), testing::AnyOf(1u, 2u));
    if (lasting)
      continue;  // the file is closed
    tsdb::sync_chains();
    for (const tsdb::ChainTraits& traits : tsdb::chain_traits)
      EXPECT_EQ(committed_pointer(traits.kind), 2u);
  }
}

TEST_F(PhaseShiftTest, AKindThatCannotBeCopiedStaysInItsSet) {
  make_database(40, 2, 1);
  tsdb::grow_chain(current_chain(ChainKind::check), 31);
  sim.set_free_bytes(0);
  change_all_kinds(4);
  EXPECT_THROW(tsdb::sync_chains(), tsdb::error_dbnospace);
  EXPECT_EQ(tsdb::current_set(ChainKind::head), 1u);
  EXPECT_EQ(tsdb::current_set(ChainKind::check), 0u);
  EXPECT_EQ(committed_pointer(ChainKind::check), 4u);
}

}  // namespace tsdb_test
