// A sound pair of databases on a simulated disk, made by the libraries, where things lie in it, ways to
// damage it, and what the inspection and the program say about it.

#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "common/bytes.h"
#include "common/crc32.h"
#include "inspect/command_line.h"
#include "metadb/storage/journal_format.h"
#include "small_pair.h"
#include "soundness.h"

namespace inspect_test {

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

// Lengthens the file as needed.
inline void write_all(FileBytes& file, const Writes& writes) {
  for (const Write& write : writes) {
    file.resize(std::max<std::uint64_t>(file.size(), write.at + write.size));
    for (unsigned i = 0; i < write.size; ++i)
      file.at(write.at + i) = static_cast<std::byte>(write.value >> 8 * (write.size - 1 - i));
  }
}

// The database files of one test, closed unless the test opens them. The journal is empty.
struct Pair : support::Computer {
  // Without any nodes there are no index roots.
  explicit Pair(std::uint32_t nodes = 80, bool internal_journal = false, std::uint32_t map_blocks = 1)
      : shape{.map_blocks = map_blocks,
              .data_blocks = 100,
              .journal = internal_journal ? mdb::JournalPlacement::internal : mdb::JournalPlacement::external,
              .index_count = mdb::max_index_count} {
    // Head and lblock chains of two blocks.
    support::make_pair(sim, shape, {block_size, 128, 3, {200, 10, 40, 10}}, nodes);
    if (nodes == 0)
      return;
    change(shape.is_internal() ? "main.odb" : "main.odbj", [&](FileBytes& bytes) {
      const std::uint64_t start = shape.is_internal() ? std::uint64_t{shape.header_blocks()} * block_size : 0;
      const auto journal = std::span(bytes).subspan(start, shape.journal_bytes);
      std::ranges::fill(journal.subspan(mdb::format::journal_header_size), std::byte{0});
    });
  }

  static void open_mdb() { support::open_nodes(mdb_test::mdb_path); }

  FileBytes file(const std::string& name) const { return sim.contents("/db/" + name); }
  void change(const std::string& name, const std::function<void(FileBytes&)>& change) {
    FileBytes bytes = file(name);
    change(bytes);
    sim.set_contents("/db/" + name, bytes);
  }

  static inspect::Inspection inspect() { return inspect::inspect_pair("/db", std::nullopt); }

  const mdb_test::MdbShape shape;
};

inline std::vector<std::string> lines_of(const inspect::Inspection& inspection) {
  std::vector<std::string> lines;
  for (const inspect::Finding& finding : inspection.report.findings())
    lines.push_back(finding.text);
  return lines;
}

// What a file beside the tests holds.
inline std::string expected(const std::string& name) {
  std::ifstream file(QUENOR_EXPECTED "/" + name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

struct Outcome {
  int status;
  std::string out;
  std::string err;
};
// The program, run in the process of the test.
inline Outcome run(const std::vector<const char*>& arguments) {
  std::ostringstream out, err;
  const int status = inspect::run(arguments, out, err);
  return {status, out.str(), err.str()};
}

}  // namespace inspect_test
