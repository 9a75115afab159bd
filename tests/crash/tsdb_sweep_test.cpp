// The life of a time series database on a simulated computer where, in one life after the other, each
// operation is the one that fails or at which the power goes.
//
//   T1  Of each kind of chain the newest valid set holds what the last sync that returned has committed, or
//       what was being committed.
//   T2  Of each kind at most one set cannot be read to its end.
//   T3  A failure is one of the database's own exceptions; a later sync makes up for it.

#include <iostream>

#include "soundness.h"
#include "sweep.h"
#include "timeseries/check_ids.h"
#include "timeseries/growth.h"
#include "timeseries/levels.h"
#include "timeseries/phase_shift.h"
#include "tsdb_fixture.h"

namespace tsdb_test {
namespace {

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

  // What has just been reported to be durable; the life without a disturbance says what it is.
  void done() {
    if (committed_.size() == done_)
      committed_.push_back(in_memory());
    done_ += 1;
  }

  // Levels, series, pointers and check IDs, so that all chains and the file have to grow; three syncs a
  // round, at least three for each set in all.
  void live() {
    Random random(GetParam());
    done();
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
      tsdb::sync_chains();
      done();
      tsdb::allocate_check_id(1, level);
      done();
      tsdb::allocate_described_ts({.datatype = 1, .levels = {{60, 1}, {30, 2}}});
      done();
    }
  }

  // Lives until the operation that fails; false when nothing was thrown, as when there is no such operation.
  bool live_to(std::uint64_t operation, bool cuts_power) {
    sim.clear_faults();
    make_database(40, GetParam(), 1, block_size);
    done_ = 0;
    sim.clear_events();
    sim.inject({.occurrence = operation, .lasting = operation % 2 == 0, .power_fails = cuts_power});
    try {
      live();
      return false;
    } catch (const tsdb::error_generic&) {
      return true;  // T3: of the database's own
    }
  }

  // T1 and T2.
  static void expect_one_of(const simulation::SimulatedSystem& system, Kinds done, Kinds in_doubt) {
    support::expect_sound();
    for (const tsdb::ChainTraits& traits : tsdb::chain_traits) {
      SCOPED_TRACE(traits.name);
      const Entries found = committed(system, traits.kind, 1).used;
      EXPECT_TRUE(found == done[traits.kind] || found == in_doubt[traits.kind]);
    }
  }

  // How many operations a life has that nothing disturbs.
  std::uint64_t count_operations() {
    EXPECT_FALSE(live_to(0, false));
    return sim.events().size();
  }

  std::vector<Kinds> committed_;  // of the undisturbed life, by what is done
  std::size_t done_ = 0;
};

TEST_P(TsdbSweep, ACutLosesNothingThatASyncHasCommitted) {
  const std::uint64_t operations = count_operations();
  std::uint64_t crash_states = 0;
  for (std::uint64_t operation = 1; operation <= operations && !HasFailure(); ++operation) {
    ASSERT_TRUE(live_to(operation, true));
    tsdb::tsdb_close();
    for (const simulation::Policy& policy : crash::every_cut(sim, operation)) {
      SCOPED_TRACE(testing::Message() << "operation " << operation << ", kept "
                                      << static_cast<int>(policy.kept) << ", seed " << policy.seed);
      support::Computer cut(*this);
      cut.sim.clear_faults();
      cut.sim.power_cut(policy);
      expect_one_of(cut.sim, committed_[done_ - 1], committed_[done_]);
      crash_states += 1;
    }
  }
  std::cout << crash_states << " crash states\n";
  EXPECT_GT(crash_states, 500U);
}

TEST_P(TsdbSweep, ALaterSyncMakesUpForAnyFailure) {
  const std::uint64_t operations = count_operations();
  for (std::uint64_t operation = 1; operation <= operations && !HasFailure(); ++operation) {
    ASSERT_TRUE(live_to(operation, false));
    SCOPED_TRACE(testing::Message() << "operation " << operation);
    sim.clear_faults();
    expect_one_of(sim, committed_[done_ - 1], committed_[done_]);
    for (const tsdb::ChainTraits& traits : tsdb::chain_traits)
      current_chain(traits.kind).mark_dirty();
    const Kinds kinds = in_memory();
    tsdb::sync_chains();
    expect_one_of(sim, kinds, kinds);
  }
}

INSTANTIATE_TEST_SUITE_P(Sets, TsdbSweep, testing::Values(2, 3), testing::PrintToStringParamName());

}  // namespace
}  // namespace tsdb_test
