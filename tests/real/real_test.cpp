// The programs as processes of a real system that are killed, find no room on the disk or want the same
// files. QUENOR_REAL_SEED gives other transactions and other moments.

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

using testing::AnyOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

const std::string createdb = "bin/quenor-createdb";
const std::string writer = "tests/storage_writer";
const std::string default_pair = "-f -d db";
constexpr const char* mdb_is_there = "Unable to create file \"db\\main.odb\"\n";

struct Outcome {
  int status;
  std::string output;
};

Outcome run(const std::string& name, const std::string& arguments, const std::string& input = {}) {
  Program program(name, arguments, input);
  const int status = program.wait();
  return {status, program.output()};
}
Outcome check() {
  return run("bin/quenor-dbinfo", "--check db");
}
void expect_sound() {
  const Outcome checked = check();
  EXPECT_EQ(checked.status, 0) << checked.output;
}

// Through the dialogue: a journal that is internal ('i') or external ('e'), so many checks.
std::string answers(char journal, int check_count) {
  return text::concat("db ", journal, journal == 'e' ? " db" : "", " 4 2 8192 ", check_count, " db\n");
}

std::uint32_t microseconds_now() {
  return static_cast<std::uint32_t>(platform::system().monotonic_microseconds());
}

// Works in a directory of its own, where "db" is for the databases.
class Real : public testing::Test {
 protected:
  Real() {
    std::filesystem::create_directory(directory_);
    std::filesystem::current_path(directory_);
    empty_databases();
    std::cout << "QUENOR_REAL_SEED=" << seed_ << '\n';
    run(createdb, "-h");  // Wine sets itself up the first time that it runs
  }
  ~Real() override {
    std::filesystem::current_path("/");
    std::filesystem::remove_all(directory_);
  }
  static void empty_databases() {
    std::filesystem::remove_all("db");
    std::filesystem::create_directory("db");
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
    return listed.status == 0 && listed.output == describe(state_);
  }
  // Lets a writer end in order after so many transactions.
  void expect_work(int count) {
    const Outcome outcome = run(writer, work(count));
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_THAT(follow(outcome.output), IsEmpty());
    expect_sound();
    EXPECT_TRUE(is_as_expected());
  }

  std::uint32_t up_to(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % (limit + 1)); }

  const std::filesystem::path directory_ =
      std::filesystem::temp_directory_path() / text::concat("quenor-real-", ::getpid());
  const char* given_seed_ = std::getenv("QUENOR_REAL_SEED");
  const std::uint64_t seed_ = given_seed_ != nullptr ? std::strtoull(given_seed_, nullptr, 10) : 1;
  const bool under_wine_ = windows_build() != nullptr;
  std::mt19937_64 random_{seed_};
  State state_;              // what the database must hold
  std::uint64_t tried_ = 0;  // the number of the last transaction
};

class KilledWriter : public Real, public testing::WithParamInterface<char> {};

// What was committed and not yet reported may be there as well. One kill in three aims at the opening.
TEST_P(KilledWriter, LosesNothingThatItHasReported) {
  const int kills = under_wine_ ? 10 : QUENOR_KILLS;
  int in_doubt = 0;
  std::uint32_t opening_microseconds = 10'000;
  ASSERT_EQ(run(createdb, "-f -i", answers(GetParam(), 1)).status, 0);
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
    EXPECT_EQ(program.end_with(SIGKILL), -SIGKILL);
    EXPECT_THAT(follow(program.output()), IsEmpty());
    expect_sound();
    if (is_as_expected())
      continue;
    in_doubt += 1;
    take_step(seed_, ++tried_, state_);
    EXPECT_TRUE(is_as_expected()) << "neither before transaction " << tried_ << " nor after it";
  }
  std::cout << kills << " kills, " << in_doubt << " between a commit and its report; " << tried_
            << " transactions\n";
  expect_work(20);
}

INSTANTIATE_TEST_SUITE_P(Journals, KilledWriter, testing::Values('i', 'e'),
                         [](const auto& journal) { return journal.param == 'i' ? "Internal" : "External"; });

TEST_F(Real, KilledCreationLeavesWhatNoLaterRunTouches) {
  const std::uint32_t start = microseconds_now();
  ASSERT_EQ(run(createdb, default_pair).status, 0);
  const std::uint32_t duration = microseconds_now() - start;
  for (int rest = under_wine_ ? 5 : 40; rest > 0 && !HasFailure(); --rest) {
    empty_databases();
    Program tool(createdb, default_pair);
    ::usleep(up_to(duration));
    tool.end_with(SIGKILL);
    EXPECT_THAT(check().status, AnyOf(0, 1, 2));
    if (std::filesystem::is_empty("db"))
      continue;
    std::filesystem::copy("db", "before");
    const Outcome later = run(createdb, default_pair);
    EXPECT_EQ(later.status, 1);
    EXPECT_THAT(later.output, HasSubstr(mdb_is_there));
    EXPECT_EQ(std::system("diff -r db before"), 0);
    std::filesystem::remove_all("before");
    EXPECT_THAT(run(writer, "list db").status, AnyOf(0, 1));
  }
}

