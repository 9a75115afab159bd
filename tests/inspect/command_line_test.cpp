// The program as its user meets it.

#include <algorithm>
#include <array>

#include "pair_fixture.h"
#include "program.h"

namespace inspect_test {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

TEST(Program, PrintsALineForEachFinding) {
  Pair pair;
  Outcome outcome = run({"--check", "/db"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "Check of the databases in /db\nSound.\n");
  EXPECT_THAT(outcome.err, IsEmpty());

  pair.change("main.tsdb", [](FileBytes& file) { set_word(file, 12, 7); });
  pair.change("main.odb", [](FileBytes& file) { set_word(file, 64, 5); });
  outcome = run({"/db", "--check"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out,
            "Check of the databases in /db\n"
            "damage: main.tsdb, block 0, offset 12: reserved word: found 7, expected 0\n"
            "damage: main.odb, block 0, offset 64: unused word: found 5, expected 0\n"
            "Damaged: 2 violated invariants.\n");
}

TEST(Program, SummarisesAPairOnOneScreen) {
  Pair pair;
  Outcome outcome = run({"/db"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(
      outcome.out,
      AllOf(HasSubstr("main.tsdb\n  size        "), HasSubstr(" bytes, created 2001-09-09 01:46:40 UTC\n"),
            HasSubstr("4 time series, 13 levels in"), HasSubstr("80 entries in "),
            HasSubstr("Domain 1, Host 79"), HasSubstr("serial "), HasSubstr(" (newest), 0 transactions"),
            HasSubstr(" 6 roots, "), EndsWith("Sound.\n")));
  EXPECT_LE(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 25);

  pair.change("main.tsdb", [](FileBytes& file) { set_word(file, 12, 7); });
  outcome = run({"/db"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.out,
              EndsWith("Damaged: 1 violated invariant.\nRun quenor-dbinfo --check to see what was found.\n"));
}

TEST(Program, ChecksWhatAPairStillHas) {
  for (const std::string missing : {"main.tsdb", "main.odb", "main.odbj"}) {
    Pair pair;
    pair.sim.remove_file("/db/" + missing);
    const Outcome outcome = run({"--check", "/db"});
    EXPECT_EQ(outcome.status, 2) << missing;
    EXPECT_THAT(outcome.out, HasSubstr(missing + " is missing or cannot be read: "));
    EXPECT_THAT(outcome.out, Not(HasSubstr("damage")));
  }
  Pair pair;
  pair.sim.inject({.operation = simulation::Operation::read, .path_end = "main.tsdb", .lasting = true});
  EXPECT_THAT(run({"--check", "/db"}).out,
              HasSubstr("main.tsdb is missing or cannot be read: simulated error 5\n"));
  pair.sim.clear_faults();
  pair.sim.remove_file("/db/main.odb");
  pair.change("main.tsdb", [](FileBytes& file) { set_word(file, 12, 7); });
  EXPECT_EQ(run({"--check", "/db"}).status, 1);
}

// Beside the databases first, then where the header says; a path that is given outweighs both.
TEST(Program, FindsTheJournal) {
  Pair pair;
  const FileBytes journal = pair.file("main.odbj");
  pair.sim.add_directory("/copy");
  for (const char* name : {"main.tsdb", "main.odb"})
    pair.sim.add_file(std::string("/copy/") + name, pair.file(name));
  EXPECT_THAT(run({"/copy"}).out, HasSubstr("journal /db/main.odbj\n"));
  pair.sim.add_file("/copy/main.odbj", journal);
  EXPECT_THAT(run({"/copy"}).out, HasSubstr("journal /copy\\main.odbj\n"));
  pair.sim.add_file("/elsewhere", journal);
  for (const std::vector<const char*>& words :
       std::initializer_list<std::vector<const char*>>{{"--journal", "/elsewhere", "/copy"},
                                                       {"/copy", "--journal", "/elsewhere"},
                                                       {"--journal=/elsewhere", "/copy"}})
    EXPECT_THAT(run(words).out, HasSubstr("journal /elsewhere\n"));
  const Outcome outcome = run({"/copy", "--journal-file", "/nowhere"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.out, HasSubstr("/nowhere is missing or cannot be read: "));
}

TEST(Program, HelpsAndRefuses) {
  Pair pair;
  EXPECT_THAT(run({"--help"}).out, StartsWith("Usage: quenor-dbinfo "));
  EXPECT_EQ(run({"--help"}).status, 0);
  EXPECT_THAT(run({"--version"}).out, StartsWith("quenor-dbinfo "));
  for (const char* const word : {"--help", "--version", "/db"}) {
    std::ostream full(nullptr);
    std::ostringstream err;
    EXPECT_EQ(inspect::run(std::array{word}, full, err), 4) << word;
    EXPECT_EQ(err.str(), "quenor-dbinfo: the output cannot be written\n");
  }
  const std::vector<std::pair<std::vector<const char*>, std::string>> wrong = {
      {{}, "the directory of the databases is missing"},
      {{"--check"}, "the directory of the databases is missing"},
      {{""}, "the directory of the databases is missing"},
      {{"/db", "--report", ""}, "--report needs the name of a file"},
      {{"/db", "--node="}, "--node needs the ID of a node\n"},
      {{"/db", "--nodes", "--node", "0.1"}, "--nodes shows every node, --node one: "},
      {{"/db", "--report", "-", "--json"}, "with --report - nothing else can go to standard output"},
      {{"--repair", "/db"}, "unknown option --repair"},
      {{"/db", "/other"}, "one directory is expected, not also /other"},
      {{"--journal", "/j", "/db", "/other"}, "one directory is expected, not also /other"},
      {{"/db", "--journal-file"}, "--journal-file needs the path of a journal"},
      {{"/db", "--journal-file", "/a", "--journal-file", "/b"}, "--journal-file is given twice"},
      {{"/db", "--node=0.x"}, "--node needs the ID of a node like 0.1, not 0.x"},
      {{"--", "--check", "/db"}, "one directory is expected, not also /db"},
      {{"/nowhere"}, "/nowhere: "},
      {{"/db/main.odb"}, "/db/main.odb is not a directory"},
  };
  for (const auto& [arguments, text] : wrong) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2) << text;
    EXPECT_THAT(outcome.err, HasSubstr("quenor-dbinfo: " + text));
    EXPECT_THAT(outcome.out, IsEmpty());
  }
}

}  // namespace
}  // namespace inspect_test
