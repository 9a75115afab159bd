// The file below the database, and the creation of one where it is out of the ordinary.

#include "timeseries/backing_store.h"

#include "tsdb_fixture.h"

namespace tsdb_test {

using BackingStoreTest = TsdbTest;

constexpr std::uint32_t block_size = 512;

std::vector<std::byte> blocks(std::size_t count) {
  return std::vector<std::byte>(count * block_size);
}

TEST_F(BackingStoreTest, DirectoryPartFollowsTheSeparatorOfThePath) {
  const std::pair<const char*, const char*> cases[] = {{"main.tsdb", ""}, {"C:", "C:\\"},
                                                       {"a/b/", "a/b/"},  {"/a/b\\c", "/a/b\\"},
                                                       {"/m:", "/m:/"},   {"/main.tsdb", "/"}};
  for (const auto& [path_given, directory] : cases)
    EXPECT_EQ(tsdb::store_directory(path_given), directory) << path_given;
  expect_refusals({{"io: Cannot give empty name to TSDB backing store", [] { tsdb::btb_open(""); }}});
}

TEST_F(BackingStoreTest, LocksTheFileAndMeasuresTheNumberOfItsLastBlock) {
  for (const std::uint32_t count : {0u, 1u, 2u, 1023u, 1024u, 1025u, 2049u, 2050u, 5000u}) {
    open_store(block_size, count);
    EXPECT_EQ(tsdb::btb_block_count(), count < 2 ? 0 : count - 1) << count;
  }
  EXPECT_FALSE(sim.open(path, platform::Sharing::none).ok());
  tsdb::btb_close();
  EXPECT_TRUE(sim.open(path, platform::Sharing::none).ok());
}

TEST_F(BackingStoreTest, FreeSpaceIsCountedInHalfBlocksAndNotAllCanBeUsed) {
  open_store(8192, 6);
  constexpr std::uint64_t most = 0xFFFF'FFFF;
  for (const auto& [free_bytes, half_blocks] :
       {std::pair<std::uint64_t, std::uint64_t>{4095, 0}, {4096, 1}, {most << 12, most}}) {
    sim.set_free_bytes(free_bytes);
    EXPECT_EQ(tsdb::cgs_space(), half_blocks);
  }
  sim.set_free_bytes(std::uint64_t{1} << 44);
  expect_refusals({{"toobig: TSDB backing store is more than 2^32 blocks", tsdb::cgs_space},
                   {"dbspacewrap: Growing the database with 4294967291 blocks will make it exceed internal "
                    "limits for TSDB size",
                    [] { tsdb::btb_grow(0xFFFF'FFFB); }}});
  tsdb::btb_declare_volume();
  EXPECT_EQ(tsdb::cgs_space(), 0u);
  expect_refusals({{"internal: Cannot grow a volume", [] { tsdb::btb_grow(0); }}});
}

TEST_F(BackingStoreTest, ShortWritesAreContinuedAndFailuresNameTheBytesDone) {
  open_store(block_size);
  sim.inject({.operation = Operation::write, .transfer_limit = 700});
  tsdb::btb_WriteFile(1, blocks(3), 2);
  EXPECT_EQ(sim.contents(path), blocks(3));
  sim.inject({.operation = Operation::write, .transfer_limit = 100});
  sim.inject({.operation = Operation::write, .occurrence = 2, .code = 5});
  sim.inject({.operation = Operation::write, .occurrence = 3, .transfer_limit = 0});
  sim.set_error_text(sim.disk_full().code, "disk full");
  expect_refusals({{"read: Cannot seq. write 1024 bytes at block 7 offset 100: \"simulated error 5\"",
                    [] { tsdb::btb_WriteFile(7, blocks(2), 2); }},
                   {"read: Cannot seq. write 512 bytes at block 0 offset 0: \"disk full\"",
                    [] { tsdb::btb_WriteFile(0, blocks(1), 1); }},
                   {"toobig: Cannot write 8388608 blocks at block 0 at once: more than 2^32 bytes",
                    [] { tsdb::btb_WriteFile(0, {}, 1u << 23); }},
                   {"internal: Buffer of 512 bytes given for 2 blocks at block 4",
                    [] { tsdb::btb_WriteFile(4, blocks(1), 2); }}});
  tsdb::btb_set_block_size(0x8000'0000);
  expect_refusals({{"seek: Unable to lseek to block #4294967295 ofs 4294967295",
                    [] { tsdb::btb_seek(0xFFFF'FFFF, 0xFFFF'FFFF); }}});
  tsdb::btb_close();
  expect_refusals({{"internal: No TSDB backing store is open", [] { tsdb::btb_seek(0, 0); }}});
}

class CreationTest : public TsdbTest {
 protected:
  std::function<void()> creation(std::uint32_t size, std::uint32_t checks,
                                 tsdb::Placement placement = tsdb::Placement::directory) {
    const auto create_file = [this](const std::string& name, std::uint64_t) { sim.add_file(name, {}); };
    return [=] { tsdb::create_tsdb({path, placement, size, 1, checks, create_file}); };
  }
};

TEST_F(CreationTest, TheFileTakesTheRoundedCapacityWhileTheMapDoesNot) {
  expect_refusals({{"toobig: TSDB backing store is more than 2^32 blocks", creation(1, 4096)}});
  EXPECT_EQ(sim.count(Operation::write), 0u);
  sim.set_calendar_seconds(0x1'2345'6789);
  creation(65536, 3)();
  EXPECT_EQ(bytes::load_u32(sim.contents(path), 16), 0x2345'6789u);
  EXPECT_EQ(sim.contents(path).size(), 64u * 65536);
  EXPECT_EQ(tsdb::total_blocks(), 48u);
  EXPECT_EQ(tsdb::used_blocks(), 1u);
  tsdb::tsdb_close();
  expect_refusals({{"dbnospace: No space available for pointer chain allocation", creation(1 << 20, 4)}});
}

TEST_F(CreationTest, AStoreWithoutFreeSpaceIsFormattedInsteadOfGrown) {
  sim.add_file(path, std::vector<std::byte>(2049 * 512, std::byte{7}));
  sim.set_free_bytes(0);
  creation(512, 1, tsdb::Placement::block_special)();
  const std::vector<std::byte> file = sim.contents(path);
  EXPECT_THAT(std::span(file).subspan(2047 * 512, 512), Each(std::byte{0}));
  EXPECT_THAT(std::span(file).subspan(2048 * 512), testing::AllOf(Each(std::byte{7}), testing::SizeIs(512)));
}

}  // namespace tsdb_test
