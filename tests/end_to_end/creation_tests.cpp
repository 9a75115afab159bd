// What the tool leaves on the disk, byte by byte where it matters.

#include <ctime>

#include "fixture.h"

namespace {

using reader::Bytes;
using reader::Key;
using reader::Place;
using reader::Span;

const std::string first_record = "0/4=0000000000000004 2901/1=0000000c ";
const std::string root_domain =
    "0/4=0000000000000001 2/4=0000000000000000 1/1=00000000 3/5=00000001 51/3=Root domain 512/3= "
    "100/1=00000000 101/1=00000000 102/1=00000000 103/1=00000000 104/1=00000000 ";
const std::string administrator =
    "0/4=0000000000000006 2/4=0000000000000001 1/1=00000000 3/5=00000002 51/3=admin "
    "901/3=768781a270f0216ef7ee3d353a0e8431 902/6=01 913/6=01 914/6=01 903/6=01 904/6=01 905/6=01 906/6=01 "
    "907/6=01 908/6=01 909/6=01 910/6=01 911/6=01 912/6=01 900/3=Administrator account 2601/9=00000000 ";

enum class Content { none, without_administrator, complete };

struct Configuration {
  std::string arguments;
  std::string answers;  // db/j is for the journal, db/t for the time series; "" without a dialogue
  Content content;
  std::uint32_t journal_type;  // 1 internal, 2 external
  std::uint32_t journal_mib;
  std::uint32_t set_count;
  std::uint32_t block_size;
  std::uint32_t checks;
  std::uint32_t first_free_block;  // behind the chains
};

const Configuration configurations[] = {
    {"-f -d db", "", Content::complete, 2, 8, 3, 8192, 10, 13},
    {"-f -d db -n", "", Content::without_administrator, 2, 8, 3, 8192, 10, 13},
    {"-f -d db -n -c", "", Content::none, 2, 8, 3, 8192, 10, 13},
    {"-f -i", "db x i 129 4 6 2 3000 8192 0 1 db/t", Content::complete, 1, 4, 2, 8192, 1, 9},
    {"-f -i", "db e db/j 5 5 1024 64 db/t", Content::complete, 2, 5, 5, 1024, 64, 26},
    {"-f -i", "db i 128 5 16384 1 db/t", Content::complete, 1, 128, 5, 16384, 1, 21},
    {"-f -i -n", "db e db/j 8 3 4096 2 db/t", Content::without_administrator, 2, 8, 3, 4096, 2, 13},
};

// All chains lie back to back in the order of their creation. The administrator's series is the only one:
// two levels' blocks, of which the first are left behind.
void expect_tsdb(const reader::Tsdb& tsdb, const Configuration& expected) {
  EXPECT_EQ(tsdb.file.size(), expected.checks << 20);
  EXPECT_EQ(tsdb.block_size, expected.block_size);
  ASSERT_EQ(tsdb.set_count, expected.set_count);
  const bool has_series = expected.content == Content::complete;
  const std::uint32_t free_block = expected.first_free_block;
  const std::uint32_t series_length = (102400 + expected.block_size - 1) / expected.block_size;
  const reader::Entries entries[] = {
      {},
      {},
      {{0, {free_block, series_length, 0, 1}}, {1, {free_block + series_length, series_length, 0, 1}}},
      {{0, {4, 1}}}};
  std::uint32_t next_block = 1;
  for (std::uint32_t set = 0; set < tsdb.set_count; ++set) {
    for (const auto kind : reader::all_kinds) {
      SCOPED_TRACE("kind " + std::to_string(kind) + ", set " + std::to_string(set));
      const auto chain = tsdb.chain(kind, set);
      EXPECT_EQ(chain.blocks.size(), (expected.checks + tsdb.capacity(kind) - 1) / tsdb.capacity(kind));
      for (const std::uint32_t block : chain.blocks)
        EXPECT_EQ(block, next_block++);
      EXPECT_EQ(chain.run_count, 1U);
      EXPECT_EQ(chain.timestamp, has_series && set == 0 ? 1U : 0U);
      EXPECT_EQ(chain.used, has_series && set == 0 ? entries[kind] : reader::Entries());
    }
  }
  EXPECT_EQ(next_block, free_block);
  EXPECT_TRUE(reader::all_zero(Span(tsdb.file).subspan(24 + 64 * tsdb.set_count, 512)));
  EXPECT_TRUE(reader::all_zero(Span(tsdb.file).subspan(std::size_t{free_block} * expected.block_size)));
}

void expect_mdb(const reader::Mdb& mdb, const Configuration& expected) {
  EXPECT_EQ(mdb.journal_type, expected.journal_type);
  EXPECT_EQ(mdb.journal.size(), expected.journal_mib << 20);
  const std::size_t used = expected.content == Content::none ? 48 : mdb.journal.size() / 2;
  EXPECT_TRUE(reader::all_zero(Span(mdb.journal).subspan(used)));
  EXPECT_EQ(mdb.bitmap_first, expected.journal_type == 2 ? 1 : 1 + expected.journal_mib * 128);
  const std::uint32_t data = mdb.bitmap_first + 256;
  EXPECT_EQ(mdb.data_first, data);
  EXPECT_EQ(mdb.roots, std::vector({data, data + 1}));
  EXPECT_EQ(mdb.file.size(), (data + 128U) * 8192U);
  EXPECT_EQ(mdb.serials[0], expected.content == Content::none ? 0U : 1U);
  EXPECT_EQ(mdb.serials[1], 0U);
  if (expected.content == Content::none) {
    EXPECT_TRUE(reader::all_zero(Span(mdb.file).subspan(std::size_t{mdb.bitmap_first} * 8192)));
    return;
  }
  const Place first_place = {data + 2, 8148};
  const Place domain_place = {data + 2, 7944};
  const Place admin_place = {data + 2, 7524};
  std::map<Place, std::string> records = {{first_place, first_record}, {domain_place, root_domain}};
  std::map<Key, Place> nodes = {{{0, 1}, domain_place}, {{0, 4}, first_place}};
  std::map<Key, Place> parents = {{{0, 0}, domain_place}};
  if (expected.content == Content::complete) {
    records[admin_place] = administrator;
    nodes[{0, 6}] = admin_place;
    parents[{0, 1}] = admin_place;
  }
  const std::map<std::uint32_t, std::uint32_t> classes = {
      {data, 4}, {data + 1, 4}, {data + 2, 1}, {data + 3, 6}, {data + 4, 6}};
  EXPECT_EQ(mdb.block_classes(), classes);
  EXPECT_EQ(mdb.records(), records);
  EXPECT_EQ(mdb.index(0, data + 3), nodes);
  EXPECT_EQ(mdb.index(1, data + 4), parents);
}

using Creation = EndToEnd;

TEST_F(Creation, LeavesThreeFilesWithTheirContent) {
  std::filesystem::create_directory("db/j");
  std::filesystem::create_directory("db/t");
  for (const auto& configuration : configurations) {
    SCOPED_TRACE(configuration.arguments + configuration.answers);
    const Outcome outcome = run(configuration.arguments, configuration.answers);
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const bool apart = !configuration.answers.empty();
    const std::string journal = apart ? "j/main.odbj" : "main.odbj";
    const reader::Mdb mdb(file("main.odb"), exists(journal) ? file(journal) : Bytes());
    expect_mdb(mdb, configuration);
    if (configuration.journal_type == 2) {
      std::string path = apart ? "db/j\\main.odbj" : "db\\main.odbj";
      path.resize((path.size() + 7) / 8 * 8);
      EXPECT_EQ(mdb.journal_path, path);
    }
    expect_tsdb(reader::Tsdb(file(apart ? "t/main.tsdb" : "main.tsdb")), configuration);
    remove_files();
  }
}

TEST_F(Creation, TellsItsProgressAndKeepsTheFilesForTheirOwner) {
  using std::filesystem::perms;
  const auto earliest = std::time(nullptr);
  EXPECT_EQ(run("-d db -f").err, transcript("progress"));
  const reader::Tsdb tsdb(file("main.tsdb"));
  EXPECT_GE(tsdb.creation_time, earliest);
  EXPECT_LE(tsdb.creation_time, std::time(nullptr));
  for (const std::string name : {"main.odb", "main.odbj", "main.tsdb"}) {
    const auto rights = std::filesystem::status("db/" + name).permissions();
    EXPECT_TRUE(is_windows_program() || rights == (perms::owner_read | perms::owner_write)) << name;
  }
}

}  // namespace
