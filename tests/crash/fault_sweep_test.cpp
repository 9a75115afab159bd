// Every step of a server with a meta database, in one run after the other with each of its calls of the
// system failing.
//
//   F1  What is thrown is one of the database's own exceptions, and no transaction is left open.
//   F2  The state is the one before the step or the one after it: at once, after the death of the process and
//       after a power cut. After a step that returned it is the one after it, and after a power cut as well
//       when the step is one that syncs.
//   F3  The next change works, or fails because a flush has failed; then only opening anew helps.

#include <gtest/gtest.h>

#include <iostream>

#include "server.h"
#include "sweep.h"

namespace {

using mdb::JournalPlacement;
using support::Server;
using support::ServerStep;

class FaultSweep : public testing::TestWithParam<std::tuple<ServerStep, JournalPlacement, int>> {
 protected:
  // A server in the midst of its life, at rest.
  struct Life : Server {
    Life()
        : Server({.block_size = has_all_indexes() ? 512U : 256U,
                  .map_blocks = 2,
                  .data_blocks = has_all_indexes() ? 10U : 6U,
                  .journal_bytes = 16'384,
                  .journal = std::get<1>(GetParam()),
                  .index_count = has_all_indexes() ? 6U : 2U},
                 static_cast<std::uint64_t>(std::get<2>(GetParam()))) {
      for (int i = 0; i < 30; ++i)
        take_some_step(*this);
      mdb_test::close_mdb();
      note_sync();
    }

    static bool has_all_indexes() { return std::get<1>(GetParam()) == JournalPlacement::external; }

    // Takes the step, behind a change that is not synced, with this disturbance of the calls from its begin
    // on; whether it returned.
    bool take_step(const simulation::Fault& fault) {
      open();
      transact(2, true);
      sim.advance_microseconds(3'000'000);  // so that the next begin finds something to apply
      sim.clear_events();
      sim.inject(fault);
      bool has_returned = false;
      try {
        take(*this, std::get<0>(GetParam()));
        has_returned = true;
      } catch (const mdb::error_generic&) {
        EXPECT_FALSE(mdb::transaction_is_open());  // F1
      }
      sim.clear_faults();
      return has_returned;
    }

    void open_and_settle() {
      support::drop_databases();
      open();
      support::expect_sound();
      settle();
    }
  };

  static void fail_and_go_on(Life life, const simulation::Fault& fault) {
    life.take_step(fault);
    if (mdb::backing_is_open() && mdb::journal_is_mapped()) {
      life.note_sync();
      life.settle();
      try {
        life.transact(1, false);
      } catch (const mdb::error_io&) {
        EXPECT_THROW(mdb::journal_flip(false), mdb::error_io);  // F3
      }
    }
    life.note_sync();
    life.open_and_settle();
  }

  static std::size_t fail_and_cut_the_power(Life life, std::uint64_t failing) {
    life.take_step({.occurrence = failing, .power_fails = true});
    support::drop_databases();
    const std::vector<simulation::Policy> cuts = crash::every_cut(life.sim, failing);
    for (const simulation::Policy& policy : cuts) {
      Life cut(life);
      cut.sim.power_cut(policy);
      cut.open_and_settle();
    }
    return cuts.size();
  }
};

TEST_P(FaultSweep, LeavesTheStateBeforeOrAfterWhicheverCallFails) {
  const Life life;
  std::vector<std::uint64_t> calls;
  {
    Life undisturbed(life);
    ASSERT_TRUE(undisturbed.take_step({.occurrence = 0}));
    calls = crash::operations_to_disturb(undisturbed.sim);
  }
  std::size_t crash_states = 0;
  for (auto failing = calls.begin(); failing != calls.end() && !HasFailure(); ++failing) {
    SCOPED_TRACE(testing::Message() << std::get<0>(GetParam()).name << ", call " << *failing);
    fail_and_go_on(life, {.occurrence = *failing});
    fail_and_go_on(life, {.occurrence = *failing, .lasting = true});
    fail_and_go_on(life, {.occurrence = *failing, .transfer_limit = 0});
    fail_and_go_on(life, {.occurrence = *failing, .transfer_limit = 100});
    crash_states += fail_and_cut_the_power(life, *failing);
  }
  std::cout << crash_states << " crash states\n";
  EXPECT_GT(crash_states, 0U);
}

INSTANTIATE_TEST_SUITE_P(Steps, FaultSweep,
                         testing::Combine(testing::ValuesIn(support::server_steps),
                                          testing::Values(JournalPlacement::internal,
                                                          JournalPlacement::external),
                                          testing::Values(1, 2, 3)));

}  // namespace
