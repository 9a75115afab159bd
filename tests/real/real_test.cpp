// The programs as processes of a real system that are killed, find no room on the disk or want a file that
// another has. QUENOR_REAL_SEED gives other transactions and other moments.

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>

#include <filesystem>
#include <iostream>
#include <sstream>

#include "platform/platform.h"
#include "program.h"
#include "workload.h"

namespace real {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

const std::string writer = "tests/storage_writer";
const std::string default_pair = "-f -d db";

Outcome check() {
  return run("bin/quenor-dbinfo", "--check db");
}
std::uint32_t microseconds_now() {
  return static_cast<std::uint32_t>(platform::system().monotonic_microseconds());
}

class Real : public InDirectory {
 protected:
  Real() { std::cout << "QUENOR_REAL_SEED=" << seed_ << '\n'; }

  // Through the dialogue, with a journal that is internal ('i') or external ('e').
  static void create_pair(char journal) {
    const std::string answers = text::concat("db ", journal, journal == 'e' ? " db" : "", " 4 2 8192 1 db\n");
    ASSERT_EQ(run(createdb, "-f -i", answers).status, 0);
  }

  std::string work(int count) const { return text::concat("work db ", seed_, ' ', tried_ + 1, ' ', count); }
  // Takes note of what a writer has said; returns the reasons of what failed.
  std::vector<std::string> follow(const std::string& said) {
    std::vector<std::string> reasons;
    std::istringstream lines(said);
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("done "))
        take_step(seed_, ++tried_, state_);
      if (line.starts_with("failed "))
        reasons.push_back(line.substr(text::concat("failed ", ++tried_, ' ').size()));
    }
    return reasons;
  }
  // Whether the database as it lies there holds `state_`. It is not changed: recovery is left to its next
  // opening.
  bool is_as_expected() const {
    std::filesystem::copy("db", "copy");
    const Outcome listed = run(writer, "list copy");
    std::filesystem::remove_all("copy");
    return listed.status == 0 && listed.out == describe(state_);
  }
  // Lets a writer end in order after so many transactions; returns the reasons of those that failed.
  std::vector<std::string> expect_work(int count) {
    const Outcome outcome = run(writer, work(count));
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    std::vector<std::string> reasons = follow(outcome.out);
    EXPECT_EQ(check().status, 0);
    EXPECT_TRUE(is_as_expected());
    return reasons;
  }

  std::uint32_t up_to(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % (limit + 1)); }

  const char* given_seed_ = std::getenv("QUENOR_REAL_SEED");
  const std::uint64_t seed_ = given_seed_ != nullptr ? std::strtoull(given_seed_, nullptr, 10) : 1;
  std::mt19937_64 random_{seed_};
  State state_;              // what the database must hold
  std::uint64_t tried_ = 0;  // the number of the last transaction
};

class KilledWriter : public Real, public testing::WithParamInterface<char> {};

