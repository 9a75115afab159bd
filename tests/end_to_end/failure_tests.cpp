// The tool in one process with the tests, on a simulated computer whose operations fail on request.

#include <gmock/gmock.h>

#include <string>

#include "createdb/create_files.h"
#include "createdb/end_of_run.h"
#include "createdb/progress.h"
#include "small_pair.h"
#include "tool_run.h"

namespace {

using simulation::Operation;

class Failures : public ::testing::Test, protected support::Computer {
 protected:
  Failures() {
    sim.set_free_bytes(1U << 30);
    sim.set_error_text(28, "no room");
  }

  void inject(Operation operation, const char* path_end, std::uint64_t occurrence) {
    sim.inject({.operation = operation, .path_end = path_end, .occurrence = occurrence, .code = 28});
  }

  // The status in digits and the last line on standard error.
  static std::string run(const std::string& directory) {
    const support::ToolRun outcome = support::run_tool({"-f", "-d", directory});
    return std::to_string(outcome.status) + " " + outcome.last_words;
  }
};

TEST_F(Failures, EndTheRunWithAMessageOfTheirOwn) {
  const struct {
    Operation operation;
    const char* path_end;
    std::uint64_t occurrence;
    std::string message;
  } cases[] = {
      {Operation::query_directory, "/db", 2, "Cannot place anything in: \"/db\""},
      {Operation::close, "main.odb", 1, "Failed closing file \"/db\\main.odb\""},
      {Operation::sync_directory, "", 3, "Unable to write to \"/db\\main.tsdb\""},
      {Operation::open, "main.odbj", 1, "MDB I/O error: Cannot open journal in \"/db\\main.odbj\": no room"},
      {Operation::open, "main.tsdb", 1,
       "Initializing I/O layer...TSDB I/O error: Unable to open \"/db\\main.tsdb\": no room"},
      {Operation::sync, "main.tsdb", 1, "TSDB I/O error: flush failed with error: \"no room\""},
      {Operation::close, "main.odb", 2, "MDB I/O error: Error when closing the database"},
  };
  for (const auto& [operation, path_end, occurrence, message] : cases) {
    inject(operation, path_end, occurrence);
    EXPECT_EQ(run("/db"), "1 " + message);
    support::drop_databases();
    sim.clear_faults();
    for (const auto* path : {"/db/main.odb", "/db/main.odbj", "/db/main.tsdb"})
      sim.remove_file(path);
  }
  const std::string long_name = "/" + std::string(983, 'd');
  sim.add_directory(long_name);
  EXPECT_EQ(run(long_name), "1 MDB Error: Too long journal path");
}

// The files that come before the one that stands in the way are left.
TEST_F(Failures, NeitherTouchAFileOfSomebodyElseNorLetAnInterruptNameIt) {
  sim.add_file("/db/main.tsdb", std::vector(2, std::byte{7}));
  EXPECT_EQ(run("/db"), "1 Unable to create file \"/db\\main.tsdb\"");
  EXPECT_EQ(sim.contents("/db/main.tsdb"), std::vector(2, std::byte{7}));
  EXPECT_EQ(sim.words_of_an_interrupt(),
            "\nInterrupted, left behind: \"/db\\main.odb\" \"/db\\main.odbj\"\n");
}

TEST_F(Failures, LeaveNothingOfTheProgressOnATerminal) {
  sim.set_terminal(platform::Stream::error, true);
  createdb::GrowthProgress progress;
  // What is shown of so many MiB after so many milliseconds.
  const auto shown = [&](std::uint64_t milliseconds, std::uint64_t written) {
    sim.advance_microseconds(milliseconds * 1'000);
    ::testing::internal::CaptureStderr();
    progress.advance(written << 20, 1'000 << 20);
    return ::testing::internal::GetCapturedStderr();
  };
  EXPECT_EQ(shown(1'000, 100), "");
  const std::string first = "20 %, 100.0 MiB/s, 0:08 left", second = "80 %, 80.0 MiB/s, 0:03 left";
  EXPECT_EQ(shown(1'000, 200), first);
  EXPECT_EQ(shown(100, 201), "") << "a few times a second";
  EXPECT_EQ(shown(7'900, 800), std::string(first.size(), '\b') + second + " \b");
  const std::size_t size = second.size();
  EXPECT_EQ(shown(0, 1'000), std::string(size, '\b') + std::string(size, ' ') + std::string(size, '\b'));
  EXPECT_EQ(createdb::progress_text(1, 1'000, 36'000'000), "0 %, 0.0 B/s, 9:59:24 left");
}

TEST_F(Failures, OfADeviceHaveMessagesToo) {
  std::vector<std::byte> contents(10'000, std::byte{7});
  sim.add_file("/device", contents);
  sim.make_fixed_size("/device");
  createdb::prepare_store("/device", 5'000);
  std::fill_n(contents.begin(), 5'000, std::byte{0});
  EXPECT_TRUE(sim.contents("/device") == contents);
  EXPECT_EQ(sim.count(Operation::sync_directory), 0U);

  const auto expect_end = [](const std::string& path, std::uint64_t size_bytes, const std::string& message) {
    const support::RedirectedStreams streams("");
    EXPECT_THROW(createdb::prepare_store(path, size_bytes), createdb::EndOfRun);
    EXPECT_EQ(streams.error_text(), message + "\n");
  };
  expect_end("/none", 1, "Unable to open store \"/none\"");
  EXPECT_FALSE(sim.has_file("/none"));
  expect_end("/device", 12'289, "Unable to write to \"/device\"");
  inject(Operation::close, "device", 1);
  expect_end("/device", 1, "Failed closing store \"/device\"");
  sim.inject({.operation = Operation::write, .transfer_limit = 0});
  expect_end("/device", 1, "write returned 0");
}

}  // namespace
