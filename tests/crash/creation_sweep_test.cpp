// The whole creation run on a simulated computer where, in one run after the other, each of its operations
// is the one that fails or at which the power goes.
//
//   R1  A run that ends with status 0 has left the same bytes as an undisturbed one, all of them durable.
//   R2  A run that fails ends with status 1 and a message of the tool.
//   R3  What a failed or cut run has left is never taken for whole: the next run either refuses it or, where
//       nothing was left, makes everything anew.
//
// Reads of one byte are left out: they find out where a file ends, and one that fails means the end.
// Of the thousands of writes that only fill a file with zeros, QUENOR_SWEEP_STRIDE says every how manieth is
// taken; 1 takes them all.

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <optional>

#include "inspect/inspection.h"
#include "simulation/simulated_system.h"
#include "small_pair.h"
#include "tool_run.h"

namespace {

using simulation::Kept;
using simulation::SimulatedSystem;
using Outcome = support::ToolRun;

constexpr const char* paths[] = {"/db/main.odb", "/db/main.odbj", "/db/main.tsdb"};

struct Mode {
  const char* name;
  std::vector<std::string> options;
  const char* answers = "";
  std::size_t step = 1;  // how many operations on the next to be disturbed is: large files take their time
};

const Mode modes[] = {
    {"Default", {"-d", "/db", "-f"}, "", 5},
    {"DefaultWithoutAdministrator", {"-d", "/db", "-f", "-n"}, "", 20},
    {"DefaultEmpty", {"-d", "/db", "-f", "-c"}, "", 20},
    {"Confirmed", {"-i", "-c"}, "/db\ni\n4\ny\n2\n16384\n1\n/db\ny\n", 4},
    {"InternalJournal", {"-i", "-f"}, "/db\ni\n4\n2\n16384\n1\n/db\n", 2},
    {"SmallBlocksWithoutAdministrator", {"-i", "-f", "-n"}, "/db\ne\n/db\n4\n5\n1024\n1\n/db\n", 2},
    {"Empty", {"-i", "-f", "-c"}, "/db\ne\n/db\n4\n3\n16384\n1\n/db\n"},
};

void PrintTo(const Mode& mode, std::ostream* out) {
  *out << mode.name;
}

class CreationSweep : public testing::TestWithParam<Mode> {
 protected:
  using Files = std::vector<std::optional<std::vector<std::byte>>>;

  static SimulatedSystem new_computer() {
    SimulatedSystem computer;
    computer.add_directory("/db");
    computer.set_free_bytes(1U << 26);
    return computer;
  }

  static Outcome run(SimulatedSystem& computer) {
    const simulation::Installed use(computer);
    const Outcome outcome = support::run_tool(GetParam().options, GetParam().answers);
    support::drop_databases();
    return outcome;
  }

  static Files files_of(const SimulatedSystem& computer) {
    Files files;
    for (const char* path : paths)
      files.push_back(computer.has_file(path) ? std::optional(computer.contents(path)) : std::nullopt);
    return files;
  }

  // Numbers of the operations that are made to fail, from 1 on.
  static std::vector<std::uint64_t> chosen_operations(const std::vector<simulation::Event>& events) {
    const char* wanted = std::getenv("QUENOR_SWEEP_STRIDE");
    const std::uint64_t stride = wanted != nullptr ? std::strtoull(wanted, nullptr, 10) : 128;
    std::vector<std::uint64_t> chosen;
    std::uint64_t row = 0;  // length of the row of writes that follow one another in a file
    for (std::size_t i = 0; i < events.size(); ++i) {
      const bool is_alike = i > 0 && events[i].operation == simulation::Operation::write &&
                            events[i - 1].operation == simulation::Operation::write &&
                            events[i].position == events[i - 1].position + events[i - 1].length;
      row = is_alike ? row + 1 : 0;
      const bool probes = events[i].operation == simulation::Operation::read && events[i].length == 1;
      if (!probes && (row % stride == 0 || row == 1))
        chosen.push_back(i + 1);
    }
    return chosen;
  }

  void expect_as_undisturbed(const SimulatedSystem& computer) const {
    EXPECT_TRUE(files_of(computer) == whole_);
    SimulatedSystem after_a_cut(computer);
    after_a_cut.power_cut({});
    EXPECT_TRUE(files_of(after_a_cut) == whole_);
  }