// A disk in memory, mounted where no other process sees it, Wine's server included.
class FullDisk : public Real {
 protected:
  static constexpr std::uint64_t page = 4096;
  static constexpr std::uint64_t mdb_bytes = 385 * 8192;
  static constexpr std::uint64_t journal_end = mdb_bytes + (8 << 20);
  static constexpr std::uint64_t pair_bytes = journal_end + (10 << 20);

  void SetUp() override {
    if (under_wine_)
      GTEST_SKIP() << "Wine's server would not see the disk";
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
      GTEST_SKIP() << "this user may not mount a disk";
  }
  void TearDown() override { unmount(); }

  static void mount(std::uint64_t size_bytes, unsigned long flags = 0) {
    const std::string size = text::concat("size=", size_bytes);
    ASSERT_EQ(::mount("none", "db", "tmpfs", flags, size.c_str()), 0);
  }
  static void unmount() { ::umount("db"); }
};

TEST_F(FullDisk, EndsTheCreationWithTheMessageOfTheFileThatMeetsIt) {
  const auto tsdb = [](int block, int offset) {
    return text::concat("TSDB I/O error: Cannot seq. write 8192 bytes at block ", block, " offset ", offset,
                        ": \"No space left on device\"\n");
  };
  const std::pair<std::uint64_t, std::string> cases[] = {
      {mdb_bytes - page, "Unable to write to \"db\\main.odb\"\n"},
      {journal_end - page, "Unable to write to \"db\\main.odbj\"\n"},
      {journal_end, tsdb(0, 0)},
      {journal_end + page, tsdb(0, 4096)},
      {pair_bytes - page, tsdb(1279, 4096)},
  };
  for (const auto& [size_bytes, message] : cases) {
    mount(size_bytes);
    const Outcome outcome = run(createdb, default_pair);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output, HasSubstr(message)) << size_bytes;
    EXPECT_THAT(check().status, AnyOf(1, 2));
    unmount();
  }
  mount(pair_bytes);
  EXPECT_EQ(run(createdb, default_pair).status, 0);
  expect_sound();
  // No file has a hole: a later store into one of a mapped journal could end the process.
  EXPECT_EQ(std::filesystem::space("db").available, 0U);
}

TEST_F(FullDisk, FailsWhatNeedsRoomAndNothingElse) {
  const std::pair<std::uint64_t, std::string> cases[] = {
      {60 * page, "Could not byte-write: \"No space left on device\""},
      {61 * page, "Could not byte-write: written=4096 byte_len=8192"},
  };
  for (const auto& [spare_bytes, reason] : cases) {
    mount(pair_bytes + spare_bytes);
    ASSERT_EQ(run(createdb, default_pair).status, 0);
    state_.clear();
    for (int life = 0; life < 2; ++life) {
      const Outcome outcome = run(writer, work(1'000));
      EXPECT_EQ(outcome.status, 0) << outcome.output;
      const auto reasons = follow(outcome.output);
      EXPECT_THAT(reasons, testing::AllOf(testing::Contains(reason), testing::Each(reason)));
      std::cout << reasons.size() << " of 1000 transactions found no room\n";
      expect_sound();
      EXPECT_TRUE(is_as_expected());
    }
    mount(4 * pair_bytes, MS_REMOUNT);
    expect_work(200);
    unmount();
  }
}

TEST_F(Real, OneOfTwoToolsMakesThePair) {
  for (int rest = under_wine_ ? 3 : 10; rest > 0; --rest) {
    empty_databases();
    Program first(createdb, default_pair);
    Program second(createdb, default_pair);
    const int status = first.wait();
    EXPECT_EQ(status + second.wait(), 1);
    EXPECT_THAT((status == 0 ? second : first).output(), HasSubstr(mdb_is_there));
    expect_sound();
  }
}

// Another opener is refused in these words while the program, which ends well, has the file open.
void expect_one_opener(Program& program, const std::string& arguments, const std::string& words) {
  program.send(SIGSTOP);
  const Outcome second = run(writer, arguments);
  program.send(SIGCONT);
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.output, StartsWith(words));
  EXPECT_EQ(program.wait(), 0);
}

TEST_F(Real, AnExternalJournalHasOneOpener) {
  ASSERT_EQ(run(createdb, "-f -i", answers('e', 1)).status, 0);
  Program first(writer, work(1'000));
  EXPECT_TRUE(first.shows("done 5\n"));
  expect_one_opener(first, "list db", "refused Cannot open journal in \"db\\main.odbj\": ");
  EXPECT_THAT(follow(first.output()), IsEmpty());
  expect_work(0);
}

TEST_F(Real, ATimeSeriesDatabaseInTheMakingHasOneOpener) {
  Program tool(createdb, "-f -i", answers('i', 200));
  std::error_code none_yet;
  while (std::filesystem::file_size("db/main.tsdb", none_yet) == 0 || none_yet)
    ::usleep(100);
  expect_one_opener(tool, "lock db", "refused Unable to open \"db\\main.tsdb\": ");
  expect_sound();
  EXPECT_EQ(run(writer, "lock db").status, 0);
}

}  // namespace
}  // namespace real
