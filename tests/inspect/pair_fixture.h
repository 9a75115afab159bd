// A sound pair of databases on a simulated disk, made by the libraries, where things lie in it, ways to
// damage it, and what the inspection and the program say about it.

#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "common/bytes.h"
#include "small_pair.h"
#include "soundness.h"

namespace inspect_test {

using bytes::load_u32;
using bytes::store_u32;
using inspect::Severity;
using testing::HasSubstr;
using FileBytes = mdb_test::Bytes;

inline constexpr std::uint32_t block_size = 512;
inline constexpr std::uint64_t some_data = 90 * block_size;  // in main.odb, an empty block

struct Write {
  std::uint64_t at;
  std::uint64_t value;
  unsigned size = 4;
};
using Writes = std::vector<Write>;

// The words of an entry that a CRC of its first twelve bytes ends.
Writes with_crc(std::uint64_t at, std::uint64_t first, std::uint32_t second);
// Lengthens the file as needed.
void write_all(FileBytes& file, const Writes& writes);

struct Shape {
  bool internal_journal = false;
  std::uint32_t nodes = 80;  // without any there are no index roots
  std::uint32_t map_blocks = 1;
};

// The database files of one test, closed unless the test opens them. The journal is empty.
class Pair : public support::Computer {
 public:
  explicit Pair(const Shape& wanted = {});

  static void open_mdb() { support::open_nodes(mdb_test::mdb_path); }

  FileBytes file(const std::string& name) const { return sim.contents("/db/" + name); }
  void change(const std::string& name, const std::function<void(FileBytes&)>& change);
  void change(const std::string& name, const Writes& writes);

  static inspect::Inspection inspect() { return inspect::inspect_pair("/db", std::nullopt); }

  const mdb_test::MdbShape shape;
};

// The findings of a severity, as "file block:offset text".
std::vector<std::string> lines_of(const inspect::Inspection& inspection, Severity severity);
// What a file beside the tests holds.
std::string expected(const std::string& name);

struct Outcome {
  int status;
  std::string out;
  std::string err;
};
// The program, run in the process of the test.
Outcome run(const std::vector<const char*>& arguments);

}  // namespace inspect_test
