// The views, each against a pair whose content is known.

#include <functional>
#include <nlohmann/json.hpp>

#include "inspect/details.h"
#include "journal_writer.h"
#include "program.h"
#include "views/block_cells.h"
#include "views/node_tree.h"

namespace inspect_test {
namespace {

using inspect::NodeFacts;
using inspect::NodeKey;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::vector<const char*> all_as_json = {"--check",   "--nodes", "--chains", "--indexes",
                                              "--journal", "--json",  "/db"};

TEST(NodesView, ShowsRecordsUnderTheirParents) {
  Pair pair;
  const std::string out = run({"--nodes", "/db"}).out;
  EXPECT_THAT(out, HasSubstr("80 nodes, children under their parents\n  0.1 Domain \"node 1\", block "));
  EXPECT_THAT(out, HasSubstr("      node ID           0.1\n"
                             "      parent ID         0.0\n"
                             "      node type         1 (Domain)\n"
                             "      name              \"node 1\"\n"
                             "      property 502      false\n"
                             "      property 100      1\n"
                             "      time series       1\n"
                             "    0.40 Host \"node 40\", block "));
  const Outcome one = run({"--node=0.2", "/db"});
  EXPECT_EQ(one.status, 0);
  EXPECT_THAT(one.out,
              AllOf(HasSubstr("      property 59       1.2\n      child 0.80 Host \"node 80\"\nSound.\n"),
                    Not(HasSubstr("node 79"))));
  const auto json = nlohmann::json::parse(run({"--node=0.2", "--json", "/db"}).out);
  EXPECT_EQ(json["nodes"][0]["children"].dump(), R"([{"id":"0.80","name":"node 80","type_name":"Host"}])");
  for (const char* const form : {"--", "--json"}) {
    const Outcome none = run({"--node", "7.7", form, "/db"});
    EXPECT_EQ(none.status, 3);
    EXPECT_EQ(none.err, "quenor-dbinfo: There is no node 7.7.\n");
  }
}

// Every node once, whatever the parents say.
TEST(NodeTree, EndsInRingsAndWithoutParents) {
  const auto node = [](std::optional<NodeKey> id, std::optional<NodeKey> parent) {
    NodeFacts made;
    made.id = id;
    made.parent = parent;
    return made;
  };
  const std::vector<NodeFacts> nodes = {
      node(NodeKey{0, 5}, NodeKey{0, 4}), node(NodeKey{0, 4}, NodeKey{0, 5}),  // each other's parents
      node(NodeKey{0, 3}, NodeKey{0, 3}), node(NodeKey{0, 2}, NodeKey{9, 9}),
      node(std::nullopt, NodeKey{0, 2}),  node(NodeKey{0, 1}, NodeKey{0, 2})};
  std::vector<std::string> lines;
  for (const inspect::TreeNode& place : inspect::node_tree(nodes)) {
    lines.push_back(std::string(place.depth, ' ') + (place.node->id ? text_of(*place.node->id) : "-") + " " +
                    std::to_string(place.child_count));
  }
  EXPECT_THAT(lines, ElementsAre("0.2 2", " - 0", " 0.1 0", "0.3 0", "0.4 1", " 0.5 0"));
}

TEST(ChainsView, ShowsChainsLevelsAndSeries) {
  Pair pair;
  const std::string out = run({"--chains", "/db"}).out;
  // The blocks were taken in this order: header, then head, tail, lblock and check of each set.
  EXPECT_THAT(out, AllOf(HasSubstr("  head 0    timestamp "), HasSubstr(", 2 blocks: 1-2\n"),
                         HasSubstr("13 levels\n"), HasSubstr("4 time series\n")));
  EXPECT_THAT(out, HasSubstr("  check 0   timestamp 4, committed last, 1 block: 6\n"));
  const std::uint32_t first = word(pair.file("main.tsdb"), pair.entry(2, 3));
  EXPECT_THAT(out, HasSubstr("         3" + std::string(10 - std::to_string(first).size(), ' ') +
                             std::to_string(first) + "         2         2         1"));
  EXPECT_THAT(out, HasSubstr("  check ID 1, datatype 2, levels 6 5 4\n"));
}

TEST(IndexesView, ShowsEveryEntryBelowItsLeaf) {
  Pair pair;
  const std::string out = run({"--indexes", "/db"}).out;
  for (const std::uint32_t number : {1U, 40U, 80U}) {
    const std::uint64_t object = pair.object_of(number);
    std::string key = "0." + std::to_string(number);
    key.resize(23, ' ');
    EXPECT_THAT(out, HasSubstr("      " + key + "block " + std::to_string(object / block_size) + ", offset " +
                               std::to_string(object % block_size) + "\n"));
  }
  EXPECT_THAT(out, HasSubstr("Index 1, root block " + std::to_string(pair.root(1) / block_size) + ": "));
}

TEST(JournalView, SaysWhatAReplayWouldDo) {
  Pair pair;
  std::uint64_t start = 0;
  pair.change("main.odbj", [&](FileBytes& journal) {
    start = half_start(journal, newest_half(journal));
    JournalWriter(journal).transaction().begin().update().update(some_data + 512).end().transaction().tear();
  });
  const std::string at = std::to_string(start);
  const std::string out = run({"--journal", "/db"}).out;
  EXPECT_THAT(out, HasSubstr("    " + at + ": transaction of serial "));
  EXPECT_THAT(out, AllOf(HasSubstr("1 update, up to " + std::to_string(start + 48) + ", replayed\n      " +
                                   std::to_string(start + 16) + ": 4 bytes to block 60, offset 0\n"),
                         HasSubstr(": 4 bytes to block 61, offset 0\n"), HasSubstr(", torn\n"),
                         HasSubstr("  replay: 2 transactions, 3 updates, 12 bytes in 2 blocks\n")));
  EXPECT_THAT(run({"--journal", "--json", "/db"}).out,
              AllOf(HasSubstr("\"path\": \"/db\\\\main.odbj\",\n    \"length_bytes\": "),
                    HasSubstr("\"replayed_bytes\": 12,\n    \"replayed_blocks\": 2\n"),
                    HasSubstr("\"end\": \"torn\""), HasSubstr("\"fate\": \"replayed\""),
                    HasSubstr("\"target_block\": 61, \"target_offset\": 0, \"length\": 4}")));
}

// What stands in the newest half, and what the view says of its last transaction.
struct Ending {
  std::string fate;
  std::string end;
  std::function<void(JournalWriter&)> write;
};

TEST(JournalView, NamesEveryFateAndEnd) {
  Pair pair;
  const FileBytes empty = pair.file("main.odbj");
  const std::uint64_t other = half_start(empty, 1 - newest_half(empty));
  const Ending endings[] = {
      {"begun", "begun", [](auto& w) { w.begin(); }},
      {"does not fit", "past the mapped blocks", [](auto& w) { w.transaction(0x7000'0000'0000); }},
      {"replayed", "redirected", [&](auto& w) { w.transaction().redirect(other); }},
      {"replayed", "stale entries",
       [](auto& w) {
         w.transaction();
         w.serial -= 2;
         w.transaction();
       }},
  };
  for (const Ending& ending : endings) {
    SCOPED_TRACE(ending.end);
    pair.change("main.odbj", [&](FileBytes& journal) {
      JournalWriter writer(journal);
      ending.write(writer);
    });
    const std::string text = run({"--journal", "/db"}).out;
    EXPECT_THAT(text, AllOf(HasSubstr(", " + ending.fate + "\n"), HasSubstr(": " + ending.end + "\n")));
    const std::string json = run({"--journal", "--json", "/db"}).out;
    EXPECT_THAT(json, AllOf(HasSubstr("\"fate\": \"" + ending.fate + "\""),
                            HasSubstr("\"end\": \"" + ending.end + "\"")));
    pair.sim.set_contents("/db/main.odbj", empty);
  }
}

TEST(JournalView, ShowsThatTheOlderHalfIsSuperseded) {
  Pair pair;
  pair.change("main.odbj", [](FileBytes& journal) {
    const unsigned older = 1 - newest_half(journal);
    JournalWriter(journal, older, bytes::load_u64(journal, pointer_of(older))).transaction();
  });
  EXPECT_THAT(run({"--journal", "/db"}).out,
              AllOf(HasSubstr(", superseded\n"),
                    HasSubstr("replay: 0 transactions, 0 updates, 0 bytes in 0 blocks\n")));
}

TEST(JsonView, HasAMemberForEachView) {
  Pair pair;
  const std::string out = run(all_as_json).out;
  EXPECT_TRUE(nlohmann::json::accept(out));
  for (const char* key : {"findings", "nodes", "chains", "indexes", "journal"})
    EXPECT_THAT(out, HasSubstr("\n  \"" + std::string(key) + "\": "));
  EXPECT_THAT(out, Not(HasSubstr("\"summary\"")));
  EXPECT_THAT(out, HasSubstr("{\"id\": 51, \"name\": \"name\", \"type_code\": 3, \"type\": \"text\", "
                             "\"marked\": false, \"value\": \"node 40\"}"));
  EXPECT_THAT(out, HasSubstr("{\"check_id\": 1, \"datatype\": 2, \"levels\": [6, 5, 4]}"));
  const std::string summary = run({"--json", "/db"}).out;
  EXPECT_TRUE(nlohmann::json::accept(summary));
  EXPECT_THAT(summary, AllOf(HasSubstr("\"records_by_type\": {\"Domain\": 1, \"Host\": 79}"),
                             HasSubstr("\"verdict\": \"sound\"")));
  pair.sim.remove_file("/db/main.odb");
  EXPECT_THAT(run({"--json", "/db"}).out, HasSubstr("\"mdb\": null"));
}

// A value whose type code means nothing is shown as it stands.
TEST(Views, ShowBytesOfUnknownTypesAndMarks) {
  Pair pair;
  pair.change("main.odb", [&](FileBytes& file) {
    set_word(file, pair.property_of(10, 100) + 8, 77);
    set_word(file, pair.property_of(10, 2601) + 8, 0x8000'0009);
  });
  const Outcome text = run({"--node", "0.10", "/db"});
  EXPECT_EQ(text.status, 1);
  EXPECT_THAT(text.out, AllOf(HasSubstr("property 100      bytes 0000000a of type 77\n"),
                              HasSubstr("time series       10, marked\n"),
                              HasSubstr("Damaged: 1 violated invariant.\n")));
  EXPECT_THAT(run({"--node", "0.10", "--json", "/db"}).out,
              AllOf(HasSubstr("\"type_code\": 77, \"type\": null, \"marked\": false, "
                              "\"value\": {\"hex\": \"0000000a\"}}"),
                    HasSubstr("\"marked\": true, \"value\": 10}")));
}

// A tree of three levels in the page: its boxes are all there, each over its leaves.
TEST(Report, DrawsTreesOfSeveralLevels) {
  Pair pair({.nodes = 1'600, .map_blocks = 4});
  const inspect::IndexFacts tree = pair.inspect().mdb->indexes[0];
  const std::string page = run({"--report", "-", "/db"}).out;
  const std::uint32_t depth = tree.nodes.back().depth;
  ASSERT_EQ(depth, 2U);
  EXPECT_THAT(page, HasSubstr("\"trees\":[[[[0," + std::to_string(tree.leaf_count) + ",1," +
                              std::to_string(tree.nodes.front().key_count) + ","));
  EXPECT_THAT(page, HasSubstr("\"nodes\":{\"node_count\":1600,\"shown\":[[0,"));
}

// A name that would end the page's script, ring the terminal's bell, and is no text.
TEST(Views, EscapeWhatTheFilesHold) {
  Pair pair;
  const std::string name = "</script>\a\"\xFF";
  pair.change("main.odb", [&](FileBytes& file) {
    const std::uint64_t value = pair.property_of(10, 51) + 12;
    const std::uint32_t entry_bytes = word(file, value - 8);
    ASSERT_EQ(entry_bytes, 24U);
    std::ranges::transform(name.substr(0, 11), file.begin() + static_cast<std::ptrdiff_t>(value),
                           [](char c) { return static_cast<std::byte>(c); });
    file[value + 7] = std::byte{0xFF};
    file[value + 11] = std::byte{0};
  });
  EXPECT_THAT(run({"--node", "0.10", "/db"}).out, HasSubstr("name              \"</scrip\\xff>\\x07\""));
  const std::string json = run({"--node", "0.10", "--json", "/db"}).out;
  EXPECT_TRUE(nlohmann::json::accept(json));
  EXPECT_THAT(json, HasSubstr("\"\\u003c/scrip\\ufffd>\\u0007\\\"\""));
  EXPECT_THAT(run({"--report", "-", "/db"}).out,
              AllOf(Not(HasSubstr("</scrip\xFF")), HasSubstr("\\u003c/scrip\\ufffd>")));
}

TEST(Report, IsWrittenToANewFileOnly) {
  Pair pair;
  const Outcome outcome = run({"--report", "/db/page.html", "/db"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, IsEmpty());
  const FileBytes page = pair.file("page.html");
  EXPECT_EQ(page.size(), run({"--report", "-", "/db"}).out.size());
  pair.sim.clear_events();
  const Outcome again = run({"--report", "/db/page.html", "/db"});
  EXPECT_EQ(again.status, 4);
  EXPECT_EQ(pair.sim.count(simulation::Operation::open), 0U) << "it says so before it looks at the databases";
  EXPECT_THAT(again.err, HasSubstr("quenor-dbinfo: /db/page.html cannot be written: "));
  EXPECT_EQ(pair.file("page.html"), page);
  // Part of it can be written, then no more.
  pair.sim.inject({.operation = simulation::Operation::write, .path_end = "full.html", .transfer_limit = 9});
  pair.sim.inject(
      {.operation = simulation::Operation::write, .path_end = "full.html", .occurrence = 2, .lasting = true});
  EXPECT_EQ(run({"--report", "/db/full.html", "/db"}).status, 4);
  EXPECT_FALSE(pair.sim.has_file("/db/full.html"));
}

std::string cells_as_json(inspect::BlockCells& cells) {
  std::ostringstream out;
  inspect::JsonWriter json(out, 0);
  cells.write(json);
  return out.str();
}

TEST(BlockCells, CountEveryBlockOnce) {
  inspect::BlockCells cells(10, {"a", "b", "rest"});
  cells.add(1, 4, 0);
  cells.add(3, 3, 1);  // of which one is new
  cells.add(8, 9, 1);  // of which two are there
  EXPECT_EQ(cells_as_json(cells), R"({"block_count":10,"per_cell":1,"uses":["a","b","rest"],)"
                                  R"("cells":[[1,2,1],[4,0,1],[1,1,1],[2,2,1],[2,1,1]]})");
}

TEST(BlockCells, StaySmallForMillionsOfBlocks) {
  inspect::BlockCells cells(5'000'000, {"a", "b", "rest"});
  for (std::uint64_t block = 0; block < 5'000'000; block += 7)
    cells.add(block, block % 5, block % 2);
  const std::string json = cells_as_json(cells);
  EXPECT_THAT(json, HasSubstr("\"per_cell\":2048,"));
  EXPECT_LT(json.size(), 150'000U);
}

}  // namespace
}  // namespace inspect_test
