// The state of a simulated computer: its disk, what disturbs it, its clocks.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/platform.h"

namespace simulation {

inline constexpr std::size_t sector_size = 512;

// The calls that can be made to fail. `any` stands for all of them in a Fault or a count.
enum class Operation {
  any,
  open,
  create,
  remove,
  read,
  write,
  sync,
  set_time,
  map,
  close,
  mapping_write,
  mapping_sync,
  mapping_unmap,
  mapping_close,
  sync_directory,
  query_directory,
  query_free_bytes,
  look_up_error,
};

// A disturbance that waits for the operation it is meant for.
struct Fault {
  Operation operation = Operation::any;
  // Only operations on a path that ends so count; empty for all.
  std::string path_end{};
  // Which of the operations from now on, the next one being 1; 0 for none.
  std::uint64_t occurrence = 1;
  // Whether all that follow are disturbed as well.
  bool lasting = false;
  // The code to fail with.
  std::uint32_t code = 5;
  // The power goes at this moment, so that it and all that follow fail, too. What the medium has received by
  // then is for power_cut() to say, which must come next.
  bool power_fails = false;
  // Instead of failing, a read or write succeeds with at most this many bytes; others fail all the same.
  std::optional<std::size_t> transfer_limit{};
};

// An operation as it was asked for.
struct Event {
  Operation operation;
  std::string path{};          // with slashes
  std::uint64_t position = 0;  // in the file, of reads, writes and maps
  std::uint64_t length = 0;

  bool transfers() const { return operation == Operation::read || operation == Operation::write; }
  bool matches(Operation wanted, std::string_view path_end) const {
    return (wanted == Operation::any || wanted == operation) && path.ends_with(path_end);
  }
};

// What the medium has received of the changes that were not yet durable when the power went.
enum class Kept {
  everything,
  nothing,
  // All write calls, or changed sectors of mappings, but the one numbered seed modulo their count.
  all_but_one,
  // Each write call, or changed sector of a mapping, whole or not at all, in any order.
  random_writes,
  // Each sector as it stood after a random number of the changes made to it: writes are torn.
  random_sectors,
};

struct Policy {
  Kept kept = Kept::nothing;
  std::uint64_t seed = 0;  // the same seed, the same outcome
};

// The memory of a mapping, placed in its file.
struct View {
  std::uint64_t position = 0;
  std::vector<std::byte> bytes{};
};

// A file on the disk: what the programs see and what the medium has.
struct StoredFile {
  struct Change {
    std::uint64_t position;
    std::vector<std::byte> bytes;
  };

  explicit StoredFile(std::span<const std::byte> bytes) { replace(bytes); }
  // Replaces everything, on the medium as well.
  void replace(std::span<const std::byte> bytes);

  std::size_t read(std::uint64_t position, std::span<std::byte> buffer) const;
  // Lengthens the file as needed.
  void write(std::uint64_t position, std::span<const std::byte> bytes);
  // Turns the changed sectors of a view into written bytes: all, or those that the coin picks.
  void take_over(const View& view, std::mt19937_64* coin = nullptr);
  void sync();
  // The views go with their last stores written.
  void lose_views();
  // `missing` is the change that all_but_one leaves out, when it is one of this file.
  void power_cut(Kept kept, std::mt19937_64& random, std::size_t missing);

  std::vector<std::byte> contents;  // what a read returns, apart from stores in views not yet taken over
  std::vector<Change> changes;      // writes not yet synced, oldest first
  std::vector<std::byte> durable;   // with all changes applied it is the contents, unless a sync failed (S4)
  std::vector<View*> views;         // not owned
  bool has_fixed_size = false;
  bool is_locked = false;

 private:
  void make_durable(const Change& change, std::uint64_t from, std::uint64_t to);
};

// What is to become of an operation.
struct Verdict {
  std::uint32_t code = 0;
  std::size_t transfer_limit = ~std::size_t{0};
};

struct Machine {
  using Names = std::map<std::string, std::shared_ptr<StoredFile>>;

  Names names;
  Names durable_names;
  std::set<std::string> directories = {"/"};
  std::uint64_t free_bytes = platform::max_position;

  std::vector<Fault> faults;
  std::vector<Event> events;
  std::uint64_t boot = 0;  // raised by each power cut
  bool power_is_off = false;
  std::optional<std::mt19937_64> write_back;

  std::uint64_t monotonic_microseconds = 1'000'000;
  std::uint64_t calendar_microseconds = 1'000'000'000'000'000;
  std::map<std::uint32_t, std::string> error_texts;
  std::array<bool, 3> terminals{};
  std::optional<std::string> last_words;
  bool interrupts_held = false;

  // Enters an operation into the events and tells what the faults make of it.
  Verdict admit(Event event);
  StoredFile& file(std::string_view path) const;
  std::size_t unsynced_count() const;
  void turn_power_off();
  void power_cut(Policy policy);
  // A machine of its own with the same disk, that nobody has anything open on.
  std::shared_ptr<Machine> fork() const;
};

// The path with slashes, without one at its end.
std::string with_slashes(std::string_view path);

}  // namespace simulation
