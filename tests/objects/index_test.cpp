// Index trees where random work does not lead: exact shapes, refusals in their own words, damaged nodes.

#include <functional>

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

using Call = std::function<void()>;

// The call is refused in these words and changes nothing.
void expect_refusal(const Call& call, std::string_view words) {
  const Bytes before = contents();
  EXPECT_EQ(thrown_by(call), words);
  EXPECT_TRUE(contents() == before) << words;
}

void expect_refusals(const std::vector<std::pair<Call, std::string_view>>& refusals) {
  for (const auto& [call, words] : refusals)
    expect_refusal(call, words);
}

TEST(Index, RootsAreCreatedOnceAndLeaveOtherBlocksAlone) {
  EXPECT_EQ(thrown_by(mdb::index_init),
            "internal: Index initialization attempted before MDB was initialized");
  {
    TestMdb one_root({.index_count = 1});
    EXPECT_EQ(thrown_by(mdb::index_init),
              "fubar: Meta database does not have the two required indexes defined");
  }
  TestMdb database({.block_size = 64, .map_blocks = 8});
  LogCapture::take();
  mdb::index_init();
  EXPECT_EQ(LogCapture::take(),
            (std::vector<std::string>{"2 256 Created root index node at block 24",
                                      "2 256 Created root index node at block 25",
                                      "2 256 Node ID and Parent ID indexes are initialized"}));
  EXPECT_FALSE(mdb::index_create_root(24));

  mdb::Transaction transaction;
  mdb::NodeHandle node = mdb::load_node(26);
  const auto free_node = [&] { mdb::index_free_block(node); };
  expect_refusal(free_node,
                 "fubar: When deleting index block 26 we found that the block is already marked as free");
  mdb::mark_block(26, BlockClass::used);
  expect_refusal(free_node,
                 "fubar: When deleting index block 26 we found that the allocation "
                 "map does not agree that this is an index block");
  expect_refusal([] { mdb::index_create_root(26); }, "fubar: Non-index node at index-block 26");
  for (std::uint32_t offset = 0; offset < 64; offset += 4)
    set_word(27, offset, 0xFFFF'FFFF);
  EXPECT_EQ(mdb::index_new_internal(0).block, 27);
  EXPECT_EQ(std::pair(word_of(27, 40), word_of(27, 44)), std::pair(0u, 0xFFFF'FFFF)) << "zeroed: 3 times 12";
  node = mdb::load_node(24);
  free_node();
  EXPECT_EQ(LogCapture::take().back(), "4 256 Deallocating index root node 24");
}

TEST(Index, SplitsKeepTheLargerHalfLeftAndTheRootInItsBlock) {
  IndexMdb database(64);
  fill_unique(12);
  put(5);
  put(7);
  EXPECT_TRUE(mdb::index_dump(24).starts_with(
      "Level 0: index=24 Index node: (nkeys: 1)(ptr0: 32)(key 0: 0.60 rptr=33)\n"
      "Level 1: index=32 Index node: (nkeys: 3)(ptr0: 26)(key 0: 0.10 rptr=34)(key 1: 0.20 rptr=27)"
      "(key 2: 0.40 rptr=28)\n"
      "Level 1: index=33 Index node: (nkeys: 2)(ptr0: 29)(key 0: 0.80 rptr=30)(key 1: 0.100 rptr=31)\n"
      "Level 2: index=26 Leaf node: (left: 0)(right: 34)(nkeys: 3)(key 0: 0.0->0:0)(key 1: 0.5->9:9)"
      "(key 2: 0.7->9:9)\n"
      "Level 2: index=34 Leaf node: (left: 26)(right: 27)(nkeys: 1)(key 0: 0.10->1:1)\n"))
      << mdb::index_dump(24);
  set_word(24, 20, 0xFFFF'FFFF);
  EXPECT_NE(mdb::index_dump(24).find("Level 1: index=4294967295 <!!not an index block!!>\n"),
            std::string::npos);
}

TEST(Index, SeparatorFollowsTheFirstKeyOfItsLeaf) {
  IndexMdb database(64);
  fill_unique(24);
  const auto separator = [] { return word_of(24, 16); };
  const std::uint32_t key = separator();
  erase(key);
  EXPECT_EQ(separator(), key + 10) << "renamed two levels above the leaf";
  erase(key + 10);
  EXPECT_EQ(separator(), key + 10) << "a child 0 that goes takes no separator along";
  put(key + 15);
  EXPECT_EQ(separator(), key + 15) << "the new first key of the next leaf";
  const std::string before = mdb::index_dump_node(mdb::read_block_copy(24).bytes());
  erase(0);
  EXPECT_EQ(mdb::index_dump_node(mdb::read_block_copy(24).bytes()), before) << "no separator leads there";
}

TEST(Index, FirstLeafUnderAnEmptyNodeIsTiedToBothNeighbours) {
  IndexMdb database(64);
  fill_unique(24);
  // Empties an internal node in the middle, as older programs may have left it.
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

TEST(Index, OperationsThatCannotBeAreRefused) {
  IndexMdb database(512, 8, 7);
  const Key key = {0, 1}, other = {0, 2};
  const ObjectReference data = {50, 50}, absent = {60, 60};
  mdb::unique_put(0, key, data, false);
  for (std::uint32_t i = 0; i < 9; ++i)
    mdb::nonunique_insert(1, key, {i, i});
  mdb::nonunique_insert(1, other, data);
  mdb::nonunique_insert(4, other, data);
  EXPECT_EQ(mdb::nonunique_search(1, key)->data(), (ObjectReference{0, 0})) << "equal keys in order";
  EXPECT_EQ(mdb::nonunique_search(5, key), std::nullopt);
  const std::uint64_t searches = meter_value("index", "uniq_generic_search");
  expect_refusals({
      {[&] { mdb::unique_put(0, key, absent, false); },
       "index_conflict: Conflict on ID 0.1 previously 50:50 new 60:60"},
      {[&] { mdb::unique_put(0, other, data, true); }, "index_noentry: Missing entry for ID 0.2 new 50:50"},
      {[&] { mdb::unique_delete(0, other); },
       "fubar: NodeId index deletion could not find element to delete"},
      {[&] { mdb::unique_put(1, key, data, false); },
       "internal: Attempt to use unique update on non-unique index"},
      {[&] { mdb::unique_delete(1, key); }, "internal: Attempt to use unique delete on non-unique index"},
      {[&] { mdb::unique_search(1, key); }, "internal: Attempt to use unique search on non-unique index"},
      {[&] { mdb::nonunique_insert(6, key, data); },
       "internal: Attempt to insert in non-unique non-existant index"},
      {[&] { mdb::nonunique_search(6, key); },
       "internal: Attempt to search in non-existant non-unique index"},
      {[&] { mdb::nonunique_update(6, key, data, data); },
       "internal: Attempt to update non-existant non-unique index"},
      {[&] { mdb::nonunique_delete(6, key, data); },
       "internal: Attempt to delete from non-unique non-existant index"},
      {[&] { mdb::nonunique_update(1, key, data, absent); },
       "internal: Update of non-unique index using non-existing block handle (9 candidates)"},
      {[&] { mdb::nonunique_delete(1, other, absent); },
       "fubar: Non-unique index (1) deletion could not find element to delete"},
      {[&] { mdb::nonunique_delete(5, key, data); },
       "fubar: Non-unique index (5) deletion could not find non-empty leaf for deletion"},
      {[&] { mdb::nonunique_delete(4, key, data); },
       "fubar: Bad id (0.2) when searching for 0.1 at index 0 with correct data in leaf Leaf node: (left: "
       "0)(right: 0)(nkeys: 1)(key 0: 0.2->50:50)"},
  });
  EXPECT_EQ(meter_value("index", "uniq_generic_search"), searches + 3);
}

TEST(Index, StepsThatWouldBreakTheTreeAreRefused) {
  IndexMdb database(64);
  fill_unique(5);
  const Key key = {0, 1};
  mdb::Transaction transaction;
  mdb::SearchPath path, none;
  auto found = mdb::index_search(24, {0, 0}, path, mdb::SearchMode::any);
  mdb::NodeHandle root = mdb::load_node(24);
  const auto path_at = [&](std::uint32_t child) {
    path.set_bottom_child(child);
    return path;
  };
  const auto delete_child = [&](mdb::SearchPath from) { mdb::internal_delete_child(from, 9); };
  const auto link_right = [&](mdb::SearchPath from) { mdb::searchpath_linkto_right(from, 9); };
  expect_refusals({
      {[&] { mdb::leaf_delete_at(found->leaf, 9, path); },
       "internal: Cannot delete index 9 in leaf with 2 elements"},
      {[&] { mdb::internal_insert(none, key, 9); }, "internal: Wanted to insert in index node with no self"},
      {[&] { delete_child(none); }, "internal: Index node deletion called with empty search path"},
      {[&] { mdb::rename_first_key(none, 9, key); }, "fubar: Index key rename above root attempted"},
      {[&] { none.set_bottom_child(1); },
       "internal: Attempted to modify searchpath bottom element with length 0"},
      {[&] { mdb::rename_first_key(path, 9, key); },
       "internal: When fixing up first-key assumption in leaf: couldn't find ourselves..."},
      {[&] { delete_child(path); },
       "fubar: In index node 24 - Neither left nor right pointer of index 0 pointed to the deleted leaf "
       "(block 9)"},
      {[&] { delete_child(path_at(7)); },
       "internal: Cannot delete key left of key 7 in index node with 1 elements"},
      {[&] { link_right(path_at(1)); },
       "internal: In searchpath_linkto_right: must alter parents in the searchpath"},
      {[&] { mdb::internal_insert_at(root, key, 9, 2); },
       "internal: Index node fixed-pos. insertion in node 24 got index 2"},
      {[&] { mdb::internal_insert_at(root, key, 9, 1); },
       "fubar: Index node holds badly ordered keys - or fixed position insert had bad value (key 0.1 at "
       "index 1 of node 24). "},
  });
}

TEST(Index, DamageIsNamedAndChangesNothing) {
  IndexMdb database(64);
  fill_unique(6);
  for (std::uint32_t i = 0; i < 7; ++i)
    mdb::nonunique_insert(1, {0, 1}, {i, i});
  const auto unique = tree_of(0).leaves, same = tree_of(1).leaves;
  ASSERT_EQ(std::tuple(unique.size(), same.size(), word_of(same[0], 12)), std::tuple(3u, 3u, 2u));
  const std::uint32_t u0 = unique[0], u1 = unique[1], u2 = unique[2], s0 = same[0], s1 = same[1],
                      s2 = same[2];
  constexpr std::uint32_t magic = 0, left = 4, right = 8, count = 12, root_count = 4;

  const Call put_1 = [] { put(1); };
  const Call put_25 = [] { put(25); };
  const Call erase_20 = [] { erase(20); };
  const Call split_first = [] {
    mdb::Transaction both;
    for (std::uint32_t i = 0; i < 2; ++i)
      mdb::nonunique_insert(1, {0, 0}, {i, i});
  };
  const Call walk = [] {
    auto cursor = mdb::nonunique_search(1, {0, 1});
    while (!cursor->at_end())
      mdb::leaf_cursor_next(*cursor);
  };
  const Call erase_last = [] { mdb::nonunique_delete(1, {0, 1}, {6, 6}); };
  const Call check_root = [] { mdb::index_check_leaf(mdb::load_node(24)); };

  constexpr std::string_view mismatch = "fubar: Mismatched left/right pairs found",
                             corrupt_root = "need_repair: Corrupt index block at 24",
                             bad_left = "fubar: Left neighbor is not a leaf node",
                             bad_right = "fubar: Right neighbor is not a leaf node";
  const std::string corrupt_leaf = text::concat("need_repair: Corrupt index block at ", u0);
  struct Case {
    std::vector<std::array<std::uint32_t, 3>> damage;  // block, offset, word
    Call call;
    std::string_view words;
  };
  const Case cases[] = {
      {{}, check_root, "need_repair: Index data block had bad magic"},
      {{{u0, count, 4}}, put_1, corrupt_leaf},
      {{{u0, magic, 0}}, put_1, "need_repair: Index internal node block had bad magic"},
      {{{24, root_count, 5}}, put_1, corrupt_root},
      {{{24, 8, 24}}, put_1, corrupt_root},
      {{{24, 8, 0}}, put_1, "internal: Generic search for data returned no data"},
      {{{u0, right, 25}}, put_25, "fubar: Our left element points to a bad right element"},
      {{{u2, left, 25}}, put_25, "fubar: Our right element points to a bad left element"},
      {{{u1, left, 0xFFFF}}, put_25, "fubar: Left pointer set, but no data found"},
      {{{u1, right, 24}}, put_25, "fubar: Right pointer set, but no data found"},
      {{{s1, left, 25}}, split_first, mismatch},
      {{{u1, count, 1}, {u1, left, 24}}, erase_20, bad_left},
      {{{u1, count, 1}, {u1, right, 24}}, erase_20, bad_right},
      {{{u1, count, 1}, {u0, right, 25}}, erase_20, mismatch},
      {{{s1, left, 25}}, walk, mismatch},
      {{{s1, left, 25}}, erase_last, mismatch},
      // A ring of leaves that all point back.
      {{{s1, right, s0}, {s0, left, s1}}, walk, mismatch},
      // Well linked leaves in another order than the tree's.
      {{{s0, right, s2}, {s2, left, s0}}, erase_last, mismatch},
      {{{s0, right, 25}}, walk, "fubar: Loaded multi-leaf block not a leaf block"},
      {{{s0, right, 25}},
       erase_last,
       "fubar: Could not load right leaf when searching for leaf to delete key from"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(&c - cases);
    mdb::Transaction undone_in_the_end;
    for (const auto& [block, offset, word] : c.damage)
      set_word(block, offset, word);
    expect_refusal(c.call, c.words);
  }

  // Neighbours of the first leaf that the empty node in the middle is to get, in a transaction of its own.
  const Call search_25 = [] { mdb::unique_search(0, {0, 25}); };
  set_word(u1, magic, bytes::magic("RINT"));
  set_word(u1, left, 0);
  set_word(u1, right, 0);
  for (const auto& [neighbour, words] : {std::pair{u2, bad_right}, {u0, bad_left}}) {
    set_word(neighbour, magic, 0);
    expect_refusal(search_25, words);
    set_word(neighbour, magic, bytes::magic("LEAF"));
  }
}

}  // namespace
}  // namespace mdb_test