  void expect_stated(const Outcome& outcome) const {
    EXPECT_EQ(outcome.status, 1);
    for (const char* start : {"Unable to ", "Cannot ", "write returned 0", "Failed closing "}) {
      if (outcome.last_words.starts_with(start))
        return;
    }
    for (const char* part : {"TSDB I/O error: ", "MDB I/O error: ", "TSDB Error: ", "MDB Error: "}) {
      if (outcome.last_words.find(part) != std::string::npos)
        return;
    }
    ADD_FAILURE() << outcome.last_words;
  }

  // R3, after the inspection has looked at what is there.
  void expect_not_taken_for_whole(SimulatedSystem& computer) const {
    computer.clear_faults();
    {
      const simulation::Installed use(computer);
      (void)inspect::inspect_pair("/db", std::nullopt);
    }
    const Files left = files_of(computer);
    const Outcome next = run(computer);
    const Files now = files_of(computer);
    if (next.status == 0)
      return expect_as_undisturbed(computer);
    EXPECT_TRUE(next.last_words.starts_with("Unable to create file \"/db\\main.")) << next.last_words;
    for (std::size_t i = 0; i < left.size(); ++i)
      EXPECT_TRUE(!left[i] || now[i] == left[i]) << paths[i] << " was overwritten";
  }

  void cut_the_power(const SimulatedSystem& computer, std::uint64_t operation) {
    constexpr Kept others[] = {Kept::all_but_one, Kept::random_sectors, Kept::random_writes,
                               Kept::everything};
    for (const Kept kept : {Kept::nothing, others[operation % std::size(others)]}) {
      SCOPED_TRACE(testing::Message() << "kept " << static_cast<int>(kept));
      SimulatedSystem cut(computer);
      cut.power_cut({kept, operation});
      expect_not_taken_for_whole(cut);
      crash_states_ += 1;
    }
  }

  void disturb(std::uint64_t operation, bool cuts_power) {
    SCOPED_TRACE(testing::Message() << "operation " << operation << (cuts_power ? ", power cut" : ""));
    SimulatedSystem computer = new_computer();
    // Once, from then on, and with pieces written only.
    computer.inject({.occurrence = operation,
                     .lasting = operation % 3 == 1,
                     .power_fails = cuts_power,
                     .transfer_limit =
                         !cuts_power && operation % 3 == 2 ? std::optional<std::size_t>(100) : std::nullopt});
    if (!cuts_power)
      return fail_or_end_whole(computer);
    const Outcome outcome = run(computer);
    if (outcome.status == 0)
      return expect_as_undisturbed(computer);
    expect_stated(outcome);
    cut_the_power(computer, operation);
  }

  void fail_or_end_whole(SimulatedSystem& computer) {
    const Outcome outcome = run(computer);
    if (outcome.status == 0)
      return expect_as_undisturbed(computer);
    expect_stated(outcome);
    expect_not_taken_for_whole(computer);
  }

  Files whole_;
  std::uint64_t crash_states_ = 0;
};

TEST_P(CreationSweep, EndsWholeOrWithAMessageWhicheverOperationFails) {
  SimulatedSystem undisturbed = new_computer();
  ASSERT_EQ(run(undisturbed).status, 0);
  whole_ = files_of(undisturbed);
  expect_as_undisturbed(undisturbed);
  const std::vector<std::uint64_t> operations = chosen_operations(undisturbed.events());
  const std::size_t step = std::getenv("QUENOR_SWEEP_STRIDE") != nullptr ? 1 : GetParam().step;
  for (std::size_t i = 0; i < operations.size() && !HasFailure(); i += step) {
    disturb(operations[i], false);
    disturb(operations[i], true);
  }
  for (std::uint64_t room = 0; room < (26U << 20) && !HasFailure(); room += (1U << 21) - 1'000) {
    SCOPED_TRACE(testing::Message() << room << " bytes on the disk");
    SimulatedSystem computer = new_computer();
    computer.set_free_bytes(room);
    fail_or_end_whole(computer);
  }
  std::cout << crash_states_ << " crash states\n";
}

INSTANTIATE_TEST_SUITE_P(Modes, CreationSweep, testing::ValuesIn(modes),
                         [](const auto& mode) { return mode.param.name; });

}  // namespace
