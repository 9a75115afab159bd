// Every invariant of the databases but those of the journal's entries, broken once.

#include "pair_fixture.h"

namespace inspect_test {
namespace {

enum Kind : std::uint32_t { head, tail, lblock, check };

std::uint32_t block_of(std::uint64_t offset) {
  return static_cast<std::uint32_t>(offset / block_size);
}

TEST(Damage, OfTheTimeSeriesIsFound) {
  Pair pair;
  const FileBytes file = pair.file("main.tsdb");
  const auto newest = [](Kind kind) { return Pair::table_entry(kind, Pair::newest_set(kind)); };
  const auto crc_of = [&](std::uint32_t set) {
    const std::uint64_t word = Pair::table_entry(tail, set) + 12;
    return Write{word, ~load_u32(file, word)};
  };
  const std::uint64_t head_time = Pair::inspect().tsdb->chains[head][Pair::newest_set(head)].timestamp;
  // The set that is neither committed last nor being changed.
  const auto old_chain = [&](Kind kind) {
    return pair.chain(kind, (Pair::newest_set(kind) + 2) % tsdb_sets);
  };
  const std::uint64_t second_head = old_chain(head) + block_size;
  const std::uint64_t second_lblock = old_chain(lblock) + block_size;
  const std::uint64_t levels[] = {0, pair.entry(lblock, 1), pair.entry(lblock, 2), pair.entry(lblock, 3)};
  const std::uint64_t series = pair.entry(check, 1), first_level = load_u32(file, pair.entry(check, 0) + 4);
  const Damage damages[] = {
      {"magic", 0, 7},
      {"version: found 2, expected 1", 4, 2},
      {"block size: found 500", 8, 500},
      {"number of chain sets: found 100", 20, 100},
      {"rest of the header", 508, 0x01FF'FFFF},
      // Raised, but not to what the set before it has.
      {"CRC of its entry", newest(check) + 12, {{newest(check) + 4, 77}}},
      {"found no valid set", Pair::table_entry(tail, 0), {crc_of(0), crc_of(1), crc_of(2)}},
      {"expected a block from 1 to", newest(head) + 8, with_crc(newest(head), head_time, ~0U)},
      {"expected \"CHCK\"", old_chain(check), 7},
      {"set number: found 9", old_chain(tail) + 8, 9},
      {"sequence number: found 2, expected 1", second_head + 12, 2},
      {"found block 99999, expected a block from 1", second_head + 4, 99'999},
      {"expected a block that the chain has not passed", second_head + 4, block_of(old_chain(head))},
      {"expected a block of its own", second_lblock + 4, block_of(old_chain(head))},
      {"level 2: found blocks", levels[2], {{levels[2], 127}, {levels[2] + 4, 2}}},
      {"in level 2 and in level 3", levels[3], load_u32(file, levels[2])},
      {"chain", levels[2], block_of(pair.chain(check, 0))},
      {"datatype: found 9, expected 1 to 4", series, 9},
      {"time series 1, level: found 30, expected the number of a level in use", series, {{series + 4, 30}}},
      {"a second time", series, {{series + 4, first_level}}},
      {"a second time", levels[1], {{levels[1] + 8, 3}}},  // a ring
      {"head entry 40: found 5, expected 0", pair.entry(head, 40), 5},
  };
  expect_found(pair, "main.tsdb", damages);
}

TEST(Damage, OfTheMetaDatabasesHeaderIsFound) {
  Pair pair;
  // In every header the journal's path is "/db/main.odbj", padded to 16 bytes.
  constexpr std::uint64_t count = 20 + 16, roots = count + 4, map = roots + std::uint64_t{4} * root_count + 4;
  const Damage damages[] = {
      {"magic", 0, 7},
      {"block size: found 48", 8, 48},
      {"journal type: found 3", 12, 3},
      {"found 17, expected a multiple of 8", 16, 17},
      {"expected 8 for a path of 5 bytes", 16, {{25, 0, 8}, {28, 0, 8}}},
      {"padding of the journal path", 35, {{35, 'x', 1}}},
      {"index roots: found 1, expected 2",
       count,
       {{count, 1}, {roots + 4, 0}, {roots + 8, 2}, {roots + 12, 3}}},
      {"root of index 0: found block 2", roots, 2},
      {"for several indexes", roots, 4},
      {"allocation map: found blocks 0", map, 0},
      {"allocation map", map, {{map + 4, 5'000}}},
      {"rest of the header", 1'020, 0x01FF'FFFF},
  };
  expect_found(pair, "main.odb", damages);
}

TEST(Damage, OfAnInternalJournalIsFound) {
  Pair pair({.internal_journal = true});
  expect_sound(Pair::inspect());
  const Damage damages[] = {{"number of journal blocks", 20, {{20, 0x40, 1}}},
                            {"reserved word of the journal: found 85", 2 * block_size + 8, 85},
                            {"", 16, 70'000}};
  expect_found(pair, "main.odb", damages);
}

TEST(Damage, OfTheBlocksAndTreesIsFound) {
  Pair pair;
  const FileBytes file = pair.file("main.odb");
  const std::uint64_t spare_class = pair.class_byte(block_of(some_data));
  const std::uint64_t leaf = pair.leaf(0, 0), object = pair.object_of(5);
  const auto class_of = [&](std::uint64_t offset, std::uint8_t value) {
    return Write{pair.class_byte(block_of(offset)), value, 1};
  };
  const auto free_object = Write{object, load_u32(file, object) | 1U};
  const std::uint64_t root = pair.root(0), repeating = pair.leaf(1, 0);
  const std::uint64_t first = pair.leaf(0, 0), second = pair.leaf(0, 1);
  const std::uint64_t last_key = first + 16 * std::uint64_t{load_u32(file, first + 12)};
  const Damage damages[] = {
      {"found 3, expected 0 to 2 or 4 to 6", spare_class, {{spare_class, 3, 1}}},
      {"expected 0 for a block before 3", pair.class_byte(0), {{pair.class_byte(0), 1, 1}}},
      {"length of an item: found 0", some_data, {{spare_class, 1, 1}}},
      {"found in no index", some_data, {{spare_class, 6, 1}}},
      {"class of the block: found 1 (used data), expected 6", leaf, {class_of(leaf, 1)}},
      {"expected 4 (index root)", pair.root(1), {class_of(pair.root(1), 0)}},
      {"expected less than 128", object / block_size * block_size, {class_of(object, 2), free_object}},
      {"magic of the root", root, 7},
      {"number of keys: found 42, expected 41 at most", root + 4, 42},
      {"child: found block 1", root + 8, 1},
      {"expected one that no tree has reached yet", root + 20, block_of(first)},
      {"leaf to the left: found 9", second + 4, 9},
      {"expected a greater one", second + 32, {{second + 36, load_u32(file, second + 20)}}},
      {"expected no smaller one", repeating + 32, {{repeating + 16, 5}}},
      {"by the separator above", second + 16, {{second + 20, 0}}},
      {"expected one below", last_key, 1},
      {"index 0, key", root + 24, {{root + 24, 0}, {root + 28, 1}}},
  };
  expect_found(pair, "main.odb", damages);
}

TEST(Damage, OfTheRecordsAndTheirEntriesIsFound) {
  Pair pair;
  const FileBytes file = pair.file("main.odb");
  // Node 30 is in every index but the last.
  const auto at = [&](std::uint32_t id) { return pair.property_of(30, id); };
  // Puts a reference where another one is.
  const auto reference = [&](std::uint64_t to, std::uint64_t from) {
    return Writes{{to + 8, load_u32(file, from + 8)}, {to + 12, load_u32(file, from + 12)}};
  };
  const std::uint64_t object = pair.object_of(30), type = at(3), text = at(51), flag = at(502);
  const std::uint64_t entry = pair.index_entry_of(0, 30), repeated = pair.leaf(4, 0), place = at(3800);
  std::vector<Damage> damages = {
      {"length of a record's entry: found 4", type + 4, 4},
      {"length of property 100", at(100) + 4, 32},  // swallows the next entry
      {"type code of property 100: found 2", at(100) + 8, 2},
      {"node type of property 3: found 95", type + 12, 95},
      {"flag of property 502: found 2", flag + 12, 0x0200'0000},
      {"found no zero byte", text + 12, {{text + 12, ~0ULL, 8}, {text + 16, ~0ULL, 8}}},
      {"length of property 51: found 24, expected 16", text + 4, {{text + 12, 0}}},
      {"property: found 3 a second time", at(100), 3},
      {"index 2: found key 0.3", pair.index_entry_of(2, 30), {{flag + 12, 0}}},
      {"in index 5, expected one under 3.30", object, {{place, 3901}, {place + 12, 3}, {place + 16, 30}}},
      {"a second time for", repeated + 32, reference(repeated + 32, repeated + 16)},
      {"index 3, entry of 1.30",
       pair.index_entry_of(3, 30),
       {{object, load_u32(file, object) | 1}}},  // is free
      {"expected a live object", entry, {{entry + 12, load_u32(file, entry + 12) + 4}}},
  };
  constexpr struct {
    std::uint32_t keyed_by;
    const char* key;
  } indexes[] = {{0, "0.30"}, {2, "0.3"}, {2, "0.3"}, {59, "1.30"}, {3800, "2.7"}};
  for (std::uint32_t index = 0; index < std::size(indexes); ++index) {
    const auto& [keyed_by, key] = indexes[index];
    const std::uint64_t its = pair.index_entry_of(index, 30), other = pair.index_entry_of(index, 60);
    const std::string name = "index " + std::to_string(index);
    damages.emplace_back(name + ": found key " + key, its, Writes{{pair.property_of(30, keyed_by) + 12, 99}});
    damages.emplace_back("found no entry for it in " + name, object, reference(its, other));
  }
  expect_found(pair, "main.odb", damages);
}

}  // namespace
}  // namespace inspect_test
