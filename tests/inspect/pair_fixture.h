// A sound pair of databases on a simulated disk, made by the libraries, and where things lie in it.

#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>

#include "inspect/inspection.h"
#include "observe.h"
#include "small_mdb.h"
#include "small_pair.h"

namespace inspect_test {

using FileBytes = mdb_test::Bytes;

inline constexpr std::uint32_t block_size = 512;
inline constexpr std::uint32_t root_count = 6;
inline constexpr std::uint32_t node_count = 80;
inline constexpr std::uint32_t tsdb_sets = 3;

// Big-endian words in a file.
std::uint32_t word(const FileBytes& file, std::uint64_t offset);
void set_word(FileBytes& file, std::uint64_t offset, std::uint32_t value);

struct Shape {
  bool internal_journal = false;
  std::uint32_t nodes = node_count;  // without any there are neither index roots nor time series
  std::uint32_t map_blocks = 1;
};

// The database files of one test, closed unless the test opens them. The journal is empty.
class Pair {
 public:
  explicit Pair(const Shape& wanted = {});
  ~Pair();

  void open_mdb();
  void close_mdb();
  mdb::ObjectReference store_node(std::uint32_t number, mdb::ObjectReference reference = {});
  void erase_node(std::uint32_t number);

  FileBytes file(const std::string& name) const { return sim.contents("/db/" + name); }
  void change(const std::string& name, const std::function<void(FileBytes&)>& change);

  inspect::Inspection inspect() const { return inspect::inspect_pair("/db", std::nullopt); }

  // Byte offsets in main.odb. A record's offset is that of its object's header.
  std::uint64_t class_byte(std::uint64_t block) const {
    return std::uint64_t{shape.map_first()} * block_size + block;
  }
  std::uint64_t root(std::uint32_t index) const { return block(shape.data_first() + index); }
  std::uint64_t leaf(std::uint32_t index, std::size_t number) const {
    return block(tree(index).leaves.at(number));
  }
  std::uint64_t object_of(std::uint32_t number) const;
  std::uint64_t property_of(std::uint32_t number, std::uint32_t property) const;
  std::uint64_t index_entry_of(std::uint32_t index, std::uint32_t number) const;
  mdb_test::Tree tree(std::uint32_t index) const {
    return {file("main.odb"), block_size, shape.data_first() + index};
  }

  // Byte offsets in main.tsdb: an entry of the chain table, the first pointer block of a chain, and an entry
  // of the chain of the kind that was committed last.
  static std::uint64_t table_entry(std::uint32_t kind, std::uint32_t set) {
    return 24 + 16 * (std::uint64_t{kind} * tsdb_sets + set);
  }
  std::uint32_t newest_set(std::uint32_t kind) const { return *inspect().tsdb->newest_set[kind]; }
  std::uint64_t chain(std::uint32_t kind, std::uint32_t set) const {
    return block(word(file("main.tsdb"), table_entry(kind, set) + 8));
  }
  std::uint64_t entry(std::uint32_t kind, std::uint32_t number) const;

  const mdb_test::MdbShape shape;
  simulation::SimulatedSystem sim;

 private:
  static std::uint64_t block(std::uint64_t number) { return number * block_size; }
  void make_tsdb(bool with_series);

  simulation::Installed installed_{sim};
  support::LogCapture log_;
};

// The findings of a severity, as "file block:offset text".
std::vector<std::string> lines_of(const inspect::Inspection& inspection, inspect::Severity severity);

// Expects nothing but notes.
void expect_sound(const inspect::Inspection& inspection);

}  // namespace inspect_test
