// Every invariant of the time series database, broken once.

#include "damage.h"

namespace inspect_test {
namespace {

enum Kind : std::uint32_t { head, tail, lblock, check };

TEST(TsdbDamage, OfTheHeader) {
  Pair pair;
  const FileBytes file = pair.file("main.tsdb");
  const auto table = [](Kind kind, std::uint32_t set) { return Pair::table_entry(kind, set); };
  const auto newest = [&](Kind kind) { return table(kind, pair.newest_set(kind)); };
  const auto crc_broken = [&](Kind kind, std::uint32_t set) {
    return Write{table(kind, set) + 12, ~word(file, table(kind, set) + 12)};
  };
  std::vector<Write> same_time = with_crc(table(tail, 0), 9, word(file, table(tail, 0) + 8));
  for (const Write& write : with_crc(table(tail, 2), 9, word(file, table(tail, 2) + 8)))
    same_time.push_back(write);
  expect_found(
      pair, "main.tsdb",
      {{"magic", 0, 7},
       {"version: found 2, expected 1", 4, 2},
       {"block size: found 500", 8, 500},
       {"reserved word: found 7, expected 0", 12, 7},
       {"number of chain sets: found 100", 20, 100},
       {"number of chain sets: found 0", 20, 0},
       {"rest of the header", 508, 0x01FF'FFFF},
       {"head chain 0, CRC of its entry", table(head, 0) + 12, {crc_broken(head, 0)}},
       // Raised, but not to what the set before it has.
       {"CRC of its entry", newest(check) + 12, {{newest(check) + 4, 77}}},
       {"tail chains: found no valid set",
        table(tail, 0),
        {crc_broken(tail, 0), crc_broken(tail, 1), crc_broken(tail, 2)}},
       {"found timestamp 9", table(tail, 2), same_time},
       {"found block 4294967295, expected a block from 1 to", newest(head) + 8,
        with_crc(newest(head), pair.inspect().tsdb->chains[head][pair.newest_set(head)].timestamp, ~0U)}});
}

TEST(TsdbDamage, OfTheChains) {
  Pair pair;
  // The set that is neither committed last nor being changed.
  const auto old_chain = [&](Kind kind) { return pair.chain(kind, (pair.newest_set(kind) + 2) % tsdb_sets); };
  const std::uint64_t second_head = old_chain(head) + block_size;
  const std::uint64_t second_lblock = old_chain(lblock) + block_size;
  const auto first_head_block = static_cast<std::uint32_t>(old_chain(head) / block_size);
  expect_found(pair, "main.tsdb",
               {{"expected \"CHCK\"", old_chain(check), 7},
                {"set number: found 9", old_chain(tail) + 8, 9},
                {"sequence number: found 1, expected 0", old_chain(tail) + 12, 1},
                {"sequence number: found 2, expected 1", second_head + 12, 2},
                {"found block 99999, expected a block from 1", second_head + 4, 99'999},
                {"expected a block that the chain has not passed", second_head + 4, first_head_block},
                {"expected a block of its own", second_lblock + 4, first_head_block}});
}

TEST(TsdbDamage, OfLevelsAndSeries) {
  Pair pair;
  const FileBytes file = pair.file("main.tsdb");
  const auto level = [&](std::uint32_t number) { return pair.entry(lblock, number); };
  const auto series = [&](std::uint32_t number) { return pair.entry(check, number); };
  const auto some_chain = static_cast<std::uint32_t>(pair.chain(check, 0) / block_size);
  expect_found(pair, "main.tsdb",
               {{"level 2: found blocks", level(2), {{level(2), 127}, {level(2) + 4, 2}}},
                {"level 2: found no blocks", level(2), {{level(2) + 4, 0}}},
                {"in level 2 and in level 3", level(3), word(file, level(2))},
                {"chain", level(2), some_chain},
                {"datatype: found 9, expected 1 to 4", series(1), 9},
                {"time series 1, level: found 30, expected the number of a level in use",
                 series(1),
                 {{series(1) + 4, 30}}},
                {"level: found 0", series(1), {{series(1) + 4, 0}}},
                {"level: found 40", level(3), {{level(3) + 8, 40}}},
                {"a second time", series(1), {{series(1) + 4, word(file, series(0) + 4)}}},
                {"a second time", level(1), {{level(1) + 8, 3}}},  // a ring
                {"head entry 40: found 5, expected 0", pair.entry(head, 40), 5},
                {"tail entry 40: found 5, expected 0", pair.entry(tail, 40), 5}});
}

}  // namespace
}  // namespace inspect_test
