// The program as its user meets it: what it shows, and its exit status.

#include <algorithm>
#include <array>
#include <fstream>
#include <sstream>

#include "inspect/command_line.h"
#include "journal_writer.h"

namespace inspect_test {
namespace {

using simulation::Operation;
using testing::AllOf;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

// What a file of shown/ holds.
std::string expected(const std::string& name) {
  std::ifstream file(QUENOR_SHOWN "/" + name, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// A pair with a bit of everything: a value of an unknown type, a marked one, a name that would end the page's
// script, rings the terminal's bell and is no text, and transactions of several kinds.
struct StrangePair : Pair {
  StrangePair() : Pair({.nodes = 10}) {
    const std::uint64_t type = property_of(10, 100) + 8, mark = property_of(10, 2601) + 8;
    const std::uint64_t name = property_of(10, 51) + 12;
    change("main.odb", [=](FileBytes& file) {
      write_all(file, {{type, 77}, {mark, 0x8000'0009}});
      std::ranges::copy(std::as_bytes(std::span("</scrip\xFF>\a\"")), file.begin() + static_cast<int>(name));
    });
    change("main.odbj", [](FileBytes& journal) {
      JournalWriter writer(journal);
      writer.transaction().begin().update().update(0, some_data + 512).end().transaction().tear();
      const unsigned older = 1 - writer.half;
      writer.enter(older, writer.serial_of(older)).transaction();
    });
  }
};

TEST(Program, ShowsAllThatThePairHolds) {
  const StrangePair pair;
  const struct {
    std::string name;
    std::vector<const char*> arguments;
  } views[] = {
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
    EXPECT_EQ(outcome.out, expected(name)) << name;
    EXPECT_THAT(outcome.err, IsEmpty());
  }
  EXPECT_THAT(run({"--report", "-", "/db"}).out,
              AllOf(Not(HasSubstr("</scrip\xFF")), HasSubstr("\\u003c/scrip\\ufffd>")));
}

TEST(Program, EndsWithAStatusForWhatIsThere) {
  Pair pair;
  const auto check = [] { return run({"--check", "/db"}); };
  EXPECT_EQ(check().status, 0);
  EXPECT_EQ(check().out, "Check of the databases in /db\nSound.\n");
  for (const std::string form : {"--", "--json"}) {
    const Outcome none = run({"--node", "7.7", form.c_str(), "/db"});
    EXPECT_EQ(none.status, 3);
    EXPECT_EQ(none.err, "quenor-dbinfo: There is no node 7.7.\n");
  }
  for (const std::string missing : {"main.tsdb", "main.odb", "main.odbj"}) {
    const FileBytes bytes = pair.file(missing);
    pair.sim.remove_file("/db/" + missing);
    EXPECT_EQ(check().status, 2) << missing;
    EXPECT_THAT(check().out,
                AllOf(HasSubstr(missing + " is missing or cannot be read: "), Not(HasSubstr("damage"))));
    pair.sim.add_file("/db/" + missing, bytes);
  }
  pair.sim.inject({.operation = Operation::read, .path_end = "main.tsdb", .lasting = true});
  EXPECT_THAT(check().out, HasSubstr("main.tsdb is missing or cannot be read: simulated error 5\n"));
  pair.sim.clear_faults();
  pair.change("main.tsdb", Writes{{12, 7}});
  pair.sim.remove_file("/db/main.odb");
  EXPECT_EQ(check().status, 1) << "damage outweighs a file that is missing";
  EXPECT_THAT(run({"--json", "/db"}).out, HasSubstr("\"mdb\": null"));
}

// Every node once, whatever the parents say.
TEST(Program, ShowsNodesInARing) {
  Pair pair;
  pair.change("main.odb", Writes{{pair.property_of(4, 2) + 16, 40}, {pair.property_of(80, 2) + 16, 80}});
  const std::string out = run({"--nodes", "/db"}).out;
  EXPECT_THAT(out,
              AllOf(HasSubstr("\n  0.4 Host"), HasSubstr("\n    0.40 Host"), HasSubstr("\n  0.80 Host")));
  std::istringstream lines(out);
  int count = 0;
  for (std::string line; std::getline(lines, line);)
    count += line.find("\", block ") != std::string::npos ? 1 : 0;
  EXPECT_EQ(count, 80);
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
  for (const auto& words : {std::vector{"--journal", "/elsewhere", "/copy"},
                            {"/copy", "--journal", "/elsewhere"},
                            {"--journal=/elsewhere", "/copy"}})
    EXPECT_THAT(run(words).out, HasSubstr("journal /elsewhere\n"));
  const Outcome outcome = run({"/copy", "--journal-file", "/nowhere"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.out, HasSubstr("/nowhere is missing or cannot be read: "));
}

TEST(Program, HelpsAndRefuses) {
  const Pair pair;
  EXPECT_THAT(run({"--help"}).out, StartsWith("Usage: quenor-dbinfo "));
  for (const char* const word : {"--help", "--version", "/db"}) {
    EXPECT_EQ(run({word}).status, 0);
    std::ostream full(nullptr);
    std::ostringstream err;
    EXPECT_EQ(inspect::run(std::array{word}, full, err), 4) << word;
    EXPECT_EQ(err.str(), "quenor-dbinfo: the output cannot be written\n");
  }
  const std::pair<std::vector<const char*>, std::string> wrong[] = {
      {{"--check"}, "the directory of the databases is missing"},
      {{"/db", "--report", ""}, "--report needs the name of a file"},
      {{"/db", "--node="}, "--node needs the ID of a node\n"},
      {{"/db", "--nodes", "--node", "0.1"}, "--nodes shows every node, --node one: "},
      {{"/db", "--report", "-", "--json"}, "with --report - nothing else can go to standard output"},
      {{"--repair", "/db"}, "unknown option --repair"},
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
      file[pair.class_byte(block)] = std::byte{1};
    for (std::uint64_t at = pair.root(0); at < file.size(); at += 4)
      store_u32(file, at, 4);  // the smallest live object
  });
  const inspect::Inspection inspection = Pair::inspect();
  EXPECT_EQ(inspection.report.findings().size(),
            inspect::Report::default_limit + inspection.report.damage_count())
      << "notes leave room for damage";
  EXPECT_GT(inspection.report.omitted_count(), 50'000U);
}

}  // namespace
}  // namespace inspect_test
