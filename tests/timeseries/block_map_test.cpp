#include "timeseries/block_map.h"

#include <algorithm>

#include "tsdb_fixture.h"

namespace tsdb_test {

// The allocation rule taken literally, block by block.
struct ModelMap {
  std::uint32_t allocate(std::uint32_t n) {
    for (std::size_t j = size_class(n); n != 0 && j < hints.size(); ++j) {
      const std::uint32_t hint = hints[j];
      if (!is_valid(hint))
        continue;
      const std::uint32_t end = run_end(hint, n);
      hints[j] = end - hint == n ? end : 0;
      if (end - hint == n)
        return take(hint, n);
    }
    for (std::uint32_t b = 1, end = 0; n != 0 && b < total(); b = std::max(b, end) + 1) {
      end = run_end(b, n);
      const auto classes = hints.begin() + std::min<std::ptrdiff_t>(size_class(end - b), std::ssize(hints));
      std::replace_if(
          hints.begin(), classes, [&](std::uint32_t hint) { return !is_valid(hint); }, b);
      if (end - b == n) {
        std::replace(hints.begin(), classes, b, end);
        return take(b, n);
      }
    }
    return 0;
  }

  std::uint32_t total() const { return static_cast<std::uint32_t>(used.size()); }

  std::vector<bool> used;
  tsdb::FreeHints hints{};

  static std::uint32_t size_class(std::uint32_t n) { return n < 2 ? 0 : 1 + size_class(n / 2); }
  bool is_valid(std::uint32_t hint) const { return hint != 0 && hint < used.size() && !used[hint]; }
  std::uint32_t run_end(std::uint32_t first, std::uint32_t most) const {
    std::uint32_t end = first;
    while (end < used.size() && !used[end] && end - first < most)
      ++end;
    return end;
  }
  std::uint32_t take(std::uint32_t first, std::uint32_t n) {
    std::fill_n(used.begin() + first, n, true);
    return first;
  }
};

TEST(BlockMapTest, AllocatesLikeTheLiteralRule) {
  for (std::uint32_t seed = 1; seed <= 60; ++seed) {
    SCOPED_TRACE(seed);
    Random random(seed);
    ModelMap model{std::vector<bool>(2 + below(random, 3000))};
    tsdb::init_block_map(model.total());
    for (std::uint32_t step = 0; step < 400; ++step) {
      const std::uint32_t what = below(random, 100);
      const std::uint32_t count = below(random, 2 + below(random, 1u << below(random, 11)));
      if (what < 50) {
        ASSERT_EQ(tsdb::allocate_blocks(count), model.allocate(count)) << "step " << step;
      } else if (what < 97) {
        const bool state = below(random, 4) == 0;
        const std::uint32_t first = below(random, model.total());
        for (std::uint32_t b = first; b < std::min(model.total(), first + count); ++b) {
          tsdb::set_block_state(b, state);
          model.used[b] = state;
        }
      } else {
        model.used.resize(model.used.size() + below(random, 200));
        tsdb::resize_block_map(model.total());
      }
    }
    ASSERT_EQ(tsdb::total_blocks(), model.total());
    ASSERT_EQ(tsdb::free_hints(), model.hints);
    for (std::uint32_t b = 0; b < model.total(); ++b)
      ASSERT_EQ(tsdb::block_in_use(b), model.used[b]) << b;
  }
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
