// Index trees where random work does not lead: exact shapes, refusals in their own words, damaged nodes.

#include "mdb_fixture.h"
#include "metadb/objects/index_tree.h"

namespace mdb_test {
namespace {

// Entries (0, 0) → 0:0, (0, 10) → 1:1, … In blocks of 64 bytes a leaf has room for 3 entries, an internal
// node for 4 keys, and the root of the first index lies in block 24.
void fill_unique(std::uint32_t count) {
  for (std::uint32_t i = 0; i < count; ++i)
    mdb::unique_put(0, {0, i * 10}, {i, i}, false);
}
void put(std::uint32_t key) {
  mdb::unique_put(0, {0, key}, {9, 9}, false);
}
void erase(std::uint32_t key) {
  mdb::unique_delete(0, {0, key});
}

TEST(Index, RootsAreCreatedOnceWhereNothingElseLies) {
  const IndexMdb database(64);
  EXPECT_FALSE(mdb::index_create_root(24));
  set_class(26, BlockClass::used);
  expect_refusal([] { mdb::index_create_root(26); }, "fubar: Non-index node at index-block 26");
}

TEST(Index, SplitsKeepTheLargerHalfLeftAndSeparatorsFollowTheFirstKey) {
  const IndexMdb database(64);
  fill_unique(12);
  put(5);
  put(7);
  erase(60);  // renames the separator two levels above the leaf
  erase(80);
  erase(90);  // takes the leaf along
  EXPECT_TRUE(mdb::index_dump(24).starts_with(
      "Level 0: index=24 Index node: (nkeys: 1)(ptr0: 32)(key 0: 0.70 rptr=33)\n"
      "Level 1: index=32 Index node: (nkeys: 3)(ptr0: 26)(key 0: 0.10 rptr=34)(key 1: 0.20 rptr=27)"
      "(key 2: 0.40 rptr=28)\n"
      "Level 1: index=33 Index node: (nkeys: 1)(ptr0: 29)(key 0: 0.100 rptr=31)\n"
      "Level 2: index=26 Leaf node: (left: 0)(right: 34)(nkeys: 3)(key 0: 0.0->0:0)(key 1: 0.5->9:9)"
      "(key 2: 0.7->9:9)\n"
      "Level 2: index=34 Leaf node: (left: 26)(right: 27)(nkeys: 1)(key 0: 0.10->1:1)\n"))
      << mdb::index_dump(24);
  erase(70);
  EXPECT_EQ(word_of(24, 16), 70u) << "a child 0 that goes takes no separator along";
  put(75);
  EXPECT_EQ(word_of(24, 16), 75u) << "the new first key of the next leaf";
}

// Older programs may have left an empty internal node in the middle. What is looked for there gets a leaf.
TEST(Index, FirstLeafUnderAnEmptyNodeIsTiedToBothNeighbours) {
  const IndexMdb database(64);
  fill_unique(24);
  const std::uint32_t node = word_of(24, 8 + 12);
  const std::uint32_t first = word_of(node, 8), key = word_of(first, 20);
  const std::uint32_t left = word_of(first, 4);
  const std::uint32_t right = word_of(word_of(node, 8 + word_of(node, 4) * 12), 8);
  set_word(left, 8, right);
  set_word(right, 4, left);
  set_word(node, 4, 0);
  set_word(node, 8, 0);
  EXPECT_EQ(mdb::unique_search(0, {0, key}), std::nullopt);
  const std::uint32_t leaf = word_of(node, 8);
  EXPECT_EQ((std::array{word_of(left, 8), word_of(leaf, 4), word_of(leaf, 8), word_of(right, 4)}),
            (std::array{leaf, left, right, leaf}));
  put(key);
  EXPECT_EQ(mdb::unique_search(0, {0, key}), (ObjectReference{9, 9}));
}

TEST(Index, RefusalsNameWhatIsWrongAndChangeNothing) {
  const IndexMdb database(64);
  static constexpr Key same_key = {0, 1}, other = {0, 2};
  static constexpr ObjectReference data = {50, 50}, absent = {60, 60};
  const auto erase_last = [] { mdb::nonunique_delete(1, same_key, {6, 6}); };
  EXPECT_EQ(mdb::nonunique_search(1, same_key), std::nullopt);
  expect_refusal(erase_last,
                 "fubar: Non-unique index (1) deletion could not find non-empty leaf for deletion");
  fill_unique(6);
  for (std::uint32_t i = 0; i < 7; ++i)
    mdb::nonunique_insert(1, same_key, {i, i});
  EXPECT_EQ(mdb::nonunique_search(1, same_key)->data(), (ObjectReference{0, 0})) << "equal keys in order";

  constexpr std::uint32_t unique[] = {27, 28, 29}, same[] = {26, 30, 31};  // the leaves
  ASSERT_EQ(std::tuple(word_of(unique[2], 4), word_of(same[2], 4), word_of(same[0], 12)),
            std::tuple(28u, 30u, 2u));
  constexpr std::uint32_t left = 4, right = 8, count = 12, root_count = 4;
  const auto walk = [] {
    auto cursor = mdb::nonunique_search(1, same_key);
    while (!cursor->at_end())
      mdb::leaf_cursor_next(*cursor);
  };
  const std::string mismatch = "fubar: Mismatched left/right pairs found";
  struct Case {
    std::vector<std::array<std::uint32_t, 3>> damage;  // block, offset, word
    std::function<void()> call;
    std::string words;
  };
  const Case cases[] = {
      {{}, [] { put(10); }, "index_conflict: Conflict on ID 0.10 previously 1:1 new 9:9"},
      {{},
       [] { mdb::unique_put(0, other, data, true); },
       "index_noentry: Missing entry for ID 0.2 new 50:50"},
      {{}, [] { erase(5); }, "fubar: NodeId index deletion could not find element to delete"},
      {{},
       [] { mdb::nonunique_update(1, same_key, data, absent); },
       "internal: Update of non-unique index using non-existing block handle (7 candidates)"},
      {{},
       [] { mdb::nonunique_delete(1, same_key, absent); },
       "fubar: Non-unique index (1) deletion could not find element to delete"},
      {{{unique[0], count, 4}},
       [] { put(1); },
       text::concat("need_repair: Corrupt index block at ", unique[0])},
      {{{24, root_count, 5}}, [] { put(1); }, "need_repair: Corrupt index block at 24"},
      {{{unique[2], left, 25}}, [] { put(25); }, "fubar: Our right element points to a bad left element"},
      {{{unique[1], count, 1}, {unique[1], right, 24}},
       [] { erase(20); },
       "fubar: Right neighbor is not a leaf node"},
      {{{same[1], right, same[0]}, {same[0], left, same[1]}}, walk, mismatch},        // a ring of leaves
      {{{same[0], right, same[2]}, {same[2], left, same[0]}}, erase_last, mismatch},  // not the tree's order
      {{{same[0], right, 25}}, walk, "fubar: Loaded multi-leaf block not a leaf block"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(&c - cases);
    const mdb::Transaction undone_in_the_end;
    for (const auto& [block, offset, word] : c.damage)
      set_word(block, offset, word);
    expect_refusal(c.call, c.words);
  }
}

TEST(Index, StepsThatWouldBreakTheTreeAreRefused) {
  const IndexMdb database(64);
  fill_unique(5);
  constexpr Key key = {0, 1};
  const mdb::Transaction transaction;
  mdb::SearchPath path, none;
  auto found = mdb::index_search(24, {0, 0}, path, mdb::SearchMode::any);
  mdb::NodeHandle root = mdb::load_node(24);
  mdb::SearchPath beyond = path;
  beyond.set_bottom_child(7);
  const std::pair<std::function<void()>, const char*> steps[] = {
      {[&] { mdb::leaf_delete_at(std::move(found->leaf), 9, path); },
       "internal: Cannot delete index 9 in leaf with 2 elements"},
      {[&] { mdb::internal_insert(none, key, 9); }, "internal: Wanted to insert in index node with no self"},
      {[&] { mdb::internal_delete_child(none, 9); },
       "internal: Index node deletion called with empty search path"},
      {[&] { mdb::internal_delete_child(beyond, 9); },
       "internal: Cannot delete key left of key 7 in index node with 1 elements"},
      {[&] { mdb::internal_delete_child(path, 9); },
       "fubar: In index node 24 - Neither left nor right pointer of index 0 pointed to the deleted leaf "
       "(block 9)"},
      {[&] { mdb::rename_first_key(path, 9, key); },
       "internal: When fixing up first-key assumption in leaf: couldn't find ourselves..."},
      {[&] { mdb::internal_insert_at(root, key, 9, 2); },
       "internal: Index node fixed-pos. insertion in node 24 got index 2"},
      {[&] { mdb::internal_insert_at(root, key, 9, 1); },
       "fubar: Index node holds badly ordered keys - or fixed position insert had bad value (key 0.1 at "
       "index 1 of node 24). "},
  };
  for (const auto& [step, words] : steps)
    expect_refusal(step, words);
}

}  // namespace
}  // namespace mdb_test
