// The creation of a new time series database.

#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace tsdb {

// Where the database lies: on a block-special device that exists, or in a file of a directory.
enum class Placement : std::int32_t { block_special = 0, directory = 1 };

struct CreateSettings {
  std::string path;
  Placement placement = Placement::directory;
  // Bytes, not 0; the header with the chain table has to fit in. The tool makes 1,024 to 16,384.
  std::uint32_t block_size = 0;
  // Number of chain sets, not 0; the tool makes 2 to 5.
  std::uint32_t chains = 0;
  // The database gets one MiB for each; not 0.
  std::uint32_t initial_checks = 0;
  // Creates a file with so many zero bytes at the path; called for a placement in a directory.
  std::function<void(const std::string& path, std::uint64_t size_bytes)> create_file;
  // Hears how far the growth of the file has come, after each of its blocks; may be empty.
  std::function<void(std::uint64_t written_bytes, std::uint64_t all_bytes)> growth_progress{};
};

// Creates the database and leaves it open; prints its progress on standard error. Everything is durable on
// return.
// Throws error_toobig when block numbers would pass 32 bits (before anything is sized), error_internal
// when a database is open already, and what its steps throw. Nothing is rolled back.
void create_tsdb(const CreateSettings& settings);

// Closes the database, if one is open, and forgets everything about it; changes since the last
// sync_chains() are lost.
void tsdb_close();

}  // namespace tsdb
