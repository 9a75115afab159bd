// The life of a time series database on a simulated computer where, in one life after the other, each
// operation is the one that fails or at which the power goes.
//
//   T1  Of each kind of chain the newest valid set holds what the last sync that returned has committed, or
//       what was being committed.
//   T2  Of each kind at most one set cannot be read to its end.
//   T3  A failure is one of the stated exceptions; a later sync makes up for it.

#include <iostream>
#include <stdexcept>

#include "inspect/inspection.h"
#include "timeseries/check_ids.h"
#include "timeseries/growth.h"
#include "timeseries/levels.h"
#include "timeseries/phase_shift.h"
#include "tsdb_fixture.h"

namespace tsdb_test {
namespace {

using simulation::Kept;

using Kinds = std::map<ChainKind, Entries>;

class TsdbSweep : public TsdbTest, public testing::WithParamInterface<std::uint32_t> {
 protected:
  static constexpr std::uint32_t block_size = 1024;

  // The entries of the current chains in memory.
  static Kinds in_memory() {
    Kinds kinds;
    for (const tsdb::ChainTraits& traits : tsdb::chain_traits) {
      const tsdb::Chain& chain = current_chain(traits.kind);
      std::uint32_t number = 0;
      for (const tsdb::Run& run : chain.runs()) {
        for (std::uint64_t index = 0; index < run.capacity(); ++index, ++number) {
          std::vector<std::uint32_t> words(traits.entry_size_bytes / 4);
          for (std::uint32_t word = 0; word < words.size(); ++word)
            words[word] = run.word(index, word);
          if (words != std::vector<std::uint32_t>(words.size()))
            kinds[traits.kind][number] = words;
        }
      }
    }
    return kinds;
  }

  void sync() {
    in_doubt_ = in_memory();
    tsdb::sync_chains();
    committed_ = in_doubt_;
  }

  // Which entry the new check ID will have is known beforehand, as it is durable on return.
  void allocate_check_id(std::uint32_t level) {
    tsdb::Chain& chain = current_chain(ChainKind::check);
    const std::int32_t free = tsdb::find_free_check_entry(chain);
    const std::uint32_t id = free >= 0 ? static_cast<std::uint32_t>(free) : tsdb::chain_pointer_count(chain);
    in_doubt_ = in_memory();
    in_doubt_[ChainKind::check][id] = {1, level};
    EXPECT_EQ(tsdb::allocate_check_id(1, level), static_cast<std::int32_t>(id));
    committed_ = in_doubt_;
  }

  // What it leaves is known from the undisturbed life.
  void allocate_series(std::uint32_t round) {
    in_doubt_ = after_series_[round];
    tsdb::allocate_described_ts({.datatype = 1, .levels = {{60, 1}, {30, 2}}});
    committed_ = after_series_[round] = in_memory();
  }

  // Levels, series, pointers and check IDs, so that all chains and the file have to grow; two syncs a round,
  // at least three for each set in all.
  void live() {
    Random random(GetParam());
    for (std::uint32_t round = 0; round < 3 * GetParam() / 2 + 1; ++round) {
      std::uint32_t level = 0;
      for (std::uint32_t i = 0; i < 12; ++i)
        level = tsdb::allocate_level(1 + below(random, 4), 0, 0);
      if (round % 3 == 1) {
        for (const ChainKind kind : {ChainKind::head, ChainKind::tail, ChainKind::check})
          tsdb::grow_chain(current_chain(kind), 1);
        tsdb::grow_tsdb(3);
      }
      tsdb::set_chain_pointer(current_chain(ChainKind::head), level, 1 + round);
      tsdb::set_chain_pointer(current_chain(ChainKind::tail), level, 1 + round);
      sync();
      allocate_check_id(level);
      allocate_series(round);
    }
  }

  static constexpr std::uint64_t never = ~std::uint64_t{0};

