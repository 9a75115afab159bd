// Contests: one workload, run in turn by this system and by what it is held against, and the table of
// results.

#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace bench {

struct Options {
  bool quick = false;  // small sizes, one run: whether everything works
  int runs = 5;
  std::filesystem::path directory;  // for the files, on the disk to measure
  std::filesystem::path programs;   // where the tool and its bare sibling are

  // The number of operations, or what the smoke run makes of it.
  std::size_t sized(std::size_t full, std::size_t quick_size) const { return quick ? quick_size : full; }
};

// What one run came to: a figure in the contest's unit, and the times of single operations if they were
// taken.
struct Outcome {
  double figure = 0;
  std::vector<double> microseconds;
};

// What the figure of this system shall be, seen from a sibling's.
struct Target {
  enum class Kind { none, at_least, at_most, at_most_beyond };
  Kind kind = Kind::none;
  double value = 0;  // a ratio; of the last kind a difference
};
constexpr Target at_least(double ratio) {
  return {Target::Kind::at_least, ratio};
}
constexpr Target at_most(double ratio) {
  return {Target::Kind::at_most, ratio};
}
constexpr Target at_most_beyond(double difference) {
  return {Target::Kind::at_most_beyond, difference};
}

struct Contestant {
  std::string name;
  std::function<Outcome()> run;
  Target target = {};  // for this system against this sibling
};

// Lets all run, in turn and as often as the options say, and prints a line for each sibling of the first one.
// Returns their figures.
std::vector<double> contest(const Options& options, const std::string& workload, const std::string& unit,
                            const std::vector<Contestant>& contestants);

// Runs it a few times at once; the least figure counts. For files of a size that the memory for them decides:
// the host of a virtual machine takes back what is free for a while, and who touches it first waits several
// times as long as the writing takes. The later runs take over the memory of the earlier ones.
std::function<Outcome()> fastest_of_some(std::function<Outcome()> run);

// A remark below the line that was printed last.
void remark(const std::string& text);

// Where the table goes; its head is printed at once.
void begin_table();

class Clock {
 public:
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }
  double microseconds() const { return seconds() * 1e6; }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// Runs `operation(i)` for each i below `count`; the figure is thousands of operations a second. Every
// `sampled`th is timed on its own.
template <typename Operation>
Outcome timed_operations(std::size_t count, std::size_t sampled, Operation operation) {
  Outcome outcome;
  outcome.microseconds.reserve(count / sampled + 1);
  const Clock whole;
  for (std::size_t i = 0; i < count; ++i) {
    if (i % sampled != 0) {
      operation(i);
      continue;
    }
    const Clock single;
    operation(i);
    outcome.microseconds.push_back(single.microseconds());
  }
  outcome.figure = static_cast<double>(count) / whole.seconds() / 1000;
  return outcome;
}

// Seconds of the processor that this process has used.
double processor_seconds();

// An empty directory of that name below the options' one.
std::filesystem::path fresh_directory(const Options& options, const std::string& name);

// The numbers that the workloads draw from: the same in every run and on every engine.
constexpr std::uint64_t scrambled(std::uint64_t number) {
  std::uint64_t z = (number + 1) * 0x9E37'79B9'7F4A'7C15;
  z = (z ^ (z >> 30)) * 0xBF58'476D'1CE4'E5B9;
  z = (z ^ (z >> 27)) * 0x94D0'49BB'1331'11EB;
  return z ^ (z >> 31);
}

}  // namespace bench
