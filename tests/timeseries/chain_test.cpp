// Chains: the search for free entries, and growth.

#include "timeseries/chain.h"

#include <algorithm>

#include "timeseries/entry_search.h"
#include "timeseries/growth.h"
#include "tsdb_fixture.h"

namespace tsdb_test {

using Words = std::vector<std::uint32_t>;

using ChainTest = TsdbTest;

Words first_words(const tsdb::Chain& chain) {
  Words words;
  for (const tsdb::Run& run : chain.runs()) {
    for (std::uint64_t k = 0; k < run.capacity(); ++k)
      words.push_back(run.word(k, 0));
  }
  return words;
}

// Stores and frees at random over runs of any layout, against a plain vector.
TEST_F(ChainTest, TheLowestFreeEntryIsFoundAfterAnyHistory) {
  for (std::uint32_t seed = 1; seed <= 80; ++seed) {
    SCOPED_TRACE(seed);
    Random random(seed);
    make_database(64, 1, 0);
    tsdb::Chain& chain = current_chain(tsdb::chain_traits[seed % 4].kind);
    for (std::uint32_t run_count = 1 + below(random, 4); run_count > 0; --run_count)
      chain.append(chain.make_run(10 * run_count, 1 + below(random, 4)));
    Words model = first_words(chain);
    for (std::uint32_t step = 0; step < 400; ++step) {
      if (below(random, 5) != 0) {
        const auto free = static_cast<std::size_t>(std::ranges::find(model, 0u) - model.begin());
        ASSERT_EQ(tsdb::find_free_entry(chain).value_or(model.size()), free);
        if (free < model.size())
          tsdb::set_chain_pointer(chain, static_cast<std::uint32_t>(free), model[free] = step + 1);
      } else {
        const std::uint32_t entry = below(random, model.size());
        tsdb::set_chain_pointer(chain, entry, model[entry] = 0);
      }
      ASSERT_EQ(first_words(chain), model) << "step " << step;
    }
  }
}

TEST_F(ChainTest, NothingBeyondAChainOrRunIsStored) {
  make_database(64, 2, 61);
  tsdb::Chain& chain = tsdb::chain_of(ChainKind::head, 1);
  EXPECT_EQ(tsdb::chain_pointer_count(chain), 120u);
  expect_error<tsdb::error_internal>("Pointer for lblock 120 does not exist in chain 1",
                                     [&] { tsdb::set_chain_pointer(chain, 120, 1); });
  expect_error<tsdb::error_internal>("Pointer 120 does not exist in the run of 2 blocks at block 13",
                                     [&] { tsdb::set_chain_pointer(chain.last_run(), 120, 1); });
  EXPECT_FALSE(chain.dirty());
}

TEST_F(ChainTest, TheDatabaseGrowsByTenPerCentOrByWhatIsWantedOrByWhatThereIs) {
  make_database(1280, 1, 1);
  tsdb::grow_tsdb(7);
  EXPECT_EQ(tsdb::total_blocks(), 1400u);
  tsdb::grow_tsdb(141);
  EXPECT_EQ(sim.contents(path).size(), 1541u * 256);
  sim.set_free_bytes(0);
  tsdb::Chain& chain = tsdb::chain_of(ChainKind::check, 0);
  expect_error<tsdb::error_dbnospace>("Unable to allocate 2000 blocks even after attempted database growth!",
                                      [&] { tsdb::grow_chain(chain, 2000); });
  EXPECT_FALSE(chain.dirty());
  EXPECT_THAT(support::LogCapture::take(),
              ElementsAre("2 2 Growing TSDB with 120 blocks", "2 2 Growing TSDB with 141 blocks",
                          "4 2 Wanted to grow TSDB with 2000 blocks, but only 0 blocks are available"));
  sim.set_free_bytes(3 * 256 / 2);
  EXPECT_THROW(tsdb::grow_tsdb(500), tsdb::error_read);  // three half-blocks, counted as blocks
  EXPECT_EQ(tsdb::btb_block_count(), 1542u);
  EXPECT_EQ(tsdb::total_blocks(), 1541u);
}

TEST_F(ChainTest, AChainGrowsByARunThatIsWrittenAtOnceWhileItsLinkWaits) {
  make_database(64, 1, 0);
  tsdb::create_tail_chain(0, 61);
  tsdb::Chain& chain = tsdb::chain_of(ChainKind::tail, 0);
  tsdb::grow_chain(chain, 3);
  tsdb::write_header();
  tsdb::sync_writes();
  EXPECT_EQ(bytes::load_u32(sim.contents(path), 5 * 256 + 12), 2u);
  EXPECT_THAT(committed(ChainKind::tail).blocks, ElementsAre(1, 2));
  tsdb::write_runs(chain);
  tsdb::sync_writes();
  EXPECT_FALSE(chain.dirty());
  EXPECT_THAT(committed(ChainKind::tail).blocks, ElementsAre(1, 2, 3, 4, 5));
}

}  // namespace tsdb_test
