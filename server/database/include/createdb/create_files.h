// The stores that the databases are made in, before a database knows them.

#pragma once

#include <cstdint>
#include <string>

namespace createdb {

// Creates a file of `size_bytes` zeros at `path`. An existing file is never touched. The file's name is
// durable when the call returns, its bytes are not. Says what failed on standard error and ends the run.
void create_zero_file(const std::string& path, std::uint64_t size_bytes);

// Overwrites the first `size_bytes` bytes of the existing device at `path` with zeros. Says what failed on
// standard error and ends the run.
void prepare_store(const std::string& path, std::uint64_t size_bytes);

}  // namespace createdb
