// The whole creation run on a simulated computer where, in one run after the other, each of its operations
// is the one that fails or at which the power goes.
//
//   R1  A run that ends with status 0 has left the same bytes as an undisturbed one, all of them durable.
//   R2  A run that fails ends with status 1 and a message of the tool.
//   R3  What a failed or cut run has left is never taken for whole: the next run either refuses it or, where
//       nothing was left, makes everything anew.
//
// Of the thousands of writes that only fill a file with zeros, QUENOR_SWEEP_STRIDE says every how manieth is
// taken; 1 takes them all. Without it most modes take a sample of the other operations as well.

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <optional>

#include "inspect/inspection.h"
#include "small_pair.h"
#include "sweep.h"
#include "tool_run.h"

namespace {

using simulation::Kept;
using simulation::SimulatedSystem;

struct Mode {
  const char* name;
  std::vector<std::string> options;
  const char* answers = "";
  std::size_t step = 1;  // how many operations on the next to be disturbed is: large files take their time
};

const Mode modes[] = {
    {"Default", {"-d", "/db", "-f"}, "", 10},
    {"DefaultWithoutAdministrator", {"-d", "/db", "-f", "-n"}, "", 20},
    {"DefaultEmpty", {"-d", "/db", "-f", "-c"}, "", 20},
    {"Confirmed", {"-i", "-c"}, "/db\ni\n4\ny\n2\n16384\n1\n/db\ny\n", 4},
    {"InternalJournal", {"-i", "-f"}, "/db\ni\n4\n2\n16384\n1\n/db\n", 4},
    {"SmallBlocksWithoutAdministrator", {"-i", "-f", "-n"}, "/db\ne\n/db\n4\n5\n1024\n1\n/db\n", 4},
    {"Empty", {"-i", "-f", "-c"}, "/db\ne\n/db\n4\n3\n16384\n1\n/db\n"},
};

class CreationSweep : public testing::TestWithParam<Mode> {
 protected:
  using Files = std::vector<std::optional<std::vector<std::byte>>>;

  struct Computer : support::Computer {
    Computer() { sim.set_free_bytes(1U << 26); }
  };

  static support::ToolRun run() {
    support::ToolRun outcome = support::run_tool(GetParam().options, GetParam().answers);
    support::drop_databases();
    return outcome;
  }

  static Files files_of(const SimulatedSystem& computer) {
    Files files;
    for (const char* path : {"/db/main.odb", "/db/main.odbj", "/db/main.tsdb"})
      files.push_back(computer.has_file(path) ? std::optional(computer.contents(path)) : std::nullopt);
    return files;
  }

  // Of a row of writes that follow one another in a file the first, and some.
  static std::vector<std::uint64_t> chosen_operations(const SimulatedSystem& undisturbed) {
    const char* wanted = std::getenv("QUENOR_SWEEP_STRIDE");
    const std::uint64_t stride =
        wanted != nullptr ? std::max<std::uint64_t>(1, std::strtoull(wanted, nullptr, 10)) : 128;
    std::vector<std::uint64_t> chosen;
    simulation::Event before{simulation::Operation::any};
    for (const std::uint64_t number : crash::operations_to_disturb(undisturbed)) {
      const simulation::Event& event = undisturbed.events()[number - 1];
      const bool goes_on = event.matches(simulation::Operation::write, before.path) &&
                           event.position == before.position + before.length && event.position != 0;
      if (!goes_on || number % stride == 0)
        chosen.push_back(number);
      before = event;
    }
    return chosen;
  }

  void expect_as_undisturbed(const SimulatedSystem& computer) const {
    EXPECT_TRUE(files_of(computer) == whole_);
    SimulatedSystem after_a_cut(computer);
    after_a_cut.power_cut({});
    EXPECT_TRUE(files_of(after_a_cut) == whole_);
  }

  // R3, after the inspection has looked at what is there.
  void expect_not_taken_for_whole(SimulatedSystem& computer) const {
    computer.clear_faults();
    (void)inspect::inspect_pair("/db", std::nullopt);
    const Files left = files_of(computer);
    const support::ToolRun next = run();
    const Files now = files_of(computer);
    if (next.status == 0)
      return expect_as_undisturbed(computer);
    EXPECT_THAT(next.last_words, testing::StartsWith("Unable to create file \"/db\\main."));
    for (std::size_t i = 0; i < left.size(); ++i)
      EXPECT_TRUE(!left[i] || now[i] == left[i]) << "file " << i << " was overwritten";
  }

  // Returns whether the run has failed, as it should then.
  bool fails_with_a_message(SimulatedSystem& computer) const {
    const support::ToolRun outcome = run();
    if (outcome.status == 0) {
      expect_as_undisturbed(computer);
      return false;
    }
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.last_words,
                testing::ContainsRegex("^(Unable to |Cannot |write returned 0|Failed closing )|"
                                       "(TSDB|MDB) (I/O error|Error): "));
    return true;
  }

  // Once, from then on, or with pieces written only; and with the power gone.
  void disturb(std::uint64_t operation) {
    SCOPED_TRACE(testing::Message() << "operation " << operation);
    Computer computer;
    computer.sim.inject(
        {.occurrence = operation,
         .lasting = operation % 3 == 1,
         .transfer_limit = operation % 3 == 2 ? std::optional<std::size_t>(100) : std::nullopt});
    if (fails_with_a_message(computer.sim))
      expect_not_taken_for_whole(computer.sim);

    Computer dark;
    dark.sim.inject({.occurrence = operation, .power_fails = true});
    if (!fails_with_a_message(dark.sim))
      return;
    constexpr Kept others[] = {Kept::all_but_one, Kept::random_sectors, Kept::random_writes,
                               Kept::everything};
    for (const Kept kept : {Kept::nothing, others[operation % std::size(others)]}) {
      SCOPED_TRACE(testing::Message() << "power cut, kept " << static_cast<int>(kept));
      Computer cut(dark);
      cut.sim.power_cut({kept, operation});
      expect_not_taken_for_whole(cut.sim);
      crash_states_ += 1;
    }
  }

  Files whole_;
  std::uint64_t crash_states_ = 0;
};

TEST_P(CreationSweep, EndsWholeOrWithAMessageWhicheverOperationFails) {
  Computer undisturbed;
  ASSERT_EQ(run().status, 0);
  whole_ = files_of(undisturbed.sim);
  expect_as_undisturbed(undisturbed.sim);
  const std::vector<std::uint64_t> operations = chosen_operations(undisturbed.sim);
  const std::size_t step = std::getenv("QUENOR_SWEEP_STRIDE") != nullptr ? 1 : GetParam().step;
  for (std::size_t i = 0; i < operations.size() && !HasFailure(); i += step)
    disturb(operations[i]);
  std::cout << crash_states_ << " crash states\n";
  EXPECT_GT(crash_states_, 0U);
}

INSTANTIATE_TEST_SUITE_P(Modes, CreationSweep, testing::ValuesIn(modes),
                         [](const auto& mode) { return mode.param.name; });

}  // namespace
