// Time series: their levels, their check IDs, and what of them is in the file.

#include <array>

#include "timeseries/check_ids.h"
#include "timeseries/entry_search.h"
#include "timeseries/levels.h"
#include "timeseries/phase_shift.h"
#include "tsdb_fixture.h"

namespace tsdb_test {

class SeriesTest : public TsdbTest {
 protected:
  // What the current chains should hold, by kind. The first block of a level is 1 here, wherever it is.
  using Model = std::array<Entries, 4>;

  static std::uint32_t first_free(const Entries& entries) {
    std::uint32_t number = 0;
    while (entries.contains(number))
      ++number;
    return number;
  }

  static std::uint32_t add_level(Model& model, std::uint32_t block_count, std::uint32_t parameter,
                                 std::uint32_t next) {
    const auto number = static_cast<std::uint32_t>(model[2].size());
    model[2][number] = {1, block_count, next, parameter};
    model[0].erase(number);
    model[1].erase(number);
    return number != 0 ? number : add_level(model, block_count, parameter, next);
  }

  static tsdb::SeriesDescription add_random_series(Random& random, Model& model) {
    constexpr std::array<std::uint32_t, 5> entry_sizes = {0, 28, 20, 28, 1};
    tsdb::SeriesDescription series{1 + below(random, 4), {}};
    std::uint32_t next = 0;
    for (std::uint32_t left = 1 + below(random, 3); left > 0; --left) {
      const tsdb::LevelDescription level = {1 + below(random, 80), below(random, 100)};
      const std::uint32_t length_bytes = level.entry_count * entry_sizes[series.datatype];
      next = add_level(model, (length_bytes + 255) / 256, level.parameter, next);
      series.levels.insert(series.levels.begin(), level);
    }
    model[3][first_free(model[3])] = {series.datatype, next};
    return series;
  }

  // Also that no block has two owners.
  void expect_in_file(const Model& model) const {
    std::vector<int> owner_count(tsdb::btb_block_count());
    const auto own = [&](std::uint32_t first, std::uint32_t count) {
      for (std::uint32_t b = first; b < first + count; ++b)
        EXPECT_EQ(++owner_count.at(b), 1) << "block " << b;
    };
    own(0, 1);
    for (const tsdb::ChainTraits& traits : tsdb::chain_traits) {
      for (std::uint32_t set = 0; set < tsdb::chain_set_count(); ++set) {
        for (const tsdb::Run& run : tsdb::chain_of(traits.kind, set).runs())
          own(run.first_block(), run.block_count());
      }
      Entries entries = committed(sim, traits.kind).used;
      for (auto& [number, level] : entries) {
        if (traits.kind == ChainKind::lblock)
          own(std::exchange(level[0], 1), level[1]);
      }
      ASSERT_EQ(entries, model[tsdb::kind_index(traits.kind)]) << traits.name;
    }
  }
};

TEST_F(SeriesTest, WhatWasSyncedIsInTheFile) {
  for (std::uint32_t seed = 1; seed <= 9; ++seed) {
    SCOPED_TRACE(seed);
    Random random(seed);
    make_database(48, 1 + seed % 3, 20);
    Model model;
    for (std::uint32_t step = 0; step < 500; ++step) {
      const std::uint32_t what = below(random, 20);
      tsdb::Chain& chain = current_chain(tsdb::chain_traits[below(random, what < 12 ? 2 : 4)].kind);
      if (what < 12) {
        Entries& entries = model[tsdb::kind_index(chain.kind())];
        const std::uint32_t free = first_free(entries);
        ASSERT_EQ(tsdb::find_free_entry(chain).value_or(chain.capacity()), free) << "step " << step;
        const bool is_freed = below(random, 5) == 0;
        const std::uint32_t entry =
            is_freed || free == chain.capacity() ? below(random, chain.capacity()) : free;
        tsdb::set_chain_pointer(chain, entry, is_freed ? 0 : step + 1);
        entries[entry] = {step + 1};
        if (is_freed)
          entries.erase(entry);
      } else if (what < 14) {
        tsdb::grow_chain(chain, 1 + below(random, 2));
      } else if (what < 15) {
        for (std::size_t count = below(random, model[3].size() + 1); count > 0; count /= 2) {
          const auto freed = std::next(model[3].begin(), below(random, model[3].size()));
          tsdb::set_check_pointer(current_chain(ChainKind::check), static_cast<std::uint32_t>(freed->first),
                                  {0, 0});
          model[3].erase(freed);
        }
      } else if (what < 17) {
        const std::uint32_t id = first_free(model[3]);
        EXPECT_EQ(tsdb::allocate_described_ts(add_random_series(random, model)), id);
      } else if (what < 18) {
        for (std::uint32_t count = 1 + below(random, 30); count > 0; --count) {
          const std::uint32_t id = first_free(model[3]);
          model[3][id] = {step + 1, 5};
          EXPECT_EQ(tsdb::allocate_check_id(step + 1, 5), id);
        }
      } else {
        tsdb::sync_chains();
      }
      if (what >= 15)
        expect_in_file(model);
    }
  }
}

TEST_F(SeriesTest, WhatCannotBeAllocatedIsRefused) {
  make_database(5, 1, 1);
  sim.set_free_bytes(0);
  const auto allocate = [](std::uint32_t datatype, std::vector<tsdb::LevelDescription> levels) {
    return [=] { tsdb::allocate_described_ts({datatype, levels}); };
  };
  expect_refusals({{"internal: allocate_described_ts() invoked with no levels", allocate(4, {})},
                   {"internal: A check ID cannot be given to a pair that begins with 0",
                    [] { tsdb::allocate_check_id(0, 5); }},
                   {"dbtype: Datatype out of range", allocate(0, {{1, 1}})},
                   {"dbtype: Datatype out of range", allocate(5, {{1, 1}})},
                   {"dbnospace: Unable to allocate 100 blocks in db file", allocate(4, {{25'600, 1}})}});
  EXPECT_FALSE(current_chain(ChainKind::lblock).dirty() || current_chain(ChainKind::check).dirty());
  EXPECT_EQ(tsdb::btb_block_count(), 5u);
}

}  // namespace tsdb_test
