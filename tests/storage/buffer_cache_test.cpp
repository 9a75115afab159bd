#include <algorithm>
#include <list>
#include <random>

#include "common/bytes.h"
#include "storage_fixture.h"

namespace {

using BufferCacheTest = StorageTest;

TEST_F(BufferCacheTest, KeepsTheMostRecentlyUsedBlocks) {
  constexpr std::uint32_t block_count = 3000;
  Bytes contents(std::size_t{block_count} * 64);
  for (std::uint32_t block = 0; block < block_count; ++block)
    bytes::store_u32(contents, std::size_t{block} * 64, block);
  sim_.add_file(store_path, contents);
  mdb::backing_open(store_path);
  mdb::set_block_size(64);
  mdb::cache_clear();
  constexpr std::uint32_t limit = 300;
  mdb::cache_set_limit(limit);
  std::mt19937 random(1);
  std::list<std::uint32_t> model;  // most recently used first
  for (int i = 0; i < 20'000; ++i) {
    const auto block = static_cast<std::uint32_t>(random() % (random() % 4 == 0 ? block_count : 2 * limit));
    const bool was_cached = !mdb::cache_peek(block).empty();
    ASSERT_EQ(was_cached, std::ranges::find(model, block) != model.end()) << "step " << i;
    model.remove(block);
    model.push_front(block);
    if (model.size() > limit)
      model.pop_back();
    ASSERT_EQ(bytes::load_u32(mdb::cache_get_block(block), 0), block);
    ASSERT_EQ(mdb::cache_statistics().entries, model.size());
  }
  EXPECT_GT(mdb::cache_statistics().rehashes, 0U) << "evictions leave deleted slots that must be cleaned";

  mdb::cache_clear();
  mdb::cache_set_limit(8192);
  for (std::uint32_t block = 0; block < 127; ++block)
    mdb::cache_get_block(block);
  EXPECT_EQ(mdb::cache_statistics().slots, 509U);
  mdb::cache_get_block(127);
  EXPECT_EQ(mdb::cache_statistics().slots, 1021U) << "it grows when a quarter is in use";
}

}  // namespace
