// The creation of a database where it is out of the ordinary.

#include <iostream>
#include <sstream>

#include "tsdb_fixture.h"

namespace tsdb_test {

class CreationTest : public TsdbTest {
 protected:
  ~CreationTest() override { std::cerr.rdbuf(standard_error); }

  void create(std::uint32_t block_size, std::uint32_t chains, std::uint32_t checks,
              tsdb::Placement placement = tsdb::Placement::directory) {
    const auto create_file = [this](const std::string& name, std::uint64_t) { sim.add_file(name, {}); };
    tsdb::create_tsdb({path, placement, block_size, chains, checks, create_file});
  }

  std::ostringstream progress;
  std::streambuf* standard_error = std::cerr.rdbuf(progress.rdbuf());
};

TEST_F(CreationTest, TheFileTakesTheRoundedCapacityWhileTheMapDoesNot) {
  sim.set_calendar_seconds(0x1'2345'6789);
  create(65536, 1, 3);
  EXPECT_EQ(bytes::load_u32(sim.contents(path), 16), 0x2345'6789u);
  EXPECT_EQ(sim.contents(path).size(), 64u * 65536);
  EXPECT_EQ(tsdb::total_blocks(), 48u);
  EXPECT_EQ(tsdb::used_blocks(), 1u);
  expect_error<tsdb::error_internal>("Header loaded, then re-created", [this] { create(65536, 1, 1); });
}

TEST_F(CreationTest, AStoreWithoutFreeSpaceIsFormattedInsteadOfGrown) {
  sim.add_file(path, std::vector<std::byte>(2049 * 512, std::byte{7}));
  sim.set_free_bytes(0);
  create(512, 2, 1, tsdb::Placement::block_special);
  const std::vector<std::byte> file = sim.contents(path);
  EXPECT_THAT(std::span(file).subspan(2047 * 512, 512), Each(std::byte{0}));
  EXPECT_THAT(std::span(file).subspan(2048 * 512), Each(std::byte{7}));
  EXPECT_EQ(file.size(), 2049u * 512);
}

TEST_F(CreationTest, WhatHasNoRoomIsRefused) {
  expect_error<tsdb::error_toobig>("TSDB backing store is more than 2^32 blocks",
                                   [this] { create(1, 1, 4096); });
  EXPECT_EQ(sim.count(Operation::write), 0u);
  expect_error<tsdb::error_dbnospace>("No space available for pointer chain allocation",
                                      [this] { create(1 << 20, 1, 4); });
  EXPECT_TRUE(progress.str().ends_with("Creating lblock chain #0...ok.\nCreating check chain #0..."));
  tsdb::forget_header();
  expect_error<tsdb::error_internal>("A header with 4 chain sets does not fit into 256 bytes",
                                     [] { tsdb::create_header(256, 32, 4); });
  EXPECT_THROW(tsdb::create_header(8192, 32, 0xFFFF'FFFF), tsdb::error_internal);
}

}  // namespace tsdb_test
