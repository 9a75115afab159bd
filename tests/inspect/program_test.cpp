// The program as its user meets it, and what it makes of pairs that are sound.

#include <algorithm>
#include <array>
#include <sstream>

#include "inspect/command_line.h"
#include "journal_writer.h"

namespace inspect_test {
namespace {

using simulation::Operation;
using testing::AllOf;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;

// A pair with a bit of everything: a value of an unknown type, a marked one, a name that would end the page's
// script, rings the terminal's bell and is no text, and transactions of several kinds.
struct StrangePair : Pair {
  StrangePair() : Pair(10) {
    constexpr std::uint64_t node_10 = 18 * block_size + 324, name = node_10 + 80;
    change("main.odb", [=](FileBytes& file) {
      write_all(file, {{node_10 + 116, 77}, {node_10 + 132, 0x8000'0009}});
      std::ranges::copy(std::as_bytes(std::span("</scrip\xFF>\a\"")), file.begin() + static_cast<int>(name));
    });
    change("main.odbj", [](FileBytes& journal) {
      JournalWriter writer(journal);
      writer.write("transaction begin update update:0:46592 end transaction tear");
      const std::uint64_t older = 1 - writer.half;
      writer.write(text::concat("enter:", older, ':', writer.serial_of(older), " transaction"));
    });
  }
};

TEST(Program, ShowsAllThatThePairHolds) {
  const StrangePair pair;
  const std::pair<std::string, std::vector<const char*>> views[] = {
      {"summary.txt", {"/db"}},
      {"summary.json", {"--json", "/db"}},
      {"node.txt", {"--node=0.10", "/db"}},
      {"node.json", {"--node", "0.1", "--json", "/db"}},
      {"details.txt", {"--check", "--nodes", "--chains", "--indexes", "--journal", "/db"}},
      {"details.json", {"/db", "--check", "--nodes", "--chains", "--indexes", "--journal", "--json"}},
  };
  for (const auto& [name, arguments] : views) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 1) << name;
    EXPECT_EQ(outcome.out, expected("shown/" + name)) << name;
    EXPECT_THAT(outcome.err, IsEmpty());
  }
  EXPECT_THAT(run({"--report", "-", "/db"}).out,
              AllOf(Not(HasSubstr("</scrip\xFF")), HasSubstr("\\u003c/scrip\\ufffd>")));
}

TEST(SoundPair, HasNoFindingsAndIsNotTouched) {
  Pair pair;
  pair.sim.clear_events();
  const inspect::Inspection inspection = Pair::inspect();
  EXPECT_EQ(inspection.verdict(), inspect::Verdict::sound);
  EXPECT_THAT(inspection.report.findings(), IsEmpty());
  for (const Operation operation :
       {Operation::write, Operation::sync, Operation::map, Operation::create, Operation::remove})
    EXPECT_EQ(pair.sim.count(operation), 0U);
}

TEST(SoundPair, MayHaveTreesOfSeveralLevels) {
  const Pair pair(1'600, false, 4);
  const inspect::IndexFacts tree = Pair::inspect().mdb->indexes[0];
  ASSERT_EQ(tree.nodes.back().depth, 2U);
  // In the page each of its boxes stands over its leaves.
  const std::string page = run({"--report", "-", "/db"}).out;
  EXPECT_THAT(page, HasSubstr(text::concat("\"trees\":[[[[0,", tree.leaf_count, ",1,",
                                           tree.nodes.front().key_count, ",")));
  EXPECT_THAT(page, HasSubstr("\"nodes\":{\"node_count\":1600,\"shown\":[[0,"));
}

TEST(Journal, MayBeTooShortForItsHeader) {
  Pair pair;
  pair.change("main.odbj", [](FileBytes& file) { file.resize(40); });
  EXPECT_THAT(lines_of(Pair::inspect()), Contains(HasSubstr("journal header: found 40 bytes")));
}

// Files that hold anything at all are looked at with bounded effort. Here nested begin entries all run into
// the same long row of updates: the search behind a torn transaction gives up in time.
TEST(Journal, SearchForLaterTransactionsEnds) {
  Pair pair;
  pair.change("main.odbj", [](FileBytes& journal) {
    const std::uint64_t serial = JournalWriter(journal).serial;
    journal.resize(16 << 20);
    JournalWriter writer(journal);
    writer.write(text::concat("enter:1:", serial - 1, " pointer enter:0:", serial, " pointer begin"));
    // Each update is 40 bytes long and ends with a begin entry, for which the next update is the first.
    for (std::uint64_t at = writer.position; at + 40 < journal.size() / 2; at += 40) {
      write_all(
          journal,
          {{at, bytes::magic("TUPD")}, {at + 4, 20}, {at + 24, bytes::magic("TBEG")}, {at + 32, serial, 8}});
    }
  });
  EXPECT_THAT(lines_of(support::expect_sound()), Contains(HasSubstr("the last transaction is torn")));
}

TEST(Program, SaysWhenItsOutputCannotBeWritten) {
  const Pair pair;
  for (const char* const word : {"--help", "--version", "/db"}) {
    EXPECT_EQ(run({word}).status, 0);
    std::ostream full(nullptr);
    std::ostringstream err;
    EXPECT_EQ(inspect::run(std::array{word}, full, err), 4) << word;
    EXPECT_EQ(err.str(), "quenor-dbinfo: the output cannot be written\n");
  }
}

TEST(Report, IsWrittenToANewFileOnly) {
  Pair pair;
  EXPECT_EQ(run({"--report", "/db/page.html", "/db"}).status, 0);
  const FileBytes page = pair.file("page.html");
  EXPECT_EQ(page.size(), run({"--report", "-", "/db"}).out.size());
  pair.sim.clear_events();
  const Outcome again = run({"--report", "/db/page.html", "/db"});
  EXPECT_EQ(again.status, 4);
  EXPECT_EQ(pair.sim.count(Operation::open), 0U) << "it says so before it looks at the databases";
  EXPECT_THAT(again.err, HasSubstr("quenor-dbinfo: /db/page.html cannot be written: "));
  EXPECT_EQ(pair.file("page.html"), page);
  // Part of it can be written, then no more.
  pair.sim.inject({.operation = Operation::write, .path_end = "full.html", .transfer_limit = 9});
  pair.sim.inject({.operation = Operation::write, .path_end = "full.html", .occurrence = 2, .lasting = true});
  EXPECT_EQ(run({"--report", "/db/full.html", "/db"}).status, 4);
  EXPECT_FALSE(pair.sim.has_file("/db/full.html"));
}

TEST(Report, KeepsNoMoreFindingsThanTheFilesWarrant) {
  Pair pair;
  pair.change("main.odb", [&](FileBytes& file) {
    file.resize(512 * block_size);
    for (std::uint32_t block = pair.shape.data_first(); block < 512; ++block)
      file[pair.shape.map_first() * block_size + block] = std::byte{1};
    for (std::uint64_t at = pair.shape.data_first() * block_size; at < file.size(); at += 4)
      bytes::store_u32(file, at, 4);  // the smallest live object
  });
  const inspect::Inspection inspection = Pair::inspect();
  EXPECT_EQ(inspection.report.findings().size(),
            inspect::Report::default_limit + inspection.report.damage_count())
      << "notes leave room for damage";
  EXPECT_GT(inspection.report.omitted_count(), 50'000U);
}

}  // namespace
}  // namespace inspect_test