// What was committed and not yet reported may be there as well. One kill in three aims at the opening.
TEST_P(KilledWriter, LosesNothingThatItHasReported) {
  const int kills = under_wine() ? 10 : QUENOR_KILLS;
  int in_doubt = 0;
  std::uint32_t opening_microseconds = 10'000;
  create_pair(GetParam());
  for (int i = 0; i < kills && !HasFailure(); ++i) {
    SCOPED_TRACE(text::concat("kill ", i));
    const std::uint32_t start = microseconds_now();
    Program program(writer, work(1'000));
    if (up_to(2) == 0) {
      ::usleep(up_to(opening_microseconds));
    } else {
      EXPECT_TRUE(program.shows("open\n"));
      opening_microseconds = microseconds_now() - start;
      EXPECT_TRUE(program.shows(text::concat("done ", tried_ + 1 + up_to(40), '\n')));
      ::usleep(up_to(5'000));
    }
    const Outcome killed = program.end_with(SIGKILL);
    EXPECT_EQ(killed.status, -SIGKILL);
    EXPECT_THAT(follow(killed.out), IsEmpty());
    EXPECT_EQ(check().status, 0);
    if (is_as_expected())
      continue;
    in_doubt += 1;
    take_step(seed_, ++tried_, state_);
    EXPECT_TRUE(is_as_expected()) << "neither before transaction " << tried_ << " nor after it";
  }
  std::cout << kills << " kills, " << in_doubt << " between a commit and its report; " << tried_
            << " transactions\n";
  EXPECT_THAT(expect_work(20), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Journals, KilledWriter, testing::Values('i', 'e'),
                         [](const auto& journal) { return journal.param == 'i' ? "Internal" : "External"; });

// A disk in memory, mounted where no other process sees it, Wine's server included.
class FullDisk : public Real {
 protected:
  static constexpr std::uint64_t page = 4096;
  static constexpr std::uint64_t pair_bytes = 385 * 8192 + (8 << 20) + (10 << 20);

  void SetUp() override {
    if (under_wine())
      GTEST_SKIP() << "Wine's server would not see the disk";
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
      GTEST_SKIP() << "this user may not mount a disk";
  }
  void TearDown() override { ::umount("db"); }

  // Mounts such a disk and creates a pair on it.
  static Outcome create_on(std::uint64_t size_bytes) {
    ::umount("db");
    const std::string size = text::concat("size=", size_bytes);
    EXPECT_EQ(::mount("none", "db", "tmpfs", 0, size.c_str()), 0);
    return run(createdb, default_pair);
  }
};

// No file of a new pair has a hole: a later store into one of a mapped journal could end the process.
TEST_F(FullDisk, FailsWhatNeedsRoomAndNothingElse) {
  const Outcome failed = create_on(pair_bytes - page);
  EXPECT_EQ(failed.status, 1);
  EXPECT_THAT(failed.err, HasSubstr("TSDB I/O error: Cannot seq. write 8192 bytes at block 1279 offset 4096: "
                                    "\"No space left on device\"\n"));
  EXPECT_EQ(create_on(pair_bytes).status, 0);
  EXPECT_EQ(std::filesystem::space("db").available, 0U);
  const std::pair<std::uint64_t, std::string> cases[] = {
      {60 * page, "Could not byte-write: \"No space left on device\""},
      {61 * page, "Could not byte-write: written=4096 byte_len=8192"},
  };
  for (const auto& [spare_bytes, reason] : cases) {
    ASSERT_EQ(create_on(pair_bytes + spare_bytes).status, 0);
    state_.clear();
    for (int life = 0; life < 2; ++life)
      EXPECT_THAT(expect_work(1'000), testing::AllOf(testing::Contains(reason), testing::Each(reason)));
    ASSERT_EQ(::mount("none", "db", "tmpfs", MS_REMOUNT, "size=100m"), 0);
    EXPECT_THAT(expect_work(200), IsEmpty());
  }
}

TEST_F(Real, OfTwoCreationsAtOnceOneMakesThePair) {
  for (int meeting = 0; meeting < 5; ++meeting) {
    Program first(createdb, default_pair);
    Program second(createdb, default_pair);
    EXPECT_EQ(first.wait().status + second.wait().status, 1);
    EXPECT_EQ(check().status, 0);
    std::filesystem::remove_all("db");
    std::filesystem::create_directory("db");
  }
}

// While one program stands still with its files open.
TEST_F(Real, AnExternalJournalHasOneOpener) {
  create_pair('e');
  Program first(writer, work(1'000));
  EXPECT_TRUE(first.shows("done 5\n"));
  first.send(SIGSTOP);
  const Outcome second = run(writer, "list db");
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.out, testing::StartsWith("refused Cannot open journal in \"db\\main.odbj\": "));
  const Outcome ended = first.end_with(SIGCONT);
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(follow(ended.out), IsEmpty());
  EXPECT_THAT(expect_work(0), IsEmpty());
}

}  // namespace
}  // namespace real
