#include "timeseries/block_map.h"

#include <algorithm>

#include "tsdb_fixture.h"

namespace tsdb_test {

TEST(BlockMapTest, TakesAFreeRunWhereverThereIsOneAndAlwaysTheSame) {
  std::uint64_t places = 0;
  for (std::uint32_t seed = 1; seed <= 60; ++seed) {
    SCOPED_TRACE(seed);
    Random random(seed);
    std::vector<bool> used(2 + below(random, 3000));
    const auto total = [&] { return static_cast<std::uint32_t>(used.size()); };
    tsdb::init_block_map(total());
    for (std::uint32_t step = 0; step < 400; ++step) {
      SCOPED_TRACE(step);
      const std::uint32_t what = below(random, 100);
      const std::uint32_t count = below(random, 2 + below(random, 1u << below(random, 11)));
      if (what < 50) {
        const std::uint32_t first = tsdb::allocate_blocks(count);
        const bool has_room =
            count != 0 && std::search_n(used.begin() + 1, used.end(), count, false) != used.end();
        ASSERT_EQ(first != 0, has_room);
        places = places * 31 + first;
        for (std::uint32_t b = first; has_room && b < first + count; ++b) {
          ASSERT_FALSE(used.at(b)) << b;
          used[b] = true;
        }
      } else if (what < 97) {
        const bool state = below(random, 4) == 0;
        const std::uint32_t first = below(random, total());
        for (std::uint32_t b = first; b < std::min(total(), first + count); ++b) {
          tsdb::set_block_state(b, state);
          used[b] = state;
        }
      } else {
        used.resize(used.size() + below(random, 200));
        tsdb::resize_block_map(total());
      }
      ASSERT_LE(*std::ranges::max_element(tsdb::free_hints()), total());
    }
    ASSERT_EQ(tsdb::total_blocks(), total());
    for (std::uint32_t b = 0; b < total(); ++b)
      ASSERT_EQ(tsdb::block_in_use(b), used[b]) << b;
  }
  EXPECT_EQ(places, 5'241'719'654'593'337'338u) << "where an entry goes is part of what a database holds";
}

TEST(BlockMapTest, NothingOutsideTheMapOrInUseIsTaken) {
  EXPECT_EQ(tsdb::init_block_map(1), 32u);
  EXPECT_EQ(tsdb::allocate_blocks(1), 0u);
  EXPECT_EQ(tsdb::init_block_map(200), 224u);
  EXPECT_EQ(tsdb::resize_block_map(48), 64u);
  tsdb::mark_allocated(45, 3);
  expect_refusals({{"internal: 9 blocks at block 40 do not lie in the block map of 48 blocks",
                    [] { tsdb::mark_allocated(40, 9); }},
                   {"dcalloc: Block 40 doubly allocated", [] { tsdb::mark_allocated(40, 6); }},
                   {"unref_used: Referenced block deallocated", [] { tsdb::resize_block_map(32); }}});
  EXPECT_EQ(tsdb::allocate_blocks(45), 0u);
  EXPECT_EQ(tsdb::allocate_blocks(44), 1u);
  tsdb::forget_block_map();
}

}  // namespace tsdb_test
