// Files that hold anything at all: the inspection ends, with findings or without, and with bounded effort.

#include <nlohmann/json.hpp>
#include <random>

#include "damage.h"
#include "journal_writer.h"
#include "program.h"

namespace inspect_test {
namespace {

class Hostile : public testing::TestWithParam<bool> {
 protected:
  Hostile() : pair_({.internal_journal = GetParam()}) {
    for (const char* name : {"main.tsdb", "main.odb", "main.odbj"}) {
      if (pair_.sim.has_file(std::string("/db/") + name))
        files_.emplace_back(name, pair_.file(name));
    }
  }

  Pair pair_;
  std::vector<std::pair<std::string, FileBytes>> files_;
};

// Inspects with all details and shows them in every way.
void show_everything() {
  const Outcome text = run({"--check", "--nodes", "--chains", "--indexes", "--journal", "/db"});
  EXPECT_LE(text.status, 2);
  const Outcome json = run({"--check", "--nodes", "--chains", "--indexes", "--journal", "--json", "/db"});
  EXPECT_TRUE(nlohmann::json::accept(json.out)) << json.out;
  const std::string page = run({"--report", "-", "/db"}).out;
  const std::string marker = "id=\"facts\">";
  const std::size_t facts = page.find(marker) + marker.size();
  const std::string_view shown = std::string_view(page).substr(facts, page.find("</script>", facts) - facts);
  EXPECT_TRUE(nlohmann::json::accept(shown)) << shown;
}

// Values that sizes, numbers and places are most easily mistaken about.
constexpr std::uint32_t words[] = {0,           1,           2,           7,           255,        512,
                                   0x7FFF'FFFF, 0x8000'0000, 0xFFFF'FFFE, 0xFFFF'FFFF, 0x0100'0000};

TEST_P(Hostile, WordsDoNoHarm) {
  std::mt19937_64 random(20'261);
  for (int round = 0; round < 1'200; ++round) {
    const auto& [name, bytes] = files_[random() % files_.size()];
    pair_.change(name, [&](FileBytes& file) {
      // Most of them where structure is dense: in the headers and behind the starts of blocks.
      for (std::uint64_t count = 1 + random() % 4; count > 0; --count) {
        std::uint64_t offset = random() % file.size() / 4 * 4;
        if (random() % 2 == 0)
          offset = offset / block_size * block_size + random() % 16 * 4;
        set_word(file, offset, words[random() % std::size(words)]);
      }
    });
    if (round % 4 == 0) {
      show_everything();
    } else {
      (void)pair_.inspect();
    }
    if (random() % 4 == 0) {
      for (const auto& [restored, sound] : files_)
        pair_.sim.set_contents("/db/" + restored, sound);
    }
  }
}

TEST_P(Hostile, EveryLengthDoesNoHarm) {
  for (const auto& [name, bytes] : files_) {
    const std::size_t step = bytes.size() / 40 + 13;
    for (std::size_t length = 0; length < bytes.size(); length += length < 100 ? 7 : step) {
      pair_.change(name, [&, length](FileBytes& file) { file.resize(length); });
      show_everything();
      pair_.sim.set_contents("/db/" + name, bytes);
    }
  }
  expect_sound(pair_.inspect());
}

INSTANTIATE_TEST_SUITE_P(InternalJournal, Hostile, testing::Bool());

// Nested begin entries that all run into the same long row of updates: the search behind a torn transaction
// gives up in time.
TEST(HostileJournal, EndsTheSearchForLaterTransactions) {
  Pair pair;
  pair.change("main.odbj", [](FileBytes& journal) {
    const std::uint64_t serial = JournalWriter(journal).serial;
    journal.resize(16 << 20);
    write_all(journal, with_crc(pointer_of(0), serial, 48));
    write_all(journal,
              with_crc(pointer_of(1), serial - 1, static_cast<std::uint32_t>(half_start(journal, 1))));
    JournalWriter writer(journal, 0, serial);
    writer.begin();
    // Each update is 40 bytes long and ends with a begin entry, for which the next update is the first.
    for (std::uint64_t at = writer.position(); at + 40 < journal.size() / 2; at += 40) {
      write_all(
          journal,
          {{at, bytes::magic("TUPD")}, {at + 4, 20}, {at + 24, bytes::magic("TBEG")}, {at + 32, serial, 8}});
    }
  });
  const inspect::Inspection inspection = pair.inspect();
  expect_sound(inspection);
  EXPECT_THAT(lines_of(inspection, inspect::Severity::note),
              testing::Contains(testing::HasSubstr("the last transaction is torn")));
}

TEST(HostileReport, KeepsNoMoreFindingsThanTheFilesWarrant) {
  Pair pair;
  pair.change("main.odb", [&](FileBytes& file) {
    file.resize(512 * block_size);
    for (std::uint32_t block = pair.shape.data_first(); block < 512; ++block) {
      file[pair.class_byte(block)] = std::byte{1};
      for (std::uint64_t offset = 0; offset < block_size; offset += 4)
        set_word(file, std::uint64_t{block} * block_size + offset, 4);  // the smallest live object
    }
  });
  const inspect::Inspection inspection = pair.inspect();
  EXPECT_EQ(inspection.report.findings().size(),
            inspect::Report::default_limit + inspection.report.damage_count())
      << "notes leave room for damage";
  EXPECT_GT(inspection.report.omitted_count(), 50'000U);
}

}  // namespace
}  // namespace inspect_test
