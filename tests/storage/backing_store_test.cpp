#include "storage_fixture.h"

namespace {

using BackingStoreTest = StorageTest;

TEST_F(BackingStoreTest, SizeIsFoundByProbingAndGrowsByAFifthInWholeBlocks) {
  for (const std::size_t size : {0U, 1U, 2U, 8191U, 8192U, 8193U, 16384U, 100'001U, 1000U}) {
    sim_.add_file(store_path, Bytes(size));
    mdb::backing_open(store_path);
    EXPECT_EQ(mdb::backing_size(), std::max<std::size_t>(size, 1)) << "an empty file counts as one byte long";
  }
  mdb::set_block_size(512);
  mdb::backing_grow(0);
  EXPECT_EQ(mdb::backing_size(), 1512U);
  mdb::backing_grow(20);
  EXPECT_EQ(sim_.contents(store_path), Bytes(1512 + 19 * 512)) << "up to the block that must be addressable";
  EXPECT_TRUE(logged("Attempting to grow MDB from 1000 bytes to 1512 bytes"));
}

TEST_F(BackingStoreTest, AccessIsLimitedToTheStore) {
  sim_.add_file(store_path, Bytes(5000));
  mdb::backing_open(store_path);
  mdb::set_block_size(512);
  Bytes ten(10);
  Bytes block(512);
  const std::string past_read = "range: Read beyond end of object backing store attempted";
  EXPECT_EQ(thrown_by([&] { mdb::byte_read(ten, 4990); }), "nothing");
  EXPECT_EQ(thrown_by([&] { mdb::byte_read(ten, 4991); }), past_read);
  EXPECT_EQ(thrown_by([&] { mdb::byte_read(ten, ~std::uint64_t{0} - 4); }), past_read);
  EXPECT_EQ(thrown_by([&] { mdb::byte_write(ten, 4991, false); }),
            "range: Write beyond end of object backing store attempted");
  EXPECT_EQ(thrown_by([&] { mdb::byte_write(bytes_of("beyond"), 6000, true); }), "nothing");
  EXPECT_EQ(mdb::backing_size(), 5000U) << "only growth changes the size";
  EXPECT_EQ(in_file(6000, 6), "beyond");
  EXPECT_EQ(thrown_by([&] { mdb::byte_write(ten, ~std::uint64_t{0} - 20, true); }),
            "seek: Unable to seek to position in MDB");
  EXPECT_EQ(thrown_by([&] { mdb::block_read(block, 8, 1); }), "nothing");
  EXPECT_EQ(thrown_by([&] { mdb::block_read(block, 1'000'000, 1); }).substr(0, 27),
            "io: Could not block-read: \"");
  EXPECT_EQ(thrown_by([] { mdb::backing_open("/nowhere"); }),
            "open: Cannot open database for read/write in \"/nowhere\"");
}

}  // namespace
