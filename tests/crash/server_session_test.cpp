// A server's life with a meta database on a simulated computer that loses its process or its power again and
// again, beside a record of what the database must hold then.
//
//   E1  After an orderly end or the death of the process, in the midst of a call or between two, the database
//       holds the last committed state.
//   E2  After a power cut it holds one of the states committed since the last one that was reported synced,
//       or that one.
//   E3  A commit that ended with an error may count as made or not, whole.
//   E4  Whatever happened, the files pass the inspection, and a recovery that is itself cut leads to the same
//       state as one that is not.
//
//   QUENOR_CRASH_SECONDS  goes on with further seeds for so long in each shape, the largest journal included
//   QUENOR_CRASH_FROM     the first seed
//   QUENOR_CRASH_SEED     runs this seed alone

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <random>

#include "metadb/storage/buffer_cache.h"
#include "node_database.h"

namespace crash {
namespace {

using mdb::JournalPlacement;
using simulation::Kept;

struct Shape {
  const char* name;
  std::uint32_t block_size;
  std::uint32_t journal_bytes;
  JournalPlacement placement;
  std::uint64_t sessions;  // each with a seed of its own
  int crashes;             // in each of them
};

constexpr Shape shapes[] = {
    {"SmallExternal", 512, 16'384, JournalPlacement::external, 6, 80},
    {"SmallInternal", 512, 12'288, JournalPlacement::internal, 6, 80},
    {"Tiny", 256, 6'144, JournalPlacement::external, 6, 80},
    {"Kilobyte", 1024, 65'536, JournalPlacement::internal, 6, 80},
    {"Usual", 8192, 524'288, JournalPlacement::external, 2, 80},
    {"LeastJournal", 8192, 4 << 20, JournalPlacement::external, 1, 40},
    {"MiddleJournal", 8192, 32 << 20, JournalPlacement::internal, 1, 3},
    {"LargestJournal", 8192, 128 << 20, JournalPlacement::external, 1, 1},
};

class ServerSession : support::Computer {
 public:
  ServerSession(const Shape& shape, std::uint64_t seed) : block_size_(shape.block_size), random_(seed) {
    mdb::cache_set_limit(64);
    create_database(sim, shape.block_size, shape.journal_bytes, shape.placement);
    open_database();
  }
  ~ServerSession() { mdb::cache_set_limit(8192); }

  // Some work, an end of some kind in the midst of it, the recovery, and the comparison.
  void live_and_crash() {
    support::LogCapture::take();  // lest the lines pile up
    const bool is_orderly = one_in(8);
    const bool cuts_power = !is_orderly && !one_in(6);
    try {
      if (one_in(2))
        sim.write_back_mapped_stores(random_());
      if (cuts_power)
        sim.inject({.occurrence = 1 + up_to(60), .power_fails = true});
      for (std::uint32_t rest = 1 + up_to(15); rest > 0; --rest)
        one_step();
      if (is_orderly) {
        mdb::journal_shutdown();
        mdb::backing_sync();
        history_ = {history_.back()};
      }
    } catch (const error::Exception&) {
      if (!cuts_power)
        throw;
    }
    drop_databases();
    sim.clear_faults();
    const simulation::Policy policy = random_policy();
    if (cuts_power || is_orderly)
      sim.power_cut(policy);
    expect_sound();
    expect_sound_recovery(cuts_power || is_orderly);
    expect_sound();

    if (!cuts_power || policy.kept == Kept::everything)
      history_ = {history_.back()};
    if (in_doubt_)
      history_.push_back(*std::exchange(in_doubt_, {}));  // E3
    State state = stored_state();
    EXPECT_TRUE(std::ranges::count(history_, state) != 0) << "none of " << history_.size() << " states";
    history_ = {std::move(state)};
  }

  std::uint64_t committed_count() const { return committed_count_; }

 private:
  void change_some_node() {
    const std::uint32_t id = 1 + up_to(max_id - 1);
    const std::uint32_t other_id = 1 + up_to(max_id - 1);
    Node node{up_to(6), std::string(up_to(block_size_ / 6), static_cast<char>('a' + up_to(25)))};
    if (one_in(10))
      node.name =
          "TBEGTBEGTBEGTBEG";  // wherever it comes to lie in the journal, it begins like a transaction
    if (!working_.contains(id))
      return store(working_, id, id, node);
    const std::uint32_t dice = up_to(5);
    if (dice < 2)
      return erase(working_, id);
    if (dice == 2)
      node.parent = working_[id].parent;
    if (dice == 3)
      node.name = working_[id].name;
    store(working_, id, dice == 4 && !working_.contains(other_id) ? other_id : id, node);
  }

  // What is thrown by the end itself leaves it open whether the transaction counts.
  void transaction(bool lazy, bool give_up) {
    working_ = history_.back();
    mdb::Transaction outer;
    for (std::uint32_t rest = 1 + up_to(3); rest > 0; --rest) {
      const State before = working_;
      std::optional<mdb::Transaction> nested;
      if (one_in(5))
        nested.emplace();
      change_some_node();
      if (!nested)
        continue;
      if (one_in(2)) {
        nested->end();
      } else {
        working_ = before;  // aborted
      }
    }
    if (give_up)
      return;
    in_doubt_ = working_;
    outer.end(lazy);
    in_doubt_.reset();
    committed_count_ += 1;
    if (!lazy && working_ != history_.back())  // a transaction without updates syncs nothing
      history_.clear();
    history_.push_back(working_);
  }

  void one_step() {
    const std::uint32_t dice = up_to(19);
    if (dice == 0)
      return sim.advance_microseconds(1'000'000);
    if (dice == 1) {
      mdb::journal_flip(one_in(2));
      history_ = {history_.back()};
      return;
    }
    try {
      transaction(dice < 14, dice == 19);
    } catch (const mdb::error_transact&) {
      // The half was too small for this one; it has been taken back.
    } catch (const mdb::error_internal& error) {
      if (error.message() != "After journal flip; no space for transend.")
        throw;
      in_doubt_.reset();
    }
  }

  // Opens the database, after a power cut sometimes only after openings that were cut short themselves.
  void expect_sound_recovery(bool after_a_cut) {
    std::optional<State> expected;
    while (after_a_cut && one_in(3)) {
      if (!expected) {
        simulation::SimulatedSystem twin(sim);
        const simulation::Installed use(twin);
        open_database();
        expected = stored_state();
        drop_databases();
      }
      sim.inject({.occurrence = 1 + up_to(30), .power_fails = true});
      try {
        open_database();
      } catch (const error::Exception&) {
        // The next one finds what this one left.
      }
      drop_databases();
      sim.clear_faults();
      sim.power_cut(random_policy());
    }
    open_database();
    EXPECT_TRUE(!expected || stored_state() == *expected) << "a recovery that was cut leads elsewhere";
  }

  std::uint32_t up_to(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % (limit + 1)); }
  bool one_in(std::uint32_t chances) { return random_() % chances == 0; }
  simulation::Policy random_policy() {
    constexpr Kept kinds[] = {Kept::everything, Kept::nothing, Kept::all_but_one, Kept::random_writes,
                              Kept::random_sectors};
    return {kinds[up_to(4)], random_()};
  }

  std::uint32_t block_size_;
  std::mt19937_64 random_;
  std::vector<State> history_ = {{}};  // from the last synced state on
  State working_;                      // as the open transaction sees it
  std::optional<State> in_doubt_;
  std::uint64_t committed_count_ = 0;
};

std::uint64_t environment_number(const char* name, std::uint64_t otherwise) {
  const char* value = std::getenv(name);
  return value != nullptr ? std::strtoull(value, nullptr, 10) : otherwise;
}

class ServerSessionTest : public testing::TestWithParam<Shape> {};

TEST_P(ServerSessionTest, NothingSyncedIsLostAndNothingIsHalfDone) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::seconds(environment_number("QUENOR_CRASH_SECONDS", 0));
  const std::uint64_t alone = environment_number("QUENOR_CRASH_SEED", 0);
  const std::uint64_t first = alone != 0 ? alone : environment_number("QUENOR_CRASH_FROM", 1);
  const std::uint64_t sessions = alone != 0 ? 1 : GetParam().sessions;
  int crash_states = 0;
  for (std::uint64_t i = 0; !HasFailure() && (i < sessions || Clock::now() < end); ++i) {
    SCOPED_TRACE(testing::Message() << "QUENOR_CRASH_SEED=" << first + i << " of " << GetParam().name);
    ServerSession session(GetParam(), first + i);
    for (int crash = 0; crash < GetParam().crashes && !HasFailure(); ++crash, ++crash_states)
      session.live_and_crash();
    EXPECT_GT(session.committed_count(), 0U);
  }
  std::cout << crash_states << " crash states\n";
}

INSTANTIATE_TEST_SUITE_P(Shapes, ServerSessionTest, testing::ValuesIn(shapes),
                         [](const auto& shape) { return shape.param.name; });

}  // namespace
}  // namespace crash
