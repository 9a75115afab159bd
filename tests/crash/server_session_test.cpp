// Crash states of a server-like session.
//
//   QUENOR_CRASH_SECONDS  goes on with further seeds for so long in each shape, the largest journal included
//   QUENOR_CRASH_FROM     the first seed
//   QUENOR_CRASH_SEED     runs this seed alone

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <iostream>

#include "server_session.h"

namespace {

using mdb::JournalPlacement;

constexpr std::uint32_t mebibyte = 1'048'576;

struct Sessions {
  const char* name;
  crash::Shape shape;
  std::uint64_t count;  // of sessions, each with a seed of its own
  int crashes;          // in each of them
};

void PrintTo(const Sessions& sessions, std::ostream* out) {
  *out << sessions.name;
}

constexpr Sessions all_sessions[] = {
    {"SmallExternal", {512, 16'384, JournalPlacement::external}, 6, 80},
    {"SmallInternal", {512, 12'288, JournalPlacement::internal}, 6, 80},
    {"Tiny", {256, 6'144, JournalPlacement::external}, 6, 80},
    {"Kilobyte", {1024, 65'536, JournalPlacement::internal}, 6, 80},
    {"Usual", {8192, 524'288, JournalPlacement::external}, 2, 80},
    {"LeastJournal", {8192, 4 * mebibyte, JournalPlacement::external}, 1, 40},
    {"MiddleJournal", {8192, 32 * mebibyte, JournalPlacement::internal}, 1, 3},
    {"LargestJournal", {8192, 128 * mebibyte, JournalPlacement::external}, 1, 1},
};

std::uint64_t environment_number(const char* name, std::uint64_t otherwise) {
  const char* value = std::getenv(name);
  return value != nullptr ? std::strtoull(value, nullptr, 10) : otherwise;
}

void run_seed(const Sessions& sessions, std::uint64_t seed) {
  SCOPED_TRACE(testing::Message() << "QUENOR_CRASH_SEED=" << seed << " of " << sessions.name);
  crash::ServerSession session(sessions.shape, seed);
  for (int i = 0; i < sessions.crashes; ++i) {
    const std::string wrong = session.live_and_crash();
    ASSERT_EQ(wrong, "") << "after crash " << i;
  }
  EXPECT_GT(session.committed_count(), 0U);
}

class ServerSessionTest : public testing::TestWithParam<Sessions> {};

TEST_P(ServerSessionTest, NothingSyncedIsLostAndNothingIsHalfDone) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::seconds(environment_number("QUENOR_CRASH_SECONDS", 0));
  const std::uint64_t alone = environment_number("QUENOR_CRASH_SEED", 0);
  const std::uint64_t first = environment_number("QUENOR_CRASH_FROM", 1);
  if (alone != 0)
    return run_seed(GetParam(), alone);
  std::uint64_t done = 0;
  while (!HasFailure() && (done < GetParam().count || Clock::now() < end)) {
    run_seed(GetParam(), first + done);
    done += 1;
  }
  std::cout << done * static_cast<std::uint64_t>(GetParam().crashes) << " crash states\n";
}

INSTANTIATE_TEST_SUITE_P(Shapes, ServerSessionTest, testing::ValuesIn(all_sessions),
                         [](const auto& sessions) { return sessions.param.name; });

}  // namespace
