// The creation of a new meta database.

#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "metadb/storage/mdb_header.h"

namespace mdb {

// Bytes in a block of a new database.
inline constexpr std::uint32_t new_mdb_block_bytes = 8192;

struct CreateMdbSettings {
  std::string path;
  JournalPlacement journal_placement = JournalPlacement::external;
  std::string journal_path;          // external only, at most 992 bytes
  std::uint32_t journal_blocks = 0;  // of new_mdb_block_bytes; the tool offers 4 to 128 MiB
  // Makes what is to hold so many zero bytes at the path: the database first, then, once the database has its
  // header, an external journal. Left empty for a journal that is there already.
  using MakeStore = std::function<void(const std::string& path, std::uint64_t size_bytes)>;
  MakeStore make_database;
  MakeStore make_journal{};
};

// Creates a database without records and leaves it as a store with a header and an attached, empty journal:
// good for nothing but journal_shutdown(), backing_sync(), backing_close() - then all of it is durable and
// mdb_open() opens it.
//
// Nothing is rolled back: after a failure the files are left as they are.
// Throws error_open, error_internal "Too long journal path", error_range, other kinds of error_io, and what
// the two functions throw.
void create_mdb(const CreateMdbSettings& settings);

}  // namespace mdb
