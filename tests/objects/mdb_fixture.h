// A small meta database that is open, ways to fill and to damage its blocks, and looks at what it holds.

#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>

#include "metadb/objects/allocator.h"
#include "metadb/objects/indexes.h"
#include "metadb/objects/objects.h"
#include "metadb/storage/block_copy.h"
#include "small_pair.h"
#include "soundness.h"

namespace mdb_test {

using mdb::BlockClass;
using mdb::ObjectReference;
using support::LogCapture;
using support::thrown_by;
using Key = mdb::IndexKey;

// Creates the database and opens it.
struct TestMdb : MdbShape, support::Computer {
  explicit TestMdb(const MdbShape& shape = {}) : MdbShape(shape) {
    create_mdb(sim, *this);
    open();
  }

  void open() { mdb::mdb_open(mdb_path); }
  void reopen() {
    close_mdb();
    open();
  }
};

// A database whose indexes have their roots, ready for nodes.
struct IndexMdb : TestMdb {
  explicit IndexMdb(std::uint32_t size = 512, std::uint32_t map_size = 8)
      : TestMdb({.block_size = size, .map_blocks = map_size, .journal_bytes = 1 << 18}) {
    support::open_nodes(mdb_path);
  }
};

// Puts bytes into a block, whatever damage that does.
inline void set_bytes(std::uint32_t block, std::uint32_t offset, std::span<const std::byte> bytes) {
  mdb::Transaction transaction;
  mdb::transaction_update(bytes, std::uint64_t{block} * mdb::block_size() + offset);
  transaction.end();
}

inline void set_word(std::uint32_t block, std::uint32_t offset, std::uint32_t word) {
  std::byte bytes[4];
  bytes::store_u32(bytes, 0, word);
  set_bytes(block, offset, bytes);
}

inline std::uint32_t word_of(std::uint32_t block, std::size_t offset) {
  return bytes::load_u32(mdb::read_block_copy(block).bytes(), offset);
}

inline void set_class(std::uint32_t block, BlockClass block_class) {
  mdb::Transaction transaction;
  mdb::mark_block(block, block_class);
  transaction.end();
}

// Every byte of the store as it is now.
inline Bytes contents() {
  Bytes all(mdb::backing_size());
  mdb::read_bytes_current(all, 0);
  return all;
}

// The call is refused in these words and changes nothing.
inline void expect_refusal(const std::function<void()>& call, std::string_view words) {
  const Bytes before = contents();
  EXPECT_EQ(thrown_by(call), words);
  EXPECT_TRUE(contents() == before) << words;
}

// The lengths of a data block's items: positive of objects, negative of placeholders.
using Layout = std::vector<int>;

// Fills the block with these items; every record is full of the byte EE.
inline void put_layout(std::uint32_t block, const Layout& layout, BlockClass block_class = BlockClass::used) {
  Bytes bytes(mdb::block_size(), std::byte{0xEE});
  std::size_t offset = 0;
  for (const int item : layout) {
    const auto length = static_cast<std::uint32_t>(std::abs(item));
    bytes::store_u32(bytes, offset, length | (item < 0 ? 1u : 0u));
    offset += length;
  }
  ASSERT_EQ(offset, mdb::block_size());
  set_bytes(block, 0, bytes);
  set_class(block, block_class);
}

// The items of a block; fails the test when they do not tile it.
inline Layout layout_of(std::uint32_t block) {
  Layout layout;
  for (std::uint32_t offset = 0; offset < mdb::block_size();) {
    const std::uint32_t word = word_of(block, offset);
    const std::uint32_t length = word & ~1u;
    if (length < 4 || length > mdb::block_size() - offset) {
      ADD_FAILURE() << "block " << block << ": no item at " << offset << ", header " << word;
      break;
    }
    layout.push_back(static_cast<int>(length) * ((word & 1) != 0 ? -1 : 1));
    offset += length;
  }
  return layout;
}

inline Bytes record_of(ObjectReference reference) {
  const mdb::ObjectHandle object = mdb::object_load(reference);
  return {mdb::object_record(object).begin(), mdb::object_record(object).end()};
}

}  // namespace mdb_test
