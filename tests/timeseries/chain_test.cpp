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
  const auto meters = [] {
    return std::pair(tsdb::phase_shifts().value(), tsdb::phase_shift_time().count());
  };
  const auto [shifts, timings] = meters();
  EXPECT_EQ(sync(), "");
  EXPECT_THAT(LogCapture::take(), ElementsAre("2 4 Phase shift of all chains avoided"));
  tsdb::set_current(ChainKind::head, 2);
  change_all_kinds();
  EXPECT_EQ(sync(), "w3 w9 w2 w4 s w0 s w0 w0 s w0 s ");
  EXPECT_EQ(LogCapture::take()[1], "2 4 Phase shift from Head chain 2 to chain 0 complete!");
  EXPECT_EQ(tsdb::committed_head_set(), 2u);
  EXPECT_EQ(meters(), std::pair(shifts + 1, timings + 1));
  // A kind that has changed moves alone, and stays in every sync.
  make_database(64, 3, 1);
  tsdb::set_chain_pointer(current_chain(ChainKind::tail).last_run(), 0, 1);
  for (const char* operations : {"w2 s w0 s ", "w6 s w0 s ", "w10 s w0 s ", "w2 s w0 s "})
    EXPECT_EQ(sync(), operations);
}

TEST_F(ChainTest, ACommitRaisesTheTimestampAndAShiftTakesItButNeitherBlockNorCrc) {
  constexpr struct {
    std::uint32_t capacity_of_a_block;
    void (*create)(std::uint32_t, std::uint32_t);
    void (*shift)();
  } kinds[] = {{60, tsdb::create_head_chain, tsdb::phase_shift_head},
               {60, tsdb::create_tail_chain, tsdb::phase_shift_tail},
               {15, tsdb::create_lblock_chain, tsdb::phase_shift_lblock},
               {30, tsdb::create_check_chain, tsdb::phase_shift_check}};
  make_database(64, 2, 0);
  for (std::uint32_t i = 0; i < 4; ++i) {
    const ChainKind kind = tsdb::chain_traits[i].kind;
    const std::uint32_t block = 1 + 3 * i;
    kinds[i].create(0, kinds[i].capacity_of_a_block);
    kinds[i].create(1, kinds[i].capacity_of_a_block + 1);
    tsdb::set_chain_table_entry(kind, 0, 0xFFFF'FFFF, 99);
    tsdb::commit_chain(current_chain(kind));
    tsdb::sync_writes();
    const tsdb::ChainTableEntry before = tsdb::chain_table_entry(kind, 1);
    EXPECT_EQ(committed(sim, kind).timestamp, std::uint64_t{1} << 32);
    EXPECT_THAT(committed(sim, kind).blocks, ElementsAre(block));
    kinds[i].shift();
    EXPECT_EQ(tsdb::chain_table_entry(kind, 1),
              (tsdb::ChainTableEntry{std::uint64_t{1} << 32, block + 1, before.crc}));
    EXPECT_EQ(tsdb::current_set(kind), 1u);
  }
}

TEST_F(ChainTest, AKindThatCannotBeCopiedStaysInItsSet) {
  make_database(40, 2, 1);
  expect_refusals({{"internal: Pointer for lblock 60 does not exist in chain 0",
                    [] { tsdb::set_chain_pointer(current_chain(ChainKind::head), 60, 1); }},
                   {"internal: Pointer 60 does not exist in the run of 1 blocks at block 1",
                    [] { tsdb::set_chain_pointer(current_chain(ChainKind::head).last_run(), 60, 1); }}});
  tsdb::grow_chain(current_chain(ChainKind::check), 31);
  sim.set_free_bytes(0);
  change_all_kinds();
  EXPECT_THROW(tsdb::sync_chains(), tsdb::error_dbnospace);
  EXPECT_EQ(tsdb::current_set(ChainKind::head), 1u);
  EXPECT_EQ(tsdb::current_set(ChainKind::check), 0u);
}

}  // namespace tsdb_test
