// A store and an external journal on a simulated system, opened without the layers above.

#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/bytes.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/block_copy.h"
#include "metadb/storage/buffer_cache.h"
#include "metadb/storage/journal.h"
#include "metadb/storage/journal_format.h"
#include "metadb/storage/mapped_journal.h"
#include "metadb/storage/mdb_header.h"
#include "small_pair.h"

using support::bytes_of;
using support::drop_databases;
using support::text_of;
using support::thrown_by;
using Bytes = std::vector<std::byte>;

class StorageTest : public testing::Test, protected support::Computer {
 protected:
  static constexpr const char* store_path = "/main.odb";
  static constexpr const char* journal_path = "/main.odbj";

  void create(std::size_t store_bytes, std::size_t journal_bytes) {
    sim.add_file(store_path, Bytes(store_bytes));
    sim.add_file(journal_path, Bytes(journal_bytes));
    mdb::journal_map(journal_path, 0, 0, true);
    mdb::journal_format();
    mdb::journal_shutdown();
  }

  // Opens both files; recovery runs.
  void open() {
    map();
    mdb::journal_validate();
  }

  void map() const {
    mdb::backing_open(store_path);
    mdb::set_block_size(block_size_);
    mdb::journal_map(journal_path, 0, 0, true);
  }

  void pass_seconds(std::uint64_t seconds) { sim.advance_microseconds(seconds * 1'000'000); }

  static void write(std::string_view text, std::uint64_t offset) {
    mdb::transaction_update(bytes_of(text), offset);
  }

  static void commit(std::string_view text, std::uint64_t offset, bool lazy = true) {
    mdb::Transaction transaction;
    write(text, offset);
    transaction.end(lazy);
  }

  std::string in_file(std::uint64_t offset, std::size_t length) const {
    return text_of(sim.contents(store_path)).substr(offset, length);
  }

  // Whether a line has this text, behind its level and area.
  static bool logged(const std::string& text) {
    return std::ranges::any_of(support::LogCapture::lines(),
                               [&](const std::string& line) { return line.ends_with(' ' + text); });
  }

  std::uint32_t block_size_ = 512;
};
