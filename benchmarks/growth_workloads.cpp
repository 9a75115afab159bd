// What must not cost more the larger a database becomes.

#include <cstdio>
#include <fstream>
#include <iostream>

#include "bare_file.h"
#include "common/log.h"
#include "common/text.h"
#include "metadb/objects/database.h"
#include "metadb/storage/backing_store.h"
#include "quenor_store.h"
#include "timeseries/backing_store.h"
#include "timeseries/check_ids.h"
#include "timeseries/create_tsdb.h"
#include "timeseries/levels.h"
#include "workloads.h"

namespace bench {
namespace {

constexpr std::uint32_t chain_sets = 3;

void make_file(const std::string& path, std::uint64_t) {
  std::ofstream{path};
}

std::string empty_tsdb_path(const Options& options) {
  const std::string path = fresh_directory(options, "tsdb") / "main.tsdb";
  make_file(path, 0);
  return path;
}

void create_tsdb(const Options& options, std::uint32_t block_size, std::uint32_t checks) {
  tsdb::log_mask = logging::severe;
  std::cerr.setstate(std::ios::failbit);  // its progress
  tsdb::create_tsdb({.path = fresh_directory(options, "tsdb") / "main.tsdb",
                     .block_size = block_size,
                     .chains = chain_sets,
                     .initial_checks = checks,
                     .create_file = make_file});
  std::cerr.clear();
}

// What this process has asked the system to write so far.
struct Written {
  std::uint64_t calls = 0;
  std::uint64_t bytes = 0;
};
Written written() {
  Written result;
  std::ifstream file("/proc/self/io");
  for (std::string name; file >> name;) {
    std::uint64_t value = 0;
    file >> value;
    if (name == "wchar:")
      result.bytes = value;
    if (name == "syscw:")
      result.calls = value;
  }
  return result;
}

// Microseconds of the processor for one of the `count` steps, and what one of them writes.
struct Cost {
  double microseconds = 0;
  double calls = 0;
  double bytes = 0;
};
template <typename Step>
Cost cost_of(std::size_t count, Step step) {
  const Written before = written();
  const double start = processor_seconds();
  for (std::size_t i = 0; i < count; ++i)
    step();
  const double used = processor_seconds() - start;
  const Written after = written();
  const auto each = [count](std::uint64_t from, std::uint64_t to) {
    return static_cast<double>(to - from) / static_cast<double>(count);
  };
  return {used * 1e6 / static_cast<double>(count), each(before.calls, after.calls),
          each(before.bytes, after.bytes)};
}

// Microseconds of the processor for writing as many bytes over again in as many calls, and for two flushes:
// one of the chain, whose blocks lie apart as the chains of all sets grow in turn, and one of the header.
double bare_writing(const Options& options, const Cost& cost) {
  constexpr std::size_t rounds = 100;
  const auto calls = static_cast<std::size_t>(cost.calls);
  if (calls == 0)
    return 0;
  const auto bytes_each = static_cast<std::size_t>(cost.bytes / cost.calls);
  const BareFile file(fresh_directory(options, "bare") / "file");
  const std::vector<std::byte> block(bytes_each);
  const auto write_block = [&](std::size_t number) { file.write(number * bytes_each, block); };
  for (std::size_t i = 0; i < calls * chain_sets; ++i)
    write_block(i);
  file.flush();
  const double start = processor_seconds();
  for (std::size_t round = 0; round < rounds; ++round) {
    for (std::size_t i = 1; i < calls; ++i)
      write_block(i * chain_sets);
    file.flush();
    write_block(0);
    file.flush();
  }
  const double used = processor_seconds() - start;
  return used * 1e6 / rounds;
}

// Takes steps until `late` of them are done, with a measured window that ends at each of the two places. The
// late one may cost what writing the blocks costs that it has to write and the early one has not.
template <typename Step>
void compare_early_and_late(const Options& options, const std::string& name, std::size_t early,
                            std::size_t late, void (*prepare)(const Options&), Step step) {
  Cost first;
  Cost last;
  const auto run = [&] {
    prepare(options);
    const std::size_t window = early / 2;
    for (std::size_t i = 0; i < early - window; ++i)
      step();
    first = cost_of(window, step);
    for (std::size_t i = early; i < late - window; ++i)
      step();
    last = cost_of(window, step);
    tsdb::tsdb_close();
    return Outcome{last.microseconds, {}};
  };
  contest(options, text::concat(name, ' ', late), "CPU µs",
          {{"late", run},
           {text::concat("the ", early, "th, and bare writes of what it need not write"),
            [&] {
              const double writing = bare_writing(options, last) - bare_writing(options, first);
              return Outcome{first.microseconds + writing, {}};
            },
            at_most(1.25)}});
  for (const auto& [number, cost] : {std::pair{early, first}, std::pair{late, last}}) {
    char text[96];
    std::snprintf(text, sizeof text, "the %zuth writes %.0f bytes in %.3g calls", number, cost.bytes,
                  cost.calls);
    remark(text);
  }
}

Outcome bare_growth(const Options& options, std::uint32_t blocks) {
  const std::filesystem::path directory = fresh_directory(options, "bare");
  const BareFile file(directory / "file");
  const Clock clock;
  file.write_zeros(0, std::uint64_t{blocks} * block_bytes, block_bytes);
  const double seconds = clock.seconds();
  std::filesystem::remove_all(directory);
  return {seconds * 1000, {}};
}

Outcome mdb_growth(const Options& options, std::uint32_t blocks) {
  const StoreSettings settings{.directory = fresh_directory(options, "mdb")};
  create_database(settings);
  open_database(settings);
  const auto first = static_cast<std::uint32_t>(mdb::backing_size() / block_bytes);
  const Clock clock;
  mdb::backing_grow(first + blocks - 1);
  const double seconds = clock.seconds();
  mdb::mdb_close();
  std::filesystem::remove_all(settings.directory);
  return {seconds * 1000, {}};
}

Outcome tsdb_growth(const Options& options, std::uint32_t blocks) {
  tsdb::btb_open(empty_tsdb_path(options));
  tsdb::btb_set_block_size(block_bytes);
  const Clock clock;
  tsdb::btb_grow(blocks);
  const double seconds = clock.seconds();
  tsdb::btb_close();
  std::filesystem::remove_all(options.directory / "tsdb");
  return {seconds * 1000, {}};
}

}  // namespace

void run_levels(const Options& options) {
  compare_early_and_late(
      options, "levels", 1'000, options.sized(100'000, 5'000),
      [](const Options& given) { create_tsdb(given, 1024, 128); }, [] { tsdb::allocate_level(1, 0, 0); });
}

void run_check_ids(const Options& options) {
  compare_early_and_late(
      options, "check-ids", 100, options.sized(20'000, 300),
      [](const Options& given) { create_tsdb(given, block_bytes, 10); },
      [] { tsdb::allocate_check_id(1, 1); });
}

void run_grow(const Options& options) {
  const auto blocks = static_cast<std::uint32_t>(options.sized(131'072, 2'048));
  const auto fastest = [&](Outcome (*grow)(const Options&, std::uint32_t)) {
    return fastest_of_some([&options, blocks, grow] { return grow(options, blocks); });
  };
  const std::string size = text::concat(" by ", blocks / 128, " MiB");
  const Contestant bare{"bare writes", fastest(bare_growth), at_most(1.05)};
  contest(options, "grow, MDB" + size, "ms", {{"Quenor", fastest(mdb_growth)}, bare});
  contest(options, "grow, TSDB" + size, "ms", {{"Quenor", fastest(tsdb_growth)}, bare});
}

}  // namespace bench
