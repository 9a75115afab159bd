// A server's life with a meta database on a simulated computer that loses its process or its power again and
// again, beside a record of what the database must hold then.
//
//   E1  After an orderly end or the death of the process between two calls the database holds the last
//       committed state.
//   E2  After a power cut it holds one of the states committed since the last one that was reported synced,
//       or that one.
//   E3  A commit that ended with an error may count as made or not, whole.
//   E4  Whatever happened, the files pass the inspection, and a recovery that is itself cut leads to the same
//       state as one that is not.
//
//   QUENOR_CRASH_SECONDS  goes on with further seeds for so long in each shape, the largest journal included
//   QUENOR_CRASH_FROM     the first seed

#include <chrono>
#include <cstdlib>
#include <iostream>

#include "server.h"

namespace {

using mdb::JournalPlacement;
using simulation::Kept;
using support::Server;

struct Shape {
  const char* name;
  std::uint32_t block_size;
  std::uint32_t index_count;
  std::uint32_t journal_bytes;
  JournalPlacement placement;
  std::uint64_t sessions;  // each with a seed of its own
  int crashes;             // in each of them
};

constexpr Shape shapes[] = {
    {"SmallExternal", 512, 6, 16'384, JournalPlacement::external, 6, 80},
    {"SmallInternal", 512, 2, 12'288, JournalPlacement::internal, 6, 80},
    {"Tiny", 256, 2, 6'144, JournalPlacement::external, 6, 80},
    {"Kilobyte", 1024, 6, 65'536, JournalPlacement::internal, 6, 80},
    {"Usual", 8192, 2, 524'288, JournalPlacement::external, 2, 80},
    {"LeastJournal", 8192, 2, 4 << 20, JournalPlacement::external, 1, 40},
    {"MiddleJournal", 8192, 2, 32 << 20, JournalPlacement::internal, 1, 2},
    {"LargestJournal", 8192, 2, 128 << 20, JournalPlacement::external, 1, 1},
};

class ServerSession : public Server {
 public:
  // With few data blocks, so that it soon has to grow.
  ServerSession(const Shape& shape, std::uint64_t seed)
      : Server({.block_size = shape.block_size,
                .map_blocks = 2,
                .data_blocks = 4 + shape.index_count,
                .journal_bytes = shape.journal_bytes,
                .journal = shape.placement,
                .index_count = shape.index_count},
               seed) {}

  // Some work, an end of some kind in the midst of it, the recovery, and the comparison.
  void live_and_crash() {
    support::LogCapture::take();  // lest the lines pile up
    mdb::cache_set_limit(64);
    const bool is_orderly = one_in(8);
    const bool cuts_power = !is_orderly && !one_in(6);
    if (one_in(2))
      sim.write_back_mapped_stores(up_to(999));
    if (cuts_power)
      sim.inject({.occurrence = 1 + up_to(60), .power_fails = true});
    try {
      for (std::uint32_t rest = 1 + up_to(15); rest > 0; --rest)
        take_some_step(*this);
      if (is_orderly) {
        mdb_test::close_mdb();
        note_sync();
      }
    } catch (const error::Exception&) {
      if (sim.has_power())
        throw;
    }
    support::drop_databases();
    sim.clear_faults();
    const simulation::Policy policy = random_policy();
    if (cuts_power || is_orderly)
      sim.power_cut(policy);
    support::expect_sound();
    expect_sound_recovery(cuts_power || is_orderly);
    support::expect_sound();
    if (!cuts_power || policy.kept == Kept::everything)
      note_sync();
    settle();
  }

 private:
  // Opens the database, after a power cut sometimes only after openings that were cut short themselves.
  void expect_sound_recovery(bool after_a_cut) {
    std::optional<support::Nodes> expected;
    while (after_a_cut && one_in(3)) {
      if (!expected) {
        const support::Computer twin(*this);
        open();
        expected = stored();
      }
      sim.inject({.occurrence = 1 + up_to(30), .power_fails = true});
      try {
        open();
      } catch (const error::Exception&) {
        if (sim.has_power())
          throw;
      }
      support::drop_databases();
      sim.clear_faults();
      sim.power_cut(random_policy());
    }
    open();
    EXPECT_TRUE(!expected || stored() == *expected) << "a recovery that was cut leads elsewhere";
  }

  simulation::Policy random_policy() {
    constexpr Kept kinds[] = {Kept::everything, Kept::nothing, Kept::all_but_one, Kept::random_writes,
                              Kept::random_sectors};
    return {kinds[up_to(4)], up_to(999'999)};
  }
};

std::uint64_t environment_number(const char* name, std::uint64_t otherwise) {
  const char* value = std::getenv(name);
  return value != nullptr ? std::strtoull(value, nullptr, 10) : otherwise;
}

class ServerSessionTest : public testing::TestWithParam<Shape> {};

TEST_P(ServerSessionTest, NothingSyncedIsLostAndNothingIsHalfDone) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::seconds(environment_number("QUENOR_CRASH_SECONDS", 0));
  const std::uint64_t first = environment_number("QUENOR_CRASH_FROM", 1);
  int crash_states = 0;
  std::uint64_t committed_count = 0;
  for (std::uint64_t i = 0; !HasFailure() && (i < GetParam().sessions || Clock::now() < end); ++i) {
    SCOPED_TRACE(testing::Message() << "QUENOR_CRASH_FROM=" << first + i << " of " << GetParam().name);
    ServerSession session(GetParam(), first + i);
    for (int crash = 0; crash < GetParam().crashes && !HasFailure(); ++crash, ++crash_states)
      session.live_and_crash();
    committed_count += session.committed_count();
  }
  EXPECT_GT(committed_count, 0U);
  std::cout << crash_states << " crash states\n";
}

INSTANTIATE_TEST_SUITE_P(Shapes, ServerSessionTest, testing::ValuesIn(shapes),
                         [](const auto& shape) { return shape.param.name; });

}  // namespace
