// Random work on the indexes against a sorted set of rows, with the whole tree proved sound on the way.

#include <random>
#include <set>

#include "mdb_fixture.h"

namespace mdb_test {
namespace {

struct Plan {
  std::uint32_t index;
  std::uint32_t block_size;
  std::uint32_t map_blocks;
  std::uint32_t keys;   // different keys in use
  std::size_t target;   // entries at the height of the run
  std::uint32_t depth;  // internal levels that the tree must have had
};

class IndexModel : public testing::TestWithParam<Plan> {
 protected:
  using Row = std::pair<Key, Key>;  // the key, and block and offset

  static ObjectReference data_of(const Row& row) { return {row.second.k0, row.second.k1}; }

  std::uint32_t pick(std::uint32_t below) { return static_cast<std::uint32_t>(random() % below); }
  Key pick_data() { return {pick(1000), pick(1u << 20)}; }
  Row pick_row() {
    const std::uint32_t number = pick(plan.keys);
    return {{number % 3, number}, pick_data()};
  }
  std::set<Row>::iterator pick_present() {
    const auto found = rows.lower_bound(pick_row());
    return found == rows.end() ? rows.begin() : found;
  }

  void grow() {
    const Row row = pick_row();
    if (plan.index != 0) {
      if (rows.insert(row).second)
        mdb::nonunique_insert(plan.index, row.first, data_of(row));
      return;
    }
    const auto old = rows.lower_bound({row.first, {}});
    const bool exists = old != rows.end() && old->first == row.first;
    EXPECT_ANY_THROW(mdb::unique_put(0, row.first, data_of(row), !exists));
    mdb::unique_put(0, row.first, data_of(row), exists);
    if (exists)
      rows.erase(old);
    rows.insert(row);
    EXPECT_EQ(mdb::unique_search(0, row.first), data_of(row));
  }

  void shrink() {
    if (rows.empty())
      return;
    Row row = *pick_present();
    rows.erase(row);
    if (plan.index == 0) {
      mdb::unique_delete(0, row.first);
      EXPECT_THROW(mdb::unique_delete(0, row.first), mdb::error_fubar);
      EXPECT_EQ(mdb::unique_search(0, row.first), std::nullopt);
      return;
    }
    const Row changed = {row.first, pick_data()};
    if (pick(2) == 0 && rows.insert(changed).second) {
      mdb::nonunique_update(plan.index, row.first, data_of(row), data_of(changed));
      row = *pick_present();
      rows.erase(row);
    }
    mdb::nonunique_delete(plan.index, row.first, data_of(row));
    EXPECT_THROW(mdb::nonunique_delete(plan.index, row.first, data_of(row)), mdb::error_fubar);
  }

  void check() {
    const auto tree = support::expect_sound("expected a live object").mdb->indexes[plan.index];
    std::multiset<Row> found;
    for (const auto& [key, object] : tree.entries)
      found.insert({{key.first, key.second}, {object.block, object.offset}});
    EXPECT_TRUE(std::ranges::equal(found, rows));
    depth = std::max(depth, tree.nodes.back().depth);

    const Key key = pick_row().first;
    const std::set<Row> expected(rows.lower_bound({key, {}}), rows.lower_bound({{key.k0, key.k1 + 1}, {}}));
    std::set<Row> met;
    for (auto cursor = mdb::nonunique_search(plan.index, key);
         cursor && !cursor->at_end() && cursor->key() == key; mdb::leaf_cursor_next(*cursor))
      EXPECT_TRUE(met.insert({key, {cursor->data().block, cursor->data().offset}}).second);
    EXPECT_EQ(met, expected);
  }

  const Plan plan = GetParam();
  std::mt19937 random{plan.keys};
  IndexMdb database{plan.block_size, plan.map_blocks};
  std::set<Row> rows;
  std::uint32_t depth = 0;
};

TEST_P(IndexModel, AgreesWithTheRowsWhileItGrowsChurnsAndShrinks) {
  std::size_t steps = 0;
  const auto step = [&](std::uint32_t shrinking_of_8) {
    pick(8) < shrinking_of_8 ? shrink() : grow();
    if (++steps % 97 == 0)
      check();
    if (steps % 331 == 0)
      database.reopen();
  };
  while (rows.size() < plan.target)
    step(2);
  for (std::size_t i = 0; i < plan.target; ++i)
    step(4);
  while (!rows.empty())
    step(7);
  check();
  EXPECT_GE(depth, plan.depth);
}

INSTANTIATE_TEST_SUITE_P(Unique, IndexModel,
                         testing::Values(Plan{0, 64, 64, 1500, 500, 4}, Plan{0, 64, 64, 450, 300, 4},
                                         Plan{0, 128, 16, 5000, 900, 3}, Plan{0, 512, 4, 20000, 2000, 2}));
INSTANTIATE_TEST_SUITE_P(NonUnique, IndexModel,
                         testing::Values(Plan{1, 64, 64, 3, 300, 4}, Plan{1, 64, 64, 40, 500, 4},
                                         Plan{1, 128, 16, 9, 800, 3}, Plan{1, 512, 4, 60, 2000, 2}));

}  // namespace
}  // namespace mdb_test
