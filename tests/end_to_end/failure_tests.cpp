// The tool in one process with the tests, on a simulated computer whose operations fail on request.

#include <gmock/gmock.h>

#include <string>

#include "createdb/create_files.h"
#include "createdb/end_of_run.h"
#include "createdb/progress.h"
#include "simulation/simulated_system.h"
#include "small_pair.h"
#include "tool_run.h"

namespace {

using simulation::Operation;

class Failures : public ::testing::Test {
 protected:
  Failures() {
    system_.add_directory("/db");
    system_.set_free_bytes(1U << 30);
    system_.set_error_text(28, "no room");
  }
  ~Failures() override { support::drop_databases(); }

  // The operation on the path fails, or transfers no more than `transfer_limit`.
  void inject(Operation operation, const char* path_end, std::uint64_t occurrence,
              std::optional<std::size_t> transfer_limit = {}) {
    system_.inject({.operation = operation,
                    .path_end = path_end,
                    .occurrence = occurrence,
                    .code = 28,
                    .transfer_limit = transfer_limit});
  }

  // The status in digits and the last line on standard error.
  static std::string run(const std::string& directory) {
    const support::ToolRun outcome = support::run_tool({"-f", "-d", directory});
    return std::to_string(outcome.status) + " " + outcome.last_words;
  }
  simulation::SimulatedSystem system_;
  simulation::Installed installed_{system_};
};

TEST_F(Failures, EndTheRunWithAMessageOfTheirOwn) {
  const struct {
    Operation operation;
    const char* path_end;
    std::uint64_t occurrence;
    std::string message;
    std::optional<std::size_t> transfer_limit = {};
  } cases[] = {
      {Operation::query_directory, "/db", 2, "Cannot place anything in: \"/db\""},
      {Operation::write, "main.odb", 3, "write returned 0", 0},
      {Operation::close, "main.odb", 1, "Failed closing file \"/db\\main.odb\""},
      {Operation::sync_directory, "", 3, "Unable to write to \"/db\\main.tsdb\""},
      {Operation::open, "main.odbj", 1, "MDB I/O error: Cannot open journal in \"/db\\main.odbj\": no room"},
      {Operation::open, "main.tsdb", 1,
       "Initializing I/O layer...TSDB I/O error: Unable to open \"/db\\main.tsdb\": no room"},
      {Operation::sync, "main.tsdb", 1, "TSDB I/O error: flush failed with error: \"no room\""},
      {Operation::close, "main.odb", 2, "MDB I/O error: Error when closing the database"},
  };
  for (const auto& [operation, path_end, occurrence, message, transfer_limit] : cases) {
    inject(operation, path_end, occurrence, transfer_limit);
    EXPECT_EQ(run("/db"), "1 " + message);
    support::drop_databases();
    system_.clear_faults();
    for (const auto* path : {"/db/main.odb", "/db/main.odbj", "/db/main.tsdb"})
      system_.remove_file(path);
  }
  const std::string long_name = "/" + std::string(983, 'd');
  system_.add_directory(long_name);
  EXPECT_EQ(run(long_name), "1 MDB Error: Too long journal path");
}

// Whenever the run is interrupted, what it names is what it made: no file is there that it does not name, and
// one that somebody else made is not named.
TEST_F(Failures, LeaveTheFilesThatAnInterruptNames) {
  const auto words = [&] { return system_.words_of_an_interrupt().value_or("nothing"); };
  const std::string left = "\nInterrupted, left behind:";
  inject(Operation::create, "main.odb", 1);
  run("/db");
  EXPECT_EQ(words(), "\nInterrupted before a file was made\n");
  system_.add_file("/db/main.tsdb", {});
  run("/db");
  EXPECT_EQ(words(), left + " \"/db\\main.odb\" \"/db\\main.odbj\"\n");
}

TEST_F(Failures, LeaveNothingOfTheProgressOnATerminal) {
  // What is shown of so many MiB after so many milliseconds.
  const auto shown = [&](createdb::GrowthProgress& progress, std::uint64_t milliseconds,
                         std::uint64_t written) {
    system_.advance_microseconds(milliseconds * 1'000);
    ::testing::internal::CaptureStderr();
    progress.advance(written << 20, 1'000 << 20);
    return ::testing::internal::GetCapturedStderr();
  };
  createdb::GrowthProgress elsewhere;
  EXPECT_EQ(shown(elsewhere, 2'000, 1), "") << "not on a terminal";
  system_.set_terminal(platform::Stream::error, true);
  createdb::GrowthProgress progress;
  EXPECT_EQ(shown(progress, 1'000, 100), "");
  const std::string first = "20 %, 100.0 MiB/s, 0:08 left", second = "80 %, 80.0 MiB/s, 0:03 left";
  EXPECT_EQ(shown(progress, 1'000, 200), first);
  EXPECT_EQ(shown(progress, 100, 201), "") << "a few times a second";
  EXPECT_EQ(shown(progress, 7'900, 800), std::string(first.size(), '\b') + second + " \b");
  const auto wiped = [](std::size_t size) {
    return std::string(size, '\b') + std::string(size, ' ') + std::string(size, '\b');
  };
  EXPECT_EQ(shown(progress, 0, 1'000), wiped(second.size()));
  ::testing::internal::CaptureStderr();
  {
    createdb::GrowthProgress unfinished;
    system_.advance_microseconds(2'000'000);
    unfinished.advance(1, 3);
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "33 %, 0.5 B/s, 0:04 left" + wiped(24));
  EXPECT_EQ(createdb::progress_text(1, 1'000, 36'000'000), "0 %, 0.0 B/s, 9:59:24 left");
}

TEST_F(Failures, OfADeviceHaveMessagesToo) {
  std::vector<std::byte> contents(10'000, std::byte{7});
  system_.add_file("/device", contents);
  system_.make_fixed_size("/device");
  createdb::prepare_store("/device", 5'000);
  std::fill_n(contents.begin(), 5'000, std::byte{0});
  EXPECT_TRUE(system_.contents("/device") == contents);
  EXPECT_EQ(system_.count(Operation::sync_directory), 0U);

  const auto expect_end = [](const std::string& path, std::uint64_t size_bytes, const std::string& message) {
    const support::RedirectedStreams streams("");
    EXPECT_THROW(createdb::prepare_store(path, size_bytes), createdb::EndOfRun);
    EXPECT_EQ(streams.error_text(), message + "\n");
  };
  expect_end("/none", 1, "Unable to open store \"/none\"");
  EXPECT_FALSE(system_.has_file("/none"));
  expect_end("/device", 12'289, "Unable to write to \"/device\"");
  inject(Operation::write, "device", 1, 0);
  expect_end("/device", 1, "write returned 0");
  inject(Operation::close, "device", 1);
  expect_end("/device", 1, "Failed closing store \"/device\"");
}

}  // namespace
