// The store's file, its header, and the mapping of its journal.

#include <cerrno>
#include <functional>
#include <system_error>

#include "storage_fixture.h"

namespace {

using StoreTest = StorageTest;

TEST_F(StoreTest, SizeIsFoundByProbingAndGrowsByAFifthInWholeBlocks) {
  for (const std::size_t size : {0U, 1U, 8192U, 100'001U, 1000U}) {
    sim.add_file(store_path, Bytes(size));
    mdb::backing_open(store_path);
    EXPECT_EQ(mdb::backing_size(), std::max<std::size_t>(size, 1)) << "an empty file counts as one byte long";
  }
  mdb::set_block_size(512);
  mdb::backing_grow(0);
  EXPECT_EQ(mdb::backing_size(), 1512U);
  mdb::backing_grow(20);
  EXPECT_EQ(sim.contents(store_path), Bytes(1512 + 19 * 512)) << "up to the block that must be addressable";
  EXPECT_TRUE(logged("Attempting to grow MDB from 1000 bytes to 1512 bytes"));
  const std::uint64_t grown = mdb::backing_size();
  sim.set_free_bytes(700);
  EXPECT_THROW(mdb::backing_grow(30), mdb::error_io);
  EXPECT_EQ(mdb::backing_size(), grown + 512) << "what was written whole counts";
}

TEST_F(StoreTest, AccessIsLimitedToTheStoreAndTheJournal) {
  sim.add_file(store_path, Bytes(5000));
  sim.add_file(journal_path, Bytes(20'000));
  sim.set_error_text(2, "not there\r\n");
  mdb::backing_open(store_path);
  mdb::set_block_size(512);
  Bytes ten(10);
  const std::string no_map = "io: Cannot memory map journal: ";
  const std::pair<std::function<void()>, std::string> cases[] = {
      {[&] { mdb::byte_read(ten, 4990); }, "nothing"},
      {[&] { mdb::byte_read(ten, 4991); }, "range: Read beyond end of object backing store attempted"},
      {[&] { mdb::byte_write(ten, 4991, false); },
       "range: Write beyond end of object backing store attempted"},
      {[&] { mdb::byte_write(ten, 6000, true); }, "nothing"},
      {[&] { mdb::byte_write(ten, ~std::uint64_t{0} - 20, true); },
       "seek: Unable to seek to position in MDB"},
      {[] { mdb::journal_map("/nowhere", 0, 0, true); },
       "open: Cannot open journal in \"/nowhere\": not there"},
      {[] { mdb::journal_map(journal_path, 0, std::uint64_t{1} << 32, true); },
       no_map + std::generic_category().message(EFBIG)},
      {[] { mdb::backing_open("/nowhere"); }, "open: Cannot open database for read/write in \"/nowhere\""},
  };
  for (const auto& [call, words] : cases) {
    EXPECT_EQ(thrown_by(call), words);
    EXPECT_TRUE(!mdb::backing_is_open() || mdb::backing_size() == 5000) << "only growth changes the size";
  }
}

TEST_F(StoreTest, TheCacheKeepsWhatWasUsedLastAndItsTableSparse) {
  create(std::size_t{2000} * 512, 8192);
  open();
  mdb::cache_set_limit(200);
  const auto read = [](std::uint32_t first, std::uint32_t last) {
    for (std::uint32_t block = first; block <= last; ++block)
      (void)mdb::cache_get_block(block);
    const mdb::CacheStatistics cache = mdb::cache_statistics();
    return std::tuple(cache.entries, cache.live, cache.slots, cache.rehashes);
  };
  EXPECT_EQ(read(0, 126), std::tuple(127u, 127u, 509u, 0u));
  EXPECT_EQ(read(127, 127), std::tuple(128u, 128u, 1021u, 1u));
  EXPECT_EQ(read(128, 199), std::tuple(200u, 200u, 1021u, 1u));
  (void)read(0, 0);
  EXPECT_EQ(read(200, 200), std::tuple(200u, 200u, 1021u, 1u));
  EXPECT_FALSE(mdb::cache_peek(0).empty());
  EXPECT_TRUE(mdb::cache_peek(1).empty());
  (void)read(201, 1999);
  EXPECT_LE(mdb::cache_statistics().non_empty, 3 * 200u) << "deleted slots do not crowd it";
  EXPECT_GT(mdb::cache_statistics().rehashes, 1u);
}

// An MDB of 20 blocks of 8192 bytes whose allocation map is 2 blocks long.
class HeaderTest : public StorageTest {
 protected:
  HeaderTest() {
    create(std::size_t{20} * 8192, 8192);
    mdb::backing_open(store_path);
  }

  static void write_external(const std::string& path) {
    mdb::mdb_write_header({8192, mdb::JournalPlacement::external, path, 0, 1, {3, 4}, 1, 3});
  }

  static void reopen(const std::optional<std::string>& journal = std::nullopt) {
    mdb::backing_open(store_path);
    mdb::mdb_open_header(journal);
  }
};

TEST_F(HeaderTest, JournalPathIsPaddedToEight) {
  for (const std::size_t length : {8U, 9U, 985U, 992U}) {
    const std::string path = "/" + std::string(length - 1, 'x');
    write_external(path);
    sim.add_file(path, Bytes(4096));
    reopen();
    EXPECT_EQ(mdb::data_first(), 3U) << "the tail, past the first kilobyte if need be; path of " << length;
    EXPECT_EQ(mdb::journal_bytes().size(), 4096U);
  }
  EXPECT_EQ(mdb::address_limit(), std::uint64_t{2} * 8192 * 8192);
  reopen(journal_path);
  EXPECT_EQ(mdb::journal_bytes().size(), 8192U) << "the caller's path goes before the stored one";
  EXPECT_FALSE(sim.open(journal_path, platform::Sharing::readers).ok()) << "it is nobody else's";
  EXPECT_EQ(thrown_by([] { write_external(std::string(993, 'x')); }), "internal: Too long journal path");
}

TEST_F(HeaderTest, InternalJournalCountIsOverwrittenByTheTail) {
  mdb::mdb_write_header({8192, mdb::JournalPlacement::internal, "", 1, 4, {7, 8}, 5, 7});
  EXPECT_EQ(in_file(20, 5), std::string("\0\0\0\0\2", 5));
  reopen();
  for (const char* line :
       {"Using 8192 byte MDB blocks", "Will use 155648 as journal length", "Journal: [8192 : 163840)"})
    EXPECT_TRUE(logged(line)) << line;
  EXPECT_EQ(mdb::journal_bytes().size(), std::size_t{4} * 8192) << "no entry is placed over the map";
}

}  // namespace
