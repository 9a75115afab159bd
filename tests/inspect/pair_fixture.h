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

#include "inspect/inspection.h"
#include "small_pair.h"

namespace inspect_test {

using bytes::load_u32;
using bytes::store_u32;
using inspect::Severity;
using testing::HasSubstr;
using FileBytes = mdb_test::Bytes;

inline constexpr std::uint32_t block_size = 512;
inline constexpr std::uint32_t root_count = 6;
inline constexpr std::uint32_t tsdb_sets = 3;
inline constexpr std::uint64_t some_data = 90 * block_size;  // in main.odb, an empty block

struct Write {
  std::uint64_t at;
  std::uint64_t value;
  unsigned size = 4;
};
using Writes = std::vector<Write>;

// The words of an entry that a CRC of its first twelve bytes ends.
Writes with_crc(std::uint64_t at, std::uint64_t first, std::uint32_t second);
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
  static void erase_node(std::uint32_t number);

  FileBytes file(const std::string& name) const { return sim.contents("/db/" + name); }
  void change(const std::string& name, const std::function<void(FileBytes&)>& change);
  void change(const std::string& name, const Writes& writes);

  static inspect::Inspection inspect() { return inspect::inspect_pair("/db", std::nullopt); }

  // Byte offsets in main.odb. A record's offset is that of its object's header. REQUIRES: no node was erased.
  std::uint64_t class_byte(std::uint64_t block) const { return at(shape.map_first()) + block; }
  std::uint64_t root(std::uint32_t index) const { return at(shape.data_first() + index); }
  std::uint64_t leaf(std::uint32_t index, std::size_t number) const {
    return at(tree(index).leaves.at(number));
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
  static std::uint32_t newest_set(std::uint32_t kind) { return *inspect().tsdb->newest_set[kind]; }
  std::uint64_t chain(std::uint32_t kind, std::uint32_t set) const {
    return at(load_u32(file("main.tsdb"), table_entry(kind, set) + 8));
  }
  std::uint64_t entry(std::uint32_t kind, std::uint32_t number) const {
    constexpr std::uint32_t widths[] = {4, 4, 16, 8};
    return chain(kind, newest_set(kind)) + 16 + std::uint64_t{widths[kind]} * number;
  }

  const mdb_test::MdbShape shape;

 private:
  static std::uint64_t at(std::uint64_t block) { return block * block_size; }
};

// The findings of a severity, as "file block:offset text".
std::vector<std::string> lines_of(const inspect::Inspection& inspection, Severity severity);
// Expects nothing but notes.
void expect_sound(const inspect::Inspection& inspection);
// Expects the finding in its place in the bytes of the file.
void expect_finding(const std::string& file, Severity severity, std::uint64_t named, const std::string& text);

struct Damage {
  Damage(std::string text, std::uint64_t at, Writes changes)
      : finding(std::move(text)), named(at), writes(std::move(changes)) {}
  // One word, which is named.
  Damage(std::string text, std::uint64_t at, std::uint32_t value) : Damage(text, at, Writes{{at, value}}) {}

  std::string finding;  // part of its text
  std::uint64_t named;  // the offset in the file that it names
  Writes writes;
};

// Expects that the inspection finds each of them in its place. The file is sound again afterwards.
void expect_found(Pair& pair, const std::string& file, std::span<const Damage> damages);

struct Outcome {
  int status;
  std::string out;
  std::string err;
};
// The program, run in the process of the test.
Outcome run(const std::vector<const char*>& arguments);

}  // namespace inspect_test
