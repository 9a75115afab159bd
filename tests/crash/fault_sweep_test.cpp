// Every operation that a server calls on the meta database, in one run after the other with each of its calls
// of the system failing.
//
//   F1  What is thrown is one of the database's own exceptions, and no transaction is left open.
//   F2  The state is the one before the operation or the one after it: at once, after the death of the
//   process
//       and after a power cut. After an operation that returned it is the one after it.
//   F3  The next operation works, or fails because a flush has failed; then only opening anew helps.
//
// Reads of one byte are left out: with them the library finds out where a file or device ends, and one that
// fails means the end.

#include <gtest/gtest.h>

#include <iostream>
#include <tuple>
#include <utility>

#include "common/errors.h"
#include "metadb/objects/allocator.h"
#include "metadb/objects/database.h"
#include "metadb/objects/index_search.h"
#include "metadb/objects/indexes.h"
#include "metadb/objects/objects.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/buffer_cache.h"
#include "metadb/storage/journal.h"
#include "metadb/storage/mapped_journal.h"
#include "metadb/storage/mdb_header.h"
#include "node_database.h"
#include "nodemodel/node_lookup.h"
#include "observe.h"

namespace {

using crash::Node;
using crash::State;
using simulation::SimulatedSystem;

struct OperationCase {
  const char* name;
  // Carries the operation out, and notes in the state what it will have changed.
  void (*perform)(State& state);
  bool is_durable_on_return = false;
};

void PrintTo(const OperationCase& operation, std::ostream* out) {
  *out << operation.name;
}

void store(State& state, std::uint32_t id, const Node& node) {
  state[id] = node;
  crash::store_node(id, node);
}

void store_all_in_one(State& state, std::uint32_t first, std::uint32_t last, bool lazy) {
  for (std::uint32_t id = first; id <= last; ++id)
    state[id] = {id % 3, std::string(90, 'z')};
  mdb::Transaction transaction;
  for (std::uint32_t id = first; id <= last; ++id)
    crash::store_node(id, state[id]);
  transaction.end(lazy);
}

constexpr OperationCase operations[] = {
    {"NodeStoreNew",
     [](State& state) {
       store(state, 30, {2, std::string(100, 'n')});
     }},
    {"NodeStoreLarger",
     [](State& state) {
       store(state, 5, {1, std::string(150, 'l')});
     }},
    {"NodeStoreSmaller",
     [](State& state) {
       store(state, 6, {0, ""});
     }},
    {"NodeStoreElsewhere",
     [](State& state) {
       store(state, 7, {9, state[7].name});
     }},
    {"NodeErase",
     [](State& state) {
       state.erase(3);
       crash::erase_node(3);
     }},
    {"SynchronousEnd", [](State& state) { store_all_in_one(state, 21, 22, false); }, true},
    {"EndInTheOtherHalf", [](State& state) { store_all_in_one(state, 23, 29, true); }},
    {"Abort",
     [](State&) {
       const mdb::Transaction transaction;
       crash::store_node(31, {1, "given up"});
     }},
    {"NestedAbort",
     [](State& state) {
       mdb::Transaction outer;
       store(state, 32, {1, "kept"});
       {
         const mdb::Transaction inner;
         crash::store_node(33, {1, "given up"});
       }
       outer.end();
     }},
    {"EraseAll",
     [](State& state) {
       mdb::Transaction transaction;
       for (const auto& [id, node] : std::exchange(state, {}))
         crash::erase_node(id);
       transaction.end();
     }},
    {"Flip", [](State&) { mdb::journal_flip(false); }, true},
    {"FlipWithRedirection", [](State&) { mdb::journal_flip(true); }, true},
    {"Sync", [](State&) { mdb::journal_sync(); }, true},
    {"Shutdown",
     [](State&) {
       mdb::journal_shutdown();
       mdb::backing_sync();
       mdb::mdb_close();
     },
     true},
    {"BackingGrow", [](State&) { mdb::backing_grow(40); }},
    {"ObjectAllocate", [](State&) { (void)mdb::object_allocate(80); }},
    {"NodeFindAndView",
     [](State&) {
       mdb::BlockBuffer scratch;
       (void)mdb::object_view(mdb::node_find({0, 9}).value(), scratch);
     }},
    {"NodeChildren",
     [](State&) {
       for (mdb::NodeCursor children = mdb::node_children({0, 1}); !children.at_end(); children.next())
         (void)mdb::object_load(children.reference());
     }},
    {"Checkpoint", [](State&) { mdb::journal_checkpoint(); }},
    {"AllocatorGivenUp",
     [](State&) {
       const mdb::Transaction transaction;
       mdb::ObjectHandle space = mdb::alloc_space(0, 90);
       mdb::object_split(space, 90);
       mdb::mark_block(mdb::alloc_empty_block(0, true), mdb::BlockClass::leaf);
     }},
    {"ObjectsGivenUp",
     [](State&) {
       const mdb::Transaction transaction;
       mdb::ObjectHandle object = mdb::object_load(mdb::node_find({0, 9}).value());
       mdb::object_resize(object, 150);
       mdb::ObjectHandle other = mdb::object_load(mdb::node_find({0, 2}).value());
       mdb::object_free(other);
     }},
    {"IndexesGivenUp",
     [](State&) {
       const mdb::ObjectReference place{9, 0};
       const mdb::Transaction transaction;
       for (std::uint32_t key = 100; key < 107; ++key) {
         mdb::unique_put(mdb::node_id_index, {0, key}, place, false);
         mdb::nonunique_insert(mdb::parent_id_index, {0, key % 2}, place);
       }
       mdb::unique_put(mdb::node_id_index, {0, 100}, place, true);
       mdb::unique_delete(mdb::node_id_index, {0, 101});
       mdb::nonunique_update(mdb::parent_id_index, {0, 1}, place, {9, 4});
       mdb::nonunique_delete(mdb::parent_id_index, {0, 1}, {9, 4});
     }},
    {"IndexDump", [](State&) { (void)mdb::index_dump(mdb::index_root(mdb::node_id_index)); }},
    {"CacheMiss", [](State&) { (void)mdb::cache_get_block(8); }},
    {"Reopen",
     [](State&) {
       crash::drop_databases();
       crash::open_database();
     }},
};

class FaultSweep : public testing::TestWithParam<std::tuple<OperationCase, mdb::JournalPlacement>> {
 protected:
  FaultSweep() {
    const simulation::Installed use(prepared_);
    crash::create_database(prepared_, {256, 16'384, std::get<1>(GetParam())});
    crash::open_database();
    for (std::uint32_t id = 1; id <= 11; ++id)
      store(before_, id, {id % 4, std::string(20 + 5 * id, 'a')});
    mdb::journal_sync();
    prepared_.advance_microseconds(3'000'000);  // so that the next begin finds something to apply
    crash::drop_databases();
  }

  enum class Fault { once, lasting, zero_bytes, few_bytes, power_cut };

  // Runs the operation, with its call number `failing` disturbed when that is not 0.
  void perform(SimulatedSystem& system, std::uint64_t failing, Fault fault) {
    crash::open_database();
    system.clear_events();
    after_ = before_;
    returned_ = false;
    simulation::Fault injected{
        .occurrence = failing, .lasting = fault == Fault::lasting, .power_fails = fault == Fault::power_cut};
    if (fault == Fault::zero_bytes || fault == Fault::few_bytes)
      injected.transfer_limit = fault == Fault::zero_bytes ? 0 : 100;
    if (failing != 0)
      system.inject(injected);
    try {
      operation_.perform(after_);
      returned_ = true;
    } catch (const mdb::error_generic&) {
      EXPECT_FALSE(mdb::transaction_is_open());  // F1
    }
  }

  void expect_before_or_after(const char* when) const {
    const State now = crash::stored_state();
    EXPECT_TRUE(now == after_ || (!returned_ && now == before_)) << when;
  }

  // F3; true when the next operation has worked.
  bool next_works() {
    try {
      crash::store_node(40, {1, "next"});
      mdb::journal_sync();
      return true;
    } catch (const mdb::error_io&) {
      EXPECT_THROW(mdb::journal_flip(false), mdb::error_io);
      return false;
    }
  }

  void fail_and_go_on(std::uint64_t failing, Fault fault) {
    SimulatedSystem system(prepared_);
    const simulation::Installed use(system);
    perform(system, failing, fault);
    system.clear_faults();
    const bool is_open = mdb::backing_is_open() && mdb::journal_is_mapped();
    if (is_open) {
      expect_before_or_after("at once");
      if (next_works()) {
        before_[40] = after_[40] = {1, "next"};
        expect_before_or_after("with the next one");
      }
    }
    crash::drop_databases();
    crash::open_database();
    EXPECT_EQ(crash::findings(), "");
    expect_before_or_after("after the death of the process");
    crash::drop_databases();
    before_.erase(40);
  }

  void fail_and_cut_the_power(std::uint64_t failing) {
    using simulation::Kept;
    SimulatedSystem system(prepared_);
    const simulation::Installed use(system);
    perform(system, failing, Fault::power_cut);
    crash::drop_databases();
    system.clear_faults();
    std::vector<simulation::Policy> policies;
    for (const Kept kept : {Kept::nothing, Kept::random_writes, Kept::random_sectors})
      policies.push_back({kept, failing});
    for (std::size_t missing = 0; missing < system.unsynced_count(); ++missing)
      policies.push_back({Kept::all_but_one, missing});
    returned_ = returned_ && operation_.is_durable_on_return;
    for (const simulation::Policy& policy : policies) {
      SimulatedSystem cut(system);
      const simulation::Installed use_cut(cut);
      cut.power_cut(policy);
      crash::open_database();
      EXPECT_EQ(crash::findings(), "");
      expect_before_or_after("after the power cut");
      crash::drop_databases();
      crash_states_ += 1;
    }
  }

  // The numbers of the calls to disturb, from 1 on.
  std::vector<std::uint64_t> calls_of_undisturbed_run() {
    SimulatedSystem system(prepared_);
    const simulation::Installed use(system);
    perform(system, 0, Fault::once);
    EXPECT_TRUE(returned_);
    std::vector<std::uint64_t> calls;
    for (std::size_t i = 0; i < system.events().size(); ++i) {
      const simulation::Event& event = system.events()[i];
      if (event.operation != simulation::Operation::read || event.length != 1)
        calls.push_back(i + 1);
    }
    crash::drop_databases();
    return calls;
  }

  support::LogCapture log_;
  SimulatedSystem prepared_;
  const OperationCase operation_ = std::get<0>(GetParam());
  State before_;
  State after_;
  std::uint64_t crash_states_ = 0;
  bool returned_ = false;
};

TEST_P(FaultSweep, LeavesTheStateBeforeOrAfterWhicheverCallFails) {
  const std::vector<std::uint64_t> calls = calls_of_undisturbed_run();
  for (const std::uint64_t failing : calls) {
    SCOPED_TRACE(testing::Message() << "call " << failing);
    for (const Fault fault : {Fault::once, Fault::lasting, Fault::zero_bytes, Fault::few_bytes})
      fail_and_go_on(failing, fault);
    fail_and_cut_the_power(failing);
    if (HasFailure())
      break;
  }
  std::cout << crash_states_ << " crash states\n";
  EXPECT_FALSE(calls.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Operations, FaultSweep,
    testing::Combine(testing::ValuesIn(operations),
                     testing::Values(mdb::JournalPlacement::internal, mdb::JournalPlacement::external)),
    [](const auto& swept) {
      const bool is_internal = std::get<1>(swept.param) == mdb::JournalPlacement::internal;
      return std::get<0>(swept.param).name + std::string(is_internal ? "Internal" : "External");
    });

}  // namespace
