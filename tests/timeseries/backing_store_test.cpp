#include "timeseries/backing_store.h"

#include "tsdb_fixture.h"

namespace tsdb_test {

class BackingStoreTest : public TsdbTest {
 protected:
  static constexpr std::uint32_t block_size = 512;

  static std::vector<std::byte> blocks(std::size_t count) {
    return std::vector<std::byte>(count * block_size);
  }
};

TEST_F(BackingStoreTest, DirectoryPartFollowsTheSeparatorOfThePath) {
  const std::pair<const char*, const char*> cases[] = {
      {"", ""},         {"main.tsdb", ""}, {"C:", "C:\\"},
      {"C:\\", "C:\\"}, {"a/b/", "a/b/"},  {"/a/b\\c", "/a/b\\"},
      {"/m:", "/m:/"},  {"a\\b/c", "a\\"}, {"/main.tsdb", "/"}};
  for (const auto& [path_given, directory] : cases)
    EXPECT_EQ(tsdb::store_directory(path_given), directory) << path_given;
}

TEST_F(BackingStoreTest, OpenRefusesBareNamesAndMissingFilesAndLocksTheOthers) {
  expect_error<tsdb::error_io>("Cannot give empty name to TSDB backing store",
                               [] { tsdb::btb_open("main.tsdb"); });
  EXPECT_THROW(tsdb::btb_open("/db/none"), tsdb::error_open);
  expect_error<tsdb::error_internal>("No TSDB backing store is open", [] { tsdb::btb_WriteFile(0, {}, 0); });
  open_store(block_size);
  EXPECT_FALSE(sim.open(path, platform::Sharing::none).ok());
  tsdb::btb_close();
  EXPECT_TRUE(sim.open(path, platform::Sharing::none).ok());
}

TEST_F(BackingStoreTest, MeasuresTheNumberOfTheLastBlock) {
  for (const std::uint32_t count : {0u, 1u, 2u, 1023u, 1024u, 1025u, 2049u, 2050u, 5000u}) {
    open_store(block_size, count);
    EXPECT_EQ(tsdb::btb_block_count(), count < 2 ? 0 : count - 1) << count;
  }
}

TEST_F(BackingStoreTest, FreeSpaceIsCountedInHalfBlocks) {
  open_store(8192);
  constexpr std::uint64_t most = 0xFFFF'FFFF;
  for (const auto& [free_bytes, half_blocks] :
       {std::pair<std::uint64_t, std::uint64_t>{4095, 0}, {4096, 1}, {most << 12, most}}) {
    sim.set_free_bytes(free_bytes);
    EXPECT_EQ(tsdb::cgs_space(), half_blocks);
  }
  sim.set_free_bytes(std::uint64_t{1} << 44);
  expect_error<tsdb::error_toobig>("TSDB backing store is more than 2^32 blocks", [] { tsdb::cgs_space(); });
  sim.inject({.operation = Operation::query_free_bytes, .code = 7});
  sim.set_error_text(7, "");
  expect_error<tsdb::error_io>("Unable to get free space information from \"/db/\": 7",
                               [] { tsdb::cgs_space(); });
  tsdb::btb_declare_volume();
  EXPECT_EQ(tsdb::cgs_space(), 0u);
  expect_error<tsdb::error_internal>("Cannot grow a volume", [] { tsdb::btb_grow(0); });
}

TEST_F(BackingStoreTest, ShortWritesAreContinuedAndFailuresNameTheBytesDone) {
  open_store(block_size);
  sim.inject({.operation = Operation::write, .transfer_limit = 700});
  tsdb::btb_WriteFile(1, blocks(3), 2);
  EXPECT_EQ(sim.contents(path), blocks(3));
  sim.inject({.operation = Operation::write, .transfer_limit = 100});
  sim.inject({.operation = Operation::write, .occurrence = 2, .code = 5});
  expect_error<tsdb::error_read>("Cannot seq. write 1024 bytes at block 7 offset 100: \"simulated error 5\"",
                                 [] { tsdb::btb_WriteFile(7, blocks(2), 2); });
  sim.inject({.operation = Operation::write, .transfer_limit = 0});
  sim.set_error_text(sim.disk_full().code, "disk full");
  expect_error<tsdb::error_read>("Cannot seq. write 512 bytes at block 0 offset 0: \"disk full\"",
                                 [] { tsdb::btb_WriteFile(0, blocks(1), 1); });
}

TEST_F(BackingStoreTest, WritesBeyondTheFormatsAreRefused) {
  open_store(block_size, 6);
  tsdb::btb_WriteFile(3, {}, 0);
  expect_error<tsdb::error_toobig>("Cannot write 8388608 blocks at block 0 at once: more than 2^32 bytes",
                                   [] { tsdb::btb_WriteFile(0, {}, 1u << 23); });
  expect_error<tsdb::error_internal>("Buffer of 512 bytes given for 2 blocks at block 4",
                                     [] { tsdb::btb_WriteFile(4, blocks(1), 2); });
  expect_error<tsdb::error_dbspacewrap>(
      "Growing the database with 4294967291 blocks will make it exceed internal limits for TSDB size",
      [] { tsdb::btb_grow(0xFFFF'FFFB); });
  EXPECT_EQ(sim.count(Operation::write), 0u);
  tsdb::btb_set_block_size(0x8000'0000);
  expect_error<tsdb::error_seek>("Unable to lseek to block #4294967295 ofs 4294967295",
                                 [] { tsdb::btb_seek(0xFFFF'FFFF, 0xFFFF'FFFF); });
  EXPECT_THROW(tsdb::btb_set_block_size(0), tsdb::error_internal);
}

}  // namespace tsdb_test
