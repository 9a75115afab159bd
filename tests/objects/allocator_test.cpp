// Where objects and index nodes get their space, and what the opening of a database says of it.

#include "metadb/objects/allocator.h"

#include <functional>
#include <tuple>

#include "mdb_fixture.h"

namespace mdb_test {
namespace {

// Block and offset of the place found, and how the search moved the meters.
using Found = std::vector<std::uint64_t>;

Found find(std::uint32_t hint, std::uint32_t size) {
  const auto meters = [] {
    Found values(2);
    for (const char* name : {"bloads", "hint_calls", "hintfail", "lastfail", "nohint_calls"})
      values.push_back(meter_value("alloc", name));
    return values;
  };
  const Found before = meters();
  const ObjectReference place = mdb::alloc_space(hint, size).reference();
  Found found = meters();
  std::ranges::transform(found, before, found.begin(), std::minus{});
  found[0] = place.block;
  found[1] = place.offset;
  return found;
}

TEST(Allocator, HintIsTriedAloneAndThenDropped) {
  TestMdb mdb;
  const std::uint32_t first = mdb.data_first();
  put_layout(first, {-256, 256});
  put_layout(first + 1, {412, -100}, BlockClass::full);
  put_layout(first + 2, {-200, 312});
  set_class(first + 3, BlockClass::leaf);
  EXPECT_EQ(find(first + 1, 40), (Found{first + 1, 412, 1, 1, 0, 0, 0}));  // Full blocks serve a hint
  EXPECT_EQ(find(first + 2, 40), (Found{first + 2, 0, 1, 1, 0, 0, 0}));    // and is the last-good block now
  EXPECT_EQ(find(first + 3, 40), (Found{first + 2, 0, 1, 1, 1, 0, 0}));    // an index block gives nothing
  EXPECT_EQ(find(first + 1, 104), (Found{first + 2, 0, 2, 1, 1, 0, 0}));   // nor does one too small
  EXPECT_EQ(find(1, 40), (Found{first, 0, 1, 1, 0, 0, 0}));                // below the data: its first block
  const std::uint64_t size = mdb::backing_size();
  EXPECT_EQ(find(mdb.block_count(), 40), (Found{first, 0, 1, 1, 1, 0, 0}));  // past the store: not grown
  EXPECT_EQ(find(0xFFFF'FFFF, 40), (Found{first, 0, 1, 1, 1, 0, 0}));
  EXPECT_EQ(mdb::backing_size(), size);
}

TEST(Allocator, UnhintedSearchStartsAtTheLastGoodBlockAndGrowsTheStoreInTheEnd) {
  TestMdb mdb;
  const std::uint32_t first = mdb.data_first();
  for (std::uint32_t block = first; block < mdb.block_count(); ++block)
    put_layout(block, {512}, BlockClass::full);
  put_layout(first + 1, {-200, 312});
  put_layout(first + 3, {-160, 352});
  EXPECT_EQ(find(first + 3, 40), (Found{first + 3, 0, 1, 1, 0, 0, 0}));
  EXPECT_EQ(find(0, 40), (Found{first + 3, 0, 1, 0, 0, 0, 1}));
  EXPECT_EQ(find(0, 180), (Found{first + 1, 0, 2, 0, 0, 1, 1}));
  EXPECT_EQ(find(0, 40), (Found{first + 1, 0, 1, 0, 0, 0, 1}));

  put_layout(first, {412, -100});
  put_layout(first + 1, {512}, BlockClass::full);
  LogCapture::take();
  EXPECT_EQ(find(0, 40), (Found{first + 3, 0, 1, 0, 0, 0, 1}));
  put_layout(first + 3, {512}, BlockClass::full);
  EXPECT_EQ(find(0, 40), (Found{first, 412, 1, 0, 0, 1, 1}));
  EXPECT_EQ(LogCapture::take().back(), text::concat("2 16 Marked block ", first, " as full"));
  EXPECT_EQ(mdb::mark_query(first), BlockClass::full);

  // A block that was filled is not the last-good one.
  const std::uint64_t size = mdb::backing_size();
  EXPECT_EQ(find(first + 1, 40), (Found{mdb.block_count(), 0, 1, 1, 1, 0, 0}));
  EXPECT_GT(mdb::backing_size(), size);
  mdb.reopen();
  EXPECT_EQ(mdb::mark_query(first), BlockClass::full);
  EXPECT_EQ(mdb::mark_query(mdb.block_count()), BlockClass::used);
  EXPECT_EQ(layout_of(mdb.block_count()), Layout{-512});
}

TEST(Allocator, PlaceholderSearchTakesTheLastThatServesWhenAQuarterIsFree) {
  struct Case {
    const char* name;
    Layout layout;
    std::uint32_t size;
    bool found, full;
    std::uint32_t offset;
  };
  const Case cases[] = {
      {"stops at 25 % free", {-40, 100, -40, 100, -48, 84, -100}, 40, true, false, 280},
      {"goes on for a candidate past 25 %", {-128, 100, -132, 152}, 130, false, false, 0},
      {"last that serves, not last one", {-60, 100, -64, 208, -16, 64}, 40, true, false, 160},
      {"exactly a quarter is not full", {384, -128}, 128, true, false, 384},
      {"two bytes less is full, and serves", {386, -126}, 126, true, true, 386},
      {"two bytes left over hold no header", {-42, 470}, 40, false, true, 0},
      {"four bytes left over do", {-44, 468}, 40, true, true, 0},
  };
  TestMdb mdb;
  for (const Case& c : cases) {
    put_layout(mdb.data_first(), c.layout);
    mdb::ObjectHandle handle{mdb.data_first(), 7, {}};
    const mdb::PlaceholderSearch outcome = mdb::find_placeholder(handle, c.size);
    EXPECT_EQ(std::tuple(outcome.found, outcome.block_full, handle.offset, handle.data.empty()),
              std::tuple(c.found, c.full, c.offset, !c.found))
        << c.name;
  }
}

TEST(Allocator, FirstAllocationTurnsAnEmptyBlockIntoOnePlaceholder) {
  TestMdb mdb;
  for (const std::uint32_t size : {0u, 2u, 510u, 513u, 514u, 0xFFFF'FFFFu}) {
    EXPECT_EQ(thrown_by([&] { find(mdb.data_first(), size); }), "dbnospace: No free blocks in meta database");
    EXPECT_EQ(LogCapture::take().back(), "4 16 No valid block found for space allocation");
  }
  mdb::log_mask |= logging::detail;
  EXPECT_EQ(find(0, 512), (Found{mdb.data_first(), 0, 0, 0, 0, 0, 1}));
  const std::string line = "1 16 Found empty block - starting from scratch on that one";
  EXPECT_EQ(std::ranges::count(LogCapture::take(), line), 1);
  EXPECT_EQ(layout_of(mdb.data_first()), Layout{-512});
  EXPECT_EQ(mdb::mark_query(mdb.data_first()), BlockClass::used);
}

// Every byte of the map is one block's class, so 64-byte blocks make a map small enough to fill.
TEST(Allocator, AMapWithoutRoomEndsEverySearchWithItsText) {
  TestMdb mdb({.block_size = 64, .data_blocks = 8});
  for (std::uint32_t block = 0; block < 64; ++block)
    set_class(block, BlockClass::leaf);
  EXPECT_EQ(thrown_by([] { find(0, 40); }), "dbnospace: No free blocks in meta database");
  EXPECT_EQ(thrown_by([] { mdb::alloc_empty_block(30, true); }),
            "dbnospace: No empty blocks in meta database");
  EXPECT_EQ(LogCapture::take().back(), "4 16 No valid empty block found for empty block allocation");
  EXPECT_EQ(thrown_by([] { mdb::mark_query(64); }), "range: Block 64 for mark query is out of range");
  EXPECT_EQ(thrown_by([] { set_class(64, BlockClass::lob); }), "range: Block 64 for marking is out of range");
  EXPECT_EQ(thrown_by([] { mdb::ensure_block(0xFFFF'FFFF); }),
            "dbnospace: Cannot grow the MDB to accomodate block 4294967295");
  set_class(63, BlockClass::empty);
  EXPECT_EQ(thrown_by([] { mdb::mark_block(63, BlockClass::leaf); }),
            "internal: Update outside of transaction attempted");
  mdb::ObjectHandle empty{63, 0, {}};
  EXPECT_EQ(thrown_by([&] { mdb::find_placeholder(empty, 8); }),
            "internal: Search for placeholder in empty block");
  EXPECT_EQ(mdb::alloc_empty_block(0, true), 63u);
  EXPECT_EQ(mdb::alloc_space(0, 40).block, 63u);
}

TEST(Allocator, EmptyBlockIsFoundAtOrAfterTheStartAndThenAnywhere) {
  TestMdb mdb({.block_size = 64, .map_blocks = 3, .data_blocks = 40});
  const std::uint32_t first = mdb.data_first();
  EXPECT_EQ(mdb::alloc_empty_block(first + 21, true), first + 21);
  for (std::uint32_t block = first; block < 192; ++block)
    set_class(block, BlockClass::leaf);
  for (const std::uint32_t empty : {first, 63u, 64u, 191u}) {
    set_class(empty, BlockClass::empty);
    for (const std::uint32_t start : {0u, empty, 191u, 5000u})
      EXPECT_EQ(mdb::alloc_empty_block(start, true), empty);
    EXPECT_GE(mdb::backing_size(), (std::uint64_t{empty} + 1) * 64);
    set_class(empty, BlockClass::leaf);
  }
  set_class(64, BlockClass::empty);
  mdb::Transaction transaction;
  mdb::mark_block(first, BlockClass::empty);
  EXPECT_EQ(mdb::alloc_empty_block(0, true), first);
  EXPECT_EQ(mdb::alloc_empty_block(0, false), 64u);  // passes over the whole page of the map
}

TEST(Database, OpeningCountsTheMap) {
  TestMdb mdb({.block_size = 64, .map_blocks = 6, .data_blocks = 20});
  std::uint32_t block = 383;  // downwards from the last block of the map
  for (const std::uint32_t value : {1u, 2u, 4u, 5u, 6u, 7u}) {
    for (std::uint32_t count = 0; count < value * 11; ++count)
      set_class(block--, BlockClass{value});
  }
  LogCapture::take();
  mdb.reopen();
  std::vector<std::string> counts = LogCapture::take();
  std::erase_if(counts, [](const std::string& line) { return line.find(" blocks: ") == std::string::npos; });
  EXPECT_EQ(counts, (std::vector<std::string>{"2 16 Empty blocks: 109", "2 16 Used blocks: 11",
                                              "2 16 Full blocks: 22", "2 16 Root index blocks: 44",
                                              "2 16 Non-root index blocks: 55", "2 16 Leaf blocks: 66",
                                              "2 16 Lob blocks: 77"}));
}

TEST(Database, RefusedOpeningLeavesNothingOpen) {
  TestMdb mdb({.block_size = 64, .map_blocks = 2});
  const std::uint64_t class_of_99 = std::uint64_t{mdb.map_first()} * 64 + 99;
  close_mdb();
  for (const std::uint8_t value : {std::uint8_t{3}, std::uint8_t{255}}) {
    mdb.poke(class_of_99, value);
    EXPECT_EQ(thrown_by([&] { mdb.open(); }),
              text::concat("consistency: Unknown alloc. bitmap (", value, ") for block 99"));
    EXPECT_FALSE(mdb::backing_is_open() || mdb::journal_is_mapped() || mdb::mdb_header_is_loaded());
  }
  mdb.poke(class_of_99, 0);
  mdb::set_block_size(0);
  EXPECT_EQ(thrown_by([] { mdb::alloc_map_init(1, 1); }),
            "internal: Allocation map initialization attempted before block size was found");
  mdb.open();
  EXPECT_EQ(mdb::alloc_space(0, 40).block, mdb.data_first());
}

}  // namespace
}  // namespace mdb_test
