// Every operation that a server calls on the meta database, in one run after the other with each of its calls
// of the system failing.
//
//   F1  What is thrown is one of the database's own exceptions, and no transaction is left open.
//   F2  The state is the one before the operation or the one after it: at once, after the death of the
//       process and after a power cut. After an operation that returned it is the one after it.
//   F3  The next operation works, or fails because a flush has failed; then only opening anew helps.

#include <iostream>
#include <tuple>

#include "metadb/objects/allocator.h"
#include "metadb/objects/index_search.h"
#include "metadb/objects/indexes.h"
#include "metadb/objects/objects.h"
#include "metadb/storage/buffer_cache.h"
#include "node_database.h"
#include "sweep.h"

namespace crash {
namespace {

using mdb::JournalPlacement;
using simulation::SimulatedSystem;

struct Operation {
  const char* name;
  // Carries the operation out, and notes in the state what it will have changed.
  void (*perform)(State& state);
  bool is_durable_on_return = false;
};

void put(State& state, std::uint32_t id, std::uint32_t parent, std::size_t name_length) {
  store(state, id, id, {parent, std::string(name_length, 'n')});
}
void store_all_in_one(State& state, std::uint32_t first, std::uint32_t last, bool lazy) {
  mdb::Transaction transaction;
  for (std::uint32_t id = first; id <= last; ++id)
    put(state, id, id % 3, 90);
  transaction.end(lazy);
}
mdb::ObjectReference node(std::uint32_t id) {
  return mdb::node_find({0, id}).value();
}

constexpr Operation operations[] = {
    {"NodeStore", [](State& state) { put(state, 30, 2, 100); }},
    {"NodeErase", [](State& state) { erase(state, 3); }},
    {"ManyInOne",
     [](State& state) {
       mdb::Transaction transaction;
       put(state, 5, 1, 150);
       put(state, 6, 0, 0);
       put(state, 7, 9, 55);
       transaction.end();
     }},
    {"SynchronousEnd", [](State& state) { store_all_in_one(state, 21, 22, false); }, true},
    {"EndInTheOtherHalf", [](State& state) { store_all_in_one(state, 23, 29, true); }},
    {"NestedAbort",
     [](State& state) {
       mdb::Transaction outer;
       put(state, 32, 1, 4);
       {
         const mdb::Transaction inner;
         State given_up;
         put(given_up, 33, 1, 8);
       }
       outer.end();
     }},
    {"Flip", [](State&) { mdb::journal_flip(false); }, true},
    {"FlipWithRedirection", [](State&) { mdb::journal_flip(true); }, true},
    {"Sync", [](State&) { mdb::journal_sync(); }, true},
    {"Shutdown", [](State&) { mdb_test::close_mdb(); }, true},
    {"Checkpoint", [](State&) { mdb::journal_checkpoint(); }},
    {"Growth",
     [](State&) {
       mdb::backing_grow(40);
       (void)mdb::object_allocate(80);
     }},
    {"Reading",
     [](State&) {
       mdb::BlockBuffer scratch;
       (void)mdb::object_view(node(9), scratch);
       for (mdb::NodeCursor children = mdb::node_children({0, 1}); !children.at_end(); children.next())
         (void)mdb::object_load(children.reference());
       (void)mdb::index_dump(mdb::index_root(mdb::node_id_index));
       (void)mdb::cache_get_block(8);
     }},
    {"Reopen",
     [](State&) {
       drop_databases();
       open_database();
     }},
};

class FaultSweep : public testing::TestWithParam<std::tuple<Operation, JournalPlacement>> {
 protected:
  FaultSweep() {
    const simulation::Installed use(prepared_);
    create_database(prepared_, 256, 16'384, std::get<1>(GetParam()));
    open_database();
    for (std::uint32_t id = 1; id <= 11; ++id)
      put(before_, id, id % 4, 20 + 5 * id);
    mdb::journal_sync();
    prepared_.advance_microseconds(3'000'000);  // so that the next begin finds something to apply
    drop_databases();
  }

  // Runs the operation with this disturbance of the calls from its begin on; returns the state it has noted.
  State perform(SimulatedSystem& system, const simulation::Fault& fault) {
    open_database();
    system.clear_events();
    system.inject(fault);
    State state = before_;
    returned_ = false;
    try {
      operation_.perform(state);
      returned_ = true;
    } catch (const mdb::error_generic&) {
      EXPECT_FALSE(mdb::transaction_is_open());  // F1
    }
    system.clear_faults();
    return state;
  }

  void expect_before_or_after(const char* when) const {
    const State now = stored_state();
    EXPECT_TRUE(now == after_ || (!returned_ && now == before_)) << when;
  }

  // F3; whether the next operation has worked.
  static bool next_works() {
    try {
      State next;
      put(next, 40, 1, 4);
      mdb::journal_sync();
      return true;
    } catch (const mdb::error_io&) {
      EXPECT_THROW(mdb::journal_flip(false), mdb::error_io);
      return false;
    }
  }

  void fail_and_go_on(const simulation::Fault& fault) {
    SimulatedSystem system(prepared_);
    const simulation::Installed use(system);
    perform(system, fault);
    if (mdb::backing_is_open() && mdb::journal_is_mapped()) {
      expect_before_or_after("at once");
      if (next_works()) {
        before_[40] = after_[40] = {1, "nnnn"};
        expect_before_or_after("with the next one");
      }
    }
    drop_databases();
    open_database();
    expect_sound();
    expect_before_or_after("after the death of the process");
    drop_databases();
    before_.erase(40);
    after_.erase(40);
  }

  void fail_and_cut_the_power(std::uint64_t failing) {
    SimulatedSystem system(prepared_);
    const simulation::Installed use(system);
    perform(system, {.occurrence = failing, .power_fails = true});
    drop_databases();
    returned_ = returned_ && operation_.is_durable_on_return;
    for (const simulation::Policy& policy : every_cut(system, failing)) {
      SimulatedSystem cut(system);
      const simulation::Installed use_cut(cut);
      cut.power_cut(policy);
      open_database();
      expect_sound();
      expect_before_or_after("after the power cut");
      drop_databases();
      crash_states_ += 1;
    }
  }

  // The numbers of the calls to disturb.
  std::vector<std::uint64_t> calls_of_undisturbed_run() {
    SimulatedSystem system(prepared_);
    const simulation::Installed use(system);
    after_ = perform(system, {.occurrence = 0});
    EXPECT_TRUE(returned_);
    drop_databases();
    return operations_to_disturb(system);
  }

  support::LogCapture log_;
  SimulatedSystem prepared_;
  const Operation operation_ = std::get<0>(GetParam());
  State before_;
  State after_;
  std::uint64_t crash_states_ = 0;
  bool returned_ = false;
};

TEST_P(FaultSweep, LeavesTheStateBeforeOrAfterWhicheverCallFails) {
  const std::vector<std::uint64_t> calls = calls_of_undisturbed_run();
  EXPECT_FALSE(calls.empty());
  for (const std::uint64_t failing : calls) {
    SCOPED_TRACE(testing::Message() << "call " << failing);
    fail_and_go_on({.occurrence = failing});
    fail_and_go_on({.occurrence = failing, .lasting = true});
    fail_and_go_on({.occurrence = failing, .transfer_limit = 0});
    fail_and_go_on({.occurrence = failing, .transfer_limit = 100});
    fail_and_cut_the_power(failing);
    if (HasFailure())
      break;
  }
  std::cout << crash_states_ << " crash states\n";
}

INSTANTIATE_TEST_SUITE_P(Operations, FaultSweep,
                         testing::Combine(testing::ValuesIn(operations),
                                          testing::Values(JournalPlacement::internal,
                                                          JournalPlacement::external)),
                         [](const auto& swept) {
                           const bool is_internal = std::get<1>(swept.param) == JournalPlacement::internal;
                           return std::get<0>(swept.param).name +
                                  std::string(is_internal ? "Internal" : "External");
                         });

}  // namespace
}  // namespace crash