  // Lives until the operation that fails; false when it was never reached.
  bool live_to(std::uint64_t operation, bool cuts_power) {
    sim.clear_faults();
    make_database(40, GetParam(), 1, block_size);
    committed_ = in_memory();
    in_doubt_ = committed_;
    sim.inject({.occurrence = operation, .lasting = operation % 2 == 0, .power_fails = cuts_power});
    try {
      live();
      return false;
    } catch (const tsdb::error_generic&) {
      return true;  // T3: of the database's own
    }
  }

  // T1 and T2 of a kind.
  void expect_committed(const reader::Tsdb& tsdb, ChainKind kind) const {
    reader::Chain newest;
    std::uint32_t unreadable = 0;
    for (std::uint32_t set = 0; set < GetParam(); ++set) {
      try {
        reader::Chain chain = tsdb.chain(static_cast<reader::Kind>(kind), set);
        if (newest.blocks.empty() || chain.timestamp > newest.timestamp)
          newest = std::move(chain);
      } catch (const std::runtime_error&) {
        unreadable += 1;
      }
    }
    EXPECT_LE(unreadable, 1U);
    const auto of = [kind](const Kinds& kinds) {
      const auto entries = kinds.find(kind);
      return entries != kinds.end() ? entries->second : Entries();
    };
    EXPECT_TRUE(newest.used == of(committed_) || newest.used == of(in_doubt_));
  }

  void expect_committed() {
    sim.clear_faults();
    expect_committed_on(sim);
  }

  void expect_committed_on(const simulation::SimulatedSystem& system) const {
    const inspect::Inspection inspection = inspect::inspect_pair("/db", std::nullopt);
    for (const inspect::Finding& finding : inspection.report.findings())
      EXPECT_EQ(finding.severity, inspect::Severity::note) << finding.text;
    const reader::Tsdb tsdb = durable_on(system);
    for (const tsdb::ChainTraits& traits : tsdb::chain_traits) {
      SCOPED_TRACE(traits.name);
      expect_committed(tsdb, traits.kind);
    }
  }

  Kinds committed_;
  Kinds in_doubt_;
  std::map<std::uint32_t, Kinds> after_series_;  // by the round of the life
};

TEST_P(TsdbSweep, ACutLosesNothingThatASyncHasCommitted) {
  ASSERT_FALSE(live_to(never, false));
  std::uint64_t crash_states = 0;
  for (std::uint64_t operation = 1; live_to(operation, true) && !HasFailure(); ++operation) {
    tsdb::tsdb_close();
    std::vector<simulation::Policy> policies;
    for (const Kept kept : {Kept::everything, Kept::nothing, Kept::random_writes, Kept::random_sectors})
      policies.push_back({kept, operation});
    for (std::size_t missing = 0; missing < sim.unsynced_count(); ++missing)
      policies.push_back({Kept::all_but_one, missing});
    for (const simulation::Policy& policy : policies) {
      SCOPED_TRACE(testing::Message() << "operation " << operation << ", kept "
                                      << static_cast<int>(policy.kept) << ", seed " << policy.seed);
      simulation::SimulatedSystem cut(sim);
      const simulation::Installed use(cut);
      cut.clear_faults();
      cut.power_cut(policy);
      expect_committed_on(cut);
      crash_states += 1;
    }
  }
  std::cout << crash_states << " crash states\n";
  EXPECT_GT(crash_states, 500U);
}

TEST_P(TsdbSweep, ALaterSyncMakesUpForAnyFailure) {
  ASSERT_FALSE(live_to(never, false));
  for (std::uint64_t operation = 1; live_to(operation, false) && !HasFailure(); ++operation) {
    SCOPED_TRACE(testing::Message() << "operation " << operation);
    expect_committed();
    for (const tsdb::ChainTraits& traits : tsdb::chain_traits)
      current_chain(traits.kind).mark_dirty();
    sync();
    in_doubt_ = committed_;
    expect_committed();
  }
}

INSTANTIATE_TEST_SUITE_P(Sets, TsdbSweep, testing::Values(2, 3), testing::PrintToStringParamName());

}  // namespace
}  // namespace tsdb_test
