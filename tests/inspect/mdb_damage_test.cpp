// Every invariant of the meta database but those of its journal, broken once.

#include "damage.h"

namespace inspect_test {
namespace {

using testing::HasSubstr;

// In every header the journal's path is "/db/main.odbj", padded to 16 bytes.
constexpr std::uint64_t root_count_at = 20 + 16;
constexpr std::uint64_t roots_at = root_count_at + 4;
constexpr std::uint64_t unused_at = roots_at + 4 * root_count;

TEST(MdbDamage, OfTheHeader) {
  Pair pair;
  expect_found(pair, "main.odb",
               {{"magic", 0, 7},
                {"version: found 3", 4, 3},
                {"block size: found 48", 8, 48},
                {"journal type: found 3", 12, 3},
                {"found 17, expected a multiple of 8", 16, 17},
                {"found 1000", 16, 1000},
                {"expected 8 for a path of 5 bytes", 16, {{25, 0, 8}, {28, 0, 8}}},
                {"padding of the journal path", 35, {{35, 'x', 1}}},
                {"number of index roots: found 1, expected 2",
                 root_count_at,
                 {{root_count_at, 1}, {roots_at + 4, 0}, {roots_at + 8, 2}, {roots_at + 12, 3}}},
                {"number of index roots", root_count_at, 0x1000'0000},
                {"root of index 0: found block 2", roots_at, 2},
                {"for several indexes", roots_at, 4},
                {"unused word: found 5", unused_at, 5},
                {"allocation map: found blocks 0", unused_at + 4, 0},
                {"allocation map", unused_at + 4, {{unused_at + 8, 5'000}}},
                {"rest of the header", 1'020, 0x01FF'FFFF}});
}

TEST(MdbDamage, OfAnInternalJournal) {
  Pair pair({.internal_journal = true});
  expect_sound(pair.inspect());
  expect_found(pair, "main.odb",
               {{"number of journal blocks", 20, {{20, 0x40, 1}}},
                {"reserved word of the journal: found 85", 2 * block_size + 8, 85},
                {"", 16, 70'000}});
}

TEST(MdbDamage, OfTheBlocks) {
  Pair pair;
  const std::uint64_t spare = pair.shape.data_first() + 50;
  const std::uint64_t spare_class = pair.class_byte(spare);
  const std::uint64_t leaf = pair.leaf(0, 0), object = pair.object_of(5);
  const auto class_of = [&](std::uint64_t offset, std::uint8_t value) {
    return std::vector<Write>{{pair.class_byte(offset / block_size), value, 1}};
  };
  expect_found(pair, "main.odb",
               {{"found 3, expected 0 to 2 or 4 to 6", spare_class, {{spare_class, 3, 1}}},
                {"found 200, expected 0 to 2", spare_class, {{spare_class, 200, 1}}},
                {"found 7", spare_class, {{spare_class, 7, 1}}},
                {"expected 0 for a block before 3", pair.class_byte(0), {{pair.class_byte(0), 1, 1}}},
                {"expected 0 as the file has", pair.class_byte(300), {{pair.class_byte(300), 1, 1}}},
                {"length of an item: found 0", spare * block_size, {{spare_class, 1, 1}}},
                {"found in no index", spare * block_size, {{spare_class, 6, 1}}},
                {"class of the block: found 1 (used data), expected 6", leaf, class_of(leaf, 1)},
                {"expected 4 (index root)", pair.root(1), class_of(pair.root(1), 0)},
                {"expected a live object", pair.index_entry_of(0, 5), class_of(object, 0)},
                {"length of an item: found 2", object, 2},
                {"length of an item: found 1000", object, 1'000}});
  std::vector<Write> full_and_free = class_of(object, 2);
  full_and_free.push_back({object + 3, word(pair.file("main.odb"), object) | 1u, 1});
  expect_found(pair, "main.odb",
               {{"expected less than 128", object / block_size * block_size, full_and_free}});
}

TEST(MdbDamage, OfTheTrees) {
  Pair pair;
  const FileBytes file = pair.file("main.odb");
  const std::uint64_t root = pair.root(0);
  const std::uint64_t first = pair.leaf(0, 0), second = pair.leaf(0, 1), third = pair.leaf(0, 2);
  const std::uint64_t last = pair.leaf(0, pair.tree(0).leaves.size() - 1);
  const std::uint64_t repeating = pair.leaf(1, 0);
  const std::uint64_t last_key_of_first = first + 16 * std::uint64_t{word(file, first + 12)};
  const auto number_of = [](std::uint64_t block) { return static_cast<std::uint32_t>(block / block_size); };
  expect_found(pair, "main.odb",
               {{"magic of the root", root, 7},
                {"index 0, magic: found 0x00000007", second, 7},
                {"number of keys: found 42, expected 41 at most", root + 4, 42},
                {"number of keys: found 32, expected 31 at most", first + 12, 32},
                {"child: found block 1", root + 8, 1},
                {"child: found block 0", root + 20, 0},
                {"expected one that no tree has reached yet", root + 20, number_of(first)},
                {"leaf to the left: found 9", second + 4, 9},
                {"leaf to the right", first + 8, number_of(third)},
                {"leaf to the right: found 9, expected 0", last + 8, 9},
                {"expected a greater one", second + 32, {{second + 36, word(file, second + 20)}}},
                {"expected no smaller one", repeating + 32, {{repeating + 16, 5}}},
                {"by the separator above", second + 16, {{second + 20, 0}}},
                {"expected one below", last_key_of_first, 1},
                {"index 0, key", root + 24, {{root + 24, 0}, {root + 28, 1}}}});
}

TEST(MdbDamage, OfTheRecords) {
  Pair pair;
  const FileBytes file = pair.file("main.odb");
  // Node 30 is in every index but the last.
  const auto property = [&](std::uint32_t id) { return pair.property_of(30, id); };
  const std::uint64_t text = property(51);
  expect_found(pair, "main.odb",
               {{"length of a record's entry: found 4", property(3) + 4, 4},
                {"length of a record's entry: found 8000", property(3) + 4, 8'000},
                {"length of a record's entry: found 17", property(3) + 4, 17},
                {"length of property 100", property(100) + 4, 32},  // swallows the next entry
                {"type code of property 100: found 2", property(100) + 8, 2},
                {"type code of property 2: found 1, expected 4 (node ID)", property(2) + 8, 1},
                {"type code of property 51: found 1", text + 8, 1},
                {"node type of property 3: found 95", property(3) + 12, 95},
                {"flag of property 502: found 2", property(502) + 12, 0x0200'0000},
                {"found no zero byte", text + 12, {{text + 12, ~0ULL, 8}, {text + 16, ~0ULL, 8}}},
                {"length of property 51: found 24, expected 16", text + 4, {{text + 12, 0}}},
                {"property: found 3 a second time", property(100), 3},
                {"index 2: found key 0.0", pair.index_entry_of(2, 30), {{property(502) + 12, 0}}},
                {"found no entry for it in index 5, expected one under 3.30",
                 pair.object_of(30),
                 {{property(3800), 3901}, {property(3800) + 12, 3}, {property(3800) + 16, 30}}}});

  constexpr struct {
    std::uint32_t index, keyed_by;
    const char* key;
  } indexes[] = {{0, 0, "0.30"}, {1, 2, "0.0"}, {2, 2, "0.0"}, {3, 59, "1.30"}, {4, 3800, "2.7"}};
  for (const auto& [index, keyed_by, key] : indexes) {
    const std::uint64_t entry = pair.index_entry_of(index, 30), other = pair.index_entry_of(index, 60);
    const std::string name = "index " + std::to_string(index);
    expect_found(pair, "main.odb",
                 {{name + ": found key " + key, entry, {{property(keyed_by) + 12, 99}}},
                  {"found no entry for it in " + name,
                   pair.object_of(30),
                   {{entry + 8, word(file, other + 8)}, {entry + 12, word(file, other + 12)}}}});
  }

  const std::uint64_t entry = pair.index_entry_of(0, 30), repeated = pair.leaf(4, 0) + 16;
  expect_found(pair, "main.odb",
               {{"a second time for",
                 repeated + 16,
                 {{repeated + 24, word(file, repeated + 8)}, {repeated + 28, word(file, repeated + 12)}}},
                {"index 3, entry of 1.30",  // of a placeholder
                 pair.index_entry_of(3, 30),
                 {{pair.object_of(30), word(file, pair.object_of(30)) | 1}}},
                {"expected a live object", entry, {{entry + 12, word(file, entry + 12) + 4}}},
                {"offset 4294967295", entry, {{entry + 12, 0xFFFF'FFFF}}}});
}

}  // namespace
}  // namespace inspect_test
