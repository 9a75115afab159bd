// Where objects and index nodes get their space, and what the opening of a database says of it.

#include <gmock/gmock.h>

#include "mdb_fixture.h"

namespace mdb_test {
namespace {

ObjectReference find(std::uint32_t hint, std::uint32_t size) {
  return mdb::alloc_space(hint, size).reference();
}

TEST(Allocator, TriesTheHintAloneThenFromTheLastGoodBlockOnThenAll) {
  TestMdb mdb;
  const std::uint32_t first = mdb.data_first(), end = mdb.block_count();
  EXPECT_EQ(find(0, 512), (ObjectReference{first, 0}));
  EXPECT_EQ(layout_of(first), Layout{-512}) << "an empty block becomes one placeholder";
  for (std::uint32_t block = first; block < end; ++block)
    put_layout(block, {512}, BlockClass::full);
  put_layout(first, {-256, 256});
  put_layout(first + 1, {412, -100}, BlockClass::full);
  put_layout(first + 2, {-200, 312});
  set_class(first + 3, BlockClass::leaf);
  const std::uint64_t size = mdb::backing_size();
  EXPECT_EQ(find(first + 1, 40), (ObjectReference{first + 1, 412}));  // Full blocks serve a hint
  EXPECT_EQ(find(first + 2, 40), (ObjectReference{first + 2, 0}));    // and is the last-good block now
  EXPECT_EQ(find(first + 3, 40), (ObjectReference{first + 2, 0}));    // an index block gives nothing
  EXPECT_EQ(find(first + 1, 104), (ObjectReference{first + 2, 0}));   // nor does one too small
  EXPECT_EQ(find(0, 40), (ObjectReference{first + 2, 0}));
  EXPECT_EQ(find(0, 220), (ObjectReference{first, 0}));  // not the last-good one, nor one behind it
  EXPECT_EQ(find(first + 2, 40), (ObjectReference{first + 2, 0}));
  EXPECT_EQ(find(1, 40), (ObjectReference{first, 0}));    // below the data: its first block
  EXPECT_EQ(find(end, 40), (ObjectReference{first, 0}));  // past the store: not grown
  EXPECT_EQ(find(0xFFFF'FFFF, 40), (ObjectReference{first, 0}));
  EXPECT_EQ(mdb::backing_size(), size);

  put_layout(first, {412, -100});
  put_layout(first + 2, {512}, BlockClass::full);
  EXPECT_EQ(find(0, 40), (ObjectReference{first, 412}));
  EXPECT_EQ(LogCapture::take().back(), text::concat("2 16 Marked block ", first, " as full"));
  EXPECT_EQ(find(0, 40), (ObjectReference{end, 0}));  // a block that was filled is not the last-good one
  EXPECT_GT(mdb::backing_size(), size);
  mdb.reopen();
  EXPECT_EQ(mdb::mark_query(first), BlockClass::full);
  EXPECT_EQ(mdb::mark_query(end), BlockClass::used);
}

// Every byte of the map is one block's class, so 64-byte blocks make a map small enough to fill.
TEST(Allocator, EmptyBlockIsFoundAtOrAfterTheStartThenAnywhereThenNowhere) {
  TestMdb mdb({.block_size = 64, .map_blocks = 3, .data_blocks = 40});
  const std::uint32_t first = mdb.data_first();
  EXPECT_EQ(mdb::alloc_empty_block(first + 21, true), first + 21);
  for (std::uint32_t block = first; block < 192; ++block)
    set_class(block, BlockClass::leaf);
  for (const std::uint32_t empty : {first, 63u, 64u, 191u}) {
    set_class(empty, BlockClass::empty);
    for (const std::uint32_t start : {0u, empty, 191u, 5000u})
      EXPECT_EQ(mdb::alloc_empty_block(start, true), empty);
    set_class(empty, BlockClass::leaf);
  }
  EXPECT_EQ(mdb::backing_size(), 192u * 64);
  expect_refusal([] { find(0, 40); }, "dbnospace: No free blocks in meta database");
  expect_refusal([] { mdb::alloc_empty_block(30, true); }, "dbnospace: No empty blocks in meta database");
  expect_refusal([] { mdb::mark_query(192); }, "range: Block 192 for mark query is out of range");
  set_class(64, BlockClass::empty);
  const mdb::Transaction transaction;
  mdb::mark_block(first, BlockClass::empty);
  EXPECT_EQ(mdb::alloc_empty_block(0, true), first);
  EXPECT_EQ(mdb::alloc_empty_block(0, false), 64u) << "passes over the whole page of the map";
}

TEST(Database, OpeningCountsTheMapAndRefusesUnknownClasses) {
  TestMdb mdb({.block_size = 64, .map_blocks = 6, .data_blocks = 20});
  std::uint32_t block = 383;  // downwards from the last block of the map
  for (const std::uint32_t value : {1u, 2u, 4u, 5u, 6u, 7u}) {
    for (std::uint32_t count = 0; count < value; ++count)
      set_class(block--, BlockClass{value});
  }
  mdb.reopen();
  EXPECT_THAT(LogCapture::take(),
              testing::IsSupersetOf({"2 16 Empty blocks: 359", "2 16 Used blocks: 1", "2 16 Full blocks: 2",
                                     "2 16 Root index blocks: 4", "2 16 Non-root index blocks: 5",
                                     "2 16 Leaf blocks: 6", "2 16 Lob blocks: 7"}));
  set_word(mdb.map_first() + 1, 32, 0x00FF'0003);
  close_mdb();
  EXPECT_EQ(thrown_by([&] { mdb.open(); }), "consistency: Unknown alloc. bitmap (255) for block 97");
  EXPECT_FALSE(mdb::backing_is_open() || mdb::journal_is_mapped() || mdb::mdb_header_is_loaded());
}

}  // namespace
}  // namespace mdb_test
