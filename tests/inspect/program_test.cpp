// The program as its user meets it, and what it makes of pairs that are sound.

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>

#include "inspect/command_line.h"
#include "journal_writer.h"
#include "nodemodel/node_lookup.h"

namespace inspect_test {
namespace {

using simulation::Operation;
using testing::AllOf;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

// A pair with a bit of everything: a value of an unknown type, a marked one, a name that would end the page's
// script, rings the terminal's bell and is no text, and transactions of several kinds.
struct StrangePair : Pair {
  StrangePair() : Pair({.nodes = 10}) {
    constexpr std::uint64_t node_10 = 18 * block_size + 324, name = node_10 + 80;
    change("main.odb", [=](FileBytes& file) {
      write_all(file, {{node_10 + 116, 77}, {node_10 + 132, 0x8000'0009}});
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

// What a file beside the tests holds.
std::string expected(const std::string& name) {
  std::ifstream file(QUENOR_EXPECTED "/" + name, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

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
  expect_sound(inspection);
  EXPECT_THAT(inspection.report.findings(), IsEmpty());
  for (const Operation operation :
       {Operation::write, Operation::sync, Operation::map, Operation::create, Operation::remove})
    EXPECT_EQ(pair.sim.count(operation), 0U);
}

TEST(SoundPair, MayHaveTreesOfSeveralLevels) {
  Pair pair({.nodes = 1'600, .map_blocks = 4});
  const inspect::IndexFacts tree = Pair::inspect().mdb->indexes[0];
  ASSERT_EQ(tree.nodes.back().depth, 2U);
  // In the page each of its boxes stands over its leaves.
  const std::string page = run({"--report", "-", "/db"}).out;
  EXPECT_THAT(page, HasSubstr(text::concat("\"trees\":[[[[0,", tree.leaf_count, ",1,",
                                           tree.nodes.front().key_count, ",")));
  EXPECT_THAT(page, HasSubstr("\"nodes\":{\"node_count\":1600,\"shown\":[[0,"));
  Pair::open_mdb();
  // From the middle outwards, so that leaves and nodes in the middle of the trees go.
  for (std::uint32_t number = 500; number < 1'200; number += 2)
    mdb::node_erase(mdb::node_find({0, number}).value());
  mdb_test::close_mdb();
  expect_sound(Pair::inspect());
  EXPECT_EQ(Pair::inspect().mdb->indexes[0].entry_count, 1'250U);
}

Writes writes_of(std::istream& words) {
  Writes writes;
  std::uint64_t block = 0, offset = 0, value = 0;
  for (char mark = 0; words >> block >> mark >> offset >> mark >> value;) {
    writes.push_back({block * block_size + offset, value});
    if (words.peek() == '/')
      words >> mark >> writes.back().size;
  }
  return writes;
}

// The first twelve lines behind the headline, and the last.
std::string shortened(const std::string& text) {
  std::istringstream lines(text);
  std::string shorter, last;
  std::getline(lines, last);
  for (int number = 0; std::getline(lines, last); ++number)
    shorter += number < 12 ? last + '\n' : lines.peek() == EOF ? "...\n" + last + '\n' : "";
  return shorter;
}

// A text tells what is done to a pair, and what the program says then:
//   @ 80 external           a new pair of so many nodes, its journal external or internal
//   ! main.odb 3:24=7 ...   words written at BLOCK:OFFSET, "/1" or "/8" behind one of another size; what
//                           --check says, the first lines and the last, and what the opening throws; then
//                           all is as before
//   = main.odb 3:24=7 ...   words that stay
//   - main.odb              the file is gone
//   + main.odb /copy/a.odb  it is copied
//   $ --check /db           a run, and its status
std::string play(const std::string& script) {
  std::istringstream lines(script);
  std::unique_ptr<Pair> pair;
  std::string told;
  for (std::string line; std::getline(lines, line);) {
    if (line.size() < 2 || line[1] != ' ' || std::string_view("#@!=-+$").find(line[0]) == std::string::npos)
      continue;
    told += line + '\n';
    std::istringstream rest(line.substr(2));
    const auto word = [&rest] { return *std::istream_iterator<std::string>(rest); };
    if (line[0] == '@') {
      pair.reset();
      const auto nodes = static_cast<std::uint32_t>(std::stoul(word()));
      pair = std::make_unique<Pair>(Shape{.internal_journal = word() == "internal", .nodes = nodes});
      pair->sim.add_directory("/copy");
    } else if (line[0] == '$') {
      std::vector<std::string> words(std::istream_iterator<std::string>(rest), {});
      std::vector<const char*> arguments;
      for (const std::string& argument : words)
        arguments.push_back(argument.c_str());
      const Outcome outcome = run(arguments);
      told += text::concat(outcome.out, outcome.err, "[", outcome.status, "]\n");
    } else if (line[0] == '-') {
      pair->sim.remove_file("/db/" + word());
    } else if (line[0] == '+') {
      const FileBytes bytes = pair->file(word());
      pair->sim.add_file(word(), bytes);
    } else if (line[0] != '#') {
      const std::string name = word();
      if (line[0] == '=') {
        pair->change(name, writes_of(rest));
        continue;
      }
      std::map<std::string, FileBytes> before;
      for (const std::string& file : {name, std::string("main.odb"), std::string("main.odbj")}) {
        if (pair->sim.has_file("/db/" + file))
          before[file] = pair->file(file);
      }
      pair->change(name, writes_of(rest));
      told += shortened(run({"--check", "/db"}).out);
      support::LogCapture::take();
      if (const std::string thrown = support::thrown_by(Pair::open_mdb); thrown != "nothing")
        told += "opening: " + thrown + '\n';
      for (const std::string& logged : support::LogCapture::take())
        told += logged.find("DATA LOSS") != std::string::npos ? "log: " + logged + '\n' : "";
      support::drop_databases();
      for (const auto& [file, bytes] : before)
        pair->sim.set_contents("/db/" + file, bytes);
    }
  }
  return told;
}

TEST(Sessions, GoAsTold) {
  for (const std::string name : {"damage", "program"}) {
    const std::string session = expected("sessions/" + name + ".txt");
    EXPECT_EQ(play(session), session) << name;
  }
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
