#include <tuple>

#include "common/bytes.h"
#include "storage_fixture.h"

namespace {

// An MDB of 20 blocks of 8192 bytes whose allocation map is 2 blocks long.
class MdbHeaderTest : public StorageTest {
 protected:
  MdbHeaderTest() {
    sim_.add_file(store_path, Bytes(std::size_t{20} * 8192));
    sim_.add_file(journal_path, Bytes(8192));
    mdb::backing_open(store_path);
  }

  static mdb::HeaderFields external(const std::string& path) {
    return {8192, mdb::JournalPlacement::external, path, 0, 1, {3, 4}, 1, 3};
  }

  static void reopen(const std::optional<std::string>& journal = std::nullopt) {
    mdb::backing_open(store_path);
    mdb::mdb_open_header(journal);
  }

  std::uint32_t word(std::size_t offset) const { return bytes::load_u32(sim_.contents(store_path), offset); }
};

TEST_F(MdbHeaderTest, JournalPathIsPaddedToEight) {
  for (const std::size_t length : {8U, 9U, 976U, 977U, 984U, 985U, 992U}) {
    const std::string path = "/" + std::string(length - 1, 'x');
    mdb::mdb_write_header(external(path));
    sim_.add_file(path, Bytes(4096));
    reopen();
    EXPECT_EQ(mdb::data_first(), 3U) << "path of " << length;
    EXPECT_EQ(mdb::journal_bytes().size(), 4096U);
    EXPECT_EQ(word(16), (length + 7) / 8 * 8);
    EXPECT_EQ(word(20 + word(16)), 2U) << "the roots follow, past the first kilobyte if need be";
  }
  EXPECT_EQ(mdb::address_limit(), std::uint64_t{2} * 8192 * 8192);
  reopen(journal_path);
  EXPECT_EQ(mdb::journal_bytes().size(), 8192U) << "the caller's path goes before the stored one";
  EXPECT_EQ(thrown_by([] { mdb::mdb_write_header(external(std::string(993, 'x'))); }),
            "internal: Too long journal path");
}

TEST_F(MdbHeaderTest, InternalJournalCountIsOverwrittenByTheTail) {
  mdb::mdb_write_header({8192, mdb::JournalPlacement::internal, "", 1, 4, {7, 8}, 5, 7});
  EXPECT_EQ(word(20), 0U);
  EXPECT_EQ(word(21), 2U);
  reopen();
  EXPECT_TRUE(logged("Using 8192 byte MDB blocks"));
  EXPECT_TRUE(logged("Will use 155648 as journal length"));
  EXPECT_TRUE(logged("Journal: [8192 : 163840)"));
  EXPECT_EQ(mdb::journal_bytes().size(), std::size_t{4} * 8192) << "no entry is placed over the map";
}

TEST_F(MdbHeaderTest, DamagedHeadersAreRefused) {
  const std::string alien = "fubar: MDB file does not look like a Quenor Meta Database";
  const std::size_t tail = 20 + 16;  // the path's ten characters are padded to sixteen
  std::vector<std::tuple<std::size_t, std::uint32_t, std::string>> cases = {
      {0, 0x51'4D'44'43, alien},
      {4, 7, "unsupported: This version of Quenor does not support version 7 databases"},
      {12, 3, "unsupported: Unknown journal type"},
      {16, 1000, alien},
      {16, 12, alien},
      {tail, 2100, alien},
      {tail, ~0U, alien},
      {tail + 4, 2, "fubar: Non-index node at index-block 2"},
      {tail + 8, 3, "fubar: Non-index node at index-block 3"},
      {tail + 16, 0, alien},
      {tail + 16, 3, alien},
      {tail + 20, 21, alien},
      {tail + 20, ~0U, alien},
  };
  for (const std::uint32_t size : {0U, 1U, 32U, 8191U, 1U << 21, ~0U})
    cases.emplace_back(
        8, size,
        "unsupported: Blocksize is " + std::to_string(size) + " bytes - but it must be a power of two");
  for (const auto& [offset, value, thrown] : cases) {
    mdb::mdb_write_header(external(journal_path));
    Bytes stored(4);
    bytes::store_u32(stored, 0, value);
    mdb::byte_write(stored, offset, false);
    EXPECT_EQ(thrown_by([] { reopen(); }), thrown) << value << " at " << offset;
  }
}

}  // namespace
