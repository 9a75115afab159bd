// A computer in memory for the tests: files and directories, a clock that only tests move, a disk that
// fails, fills up and loses power on request.
//
//   simulation::SimulatedSystem sim;
//   simulation::Installed use(sim);          // the libraries now talk to it
//   sim.add_directory("/db");
//   sim.inject({.operation = Operation::write, .occurrence = 3, .code = EIO});
//
// What it promises is what platform/platform.h promises and not more, so that a caller who relies on more
// is found out:
//   S1  Bytes written are visible at once and durable after File::sync of any handle of the file.
//   S2  Bytes stored in a mapping are visible to reads at once, and become written bytes (S1) at
//       Mapping::sync, at unmap, or at any earlier moment (see write_back_mapped_stores).
//   S3  The name of a new file is durable after sync_directory_of a path in its directory.
//   S4  A failed File::sync or Mapping::sync makes nothing durable, and no later one does it for the bytes
//   written
//       before.
//   S5  The medium takes sectors of 512 bytes, each as it stood at one moment.
// Error codes are errno values in every call. Paths take slash and backslash alike; names are as given.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
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
  mapping_sync,
  mapping_unmap,
  mapping_close,
  sync_directory,
  query_directory,
  query_free_bytes,
  look_up_error,
  query_clock,
};

// A disturbance that waits for the operation it is meant for.
struct Fault {
  Operation operation = Operation::any;
  // Only operations on a path that ends so count; empty for all.
  std::string path_end{};
  // Which of the operations from now on, the next one being 1.
  std::uint64_t occurrence = 1;
  // Whether all that follow are disturbed as well.
  bool lasting = false;
  // The code to fail with; not used when a transfer limit is set.
  std::uint32_t code = 5;
  // The power goes at this moment, so that it and all that follow fail, too. What the medium has received by
  // then is for power_cut() to say, which must come next.
  bool power_fails = false;
  // Instead of failing, a read or write succeeds with at most this many bytes.
  std::optional<std::size_t> transfer_limit{};
};

// An operation as it was asked for.
struct Event {
  Operation operation;
  std::string path;            // with slashes
  std::uint64_t position = 0;  // of reads, writes and maps
  std::uint64_t length = 0;
  std::uint32_t code = 0;  // of an injected failure, else 0
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

struct Machine;  // the state, shared with the open files

class SimulatedSystem : public platform::System {
 public:
  SimulatedSystem();
  ~SimulatedSystem() override;
  // A computer of its own in the state of the other one, unsynced writes and faults included. Its files are
  // not open.
  SimulatedSystem(const SimulatedSystem& other);
  SimulatedSystem& operator=(const SimulatedSystem&) = delete;

  // The disk as the test sees it. None of these is an operation: they neither fail nor count.
  // A directory or file put there is durable. "/" is there from the start; so is no other directory.
  void add_directory(std::string_view path);
  void add_file(std::string_view path, std::span<const std::byte> contents);
  // Removes a file's name, durably. Open handles keep working.
  void remove_file(std::string_view path);
  bool has_file(std::string_view path) const;
  // How many changes the medium has not received: what Kept::all_but_one counts.
  std::size_t unsynced_count() const;
  // What a read would see now. REQUIRES (the next five): has_file(path).
  std::vector<std::byte> contents(std::string_view path) const;
  // What a power cut that keeps nothing would leave.
  std::vector<std::byte> durable_contents(std::string_view path) const;
  // Replaces the contents, durably. REQUIRES: the file is not mapped.
  void set_contents(std::string_view path, std::span<const std::byte> contents);
  // The last time set by File::set_modification_time, 0 before.
  platform::FileTime modification_time(std::string_view path) const;
  // Makes the file a device: it cannot grow, and a write past its end fails with "no space".
  void make_fixed_size(std::string_view path);

  // How many bytes files may still grow by; without limit at first. A write that does not fit is short,
  // one that has no room at all fails with the code of disk_full().
  void set_free_bytes(std::uint64_t bytes);

  void inject(Fault fault);
  void clear_faults();

  // The operations since the start or the last clear_events(), oldest first.
  const std::vector<Event>& events() const;
  void clear_events();
  // How many of them are of a kind, on paths that end so.
  std::uint64_t count(Operation operation, std::string_view path_end = {}) const;

  // The power goes, unless it is gone, and comes back. Every open file and mapping is dead afterwards: its
  // operations fail with EBADF, its stores reach nothing, its locks are gone. Faults stay.
  void power_cut(Policy policy);

  // From now on, at each operation, changed sectors of mappings may reach the cache of the medium as they
  // are at that moment (a coin is thrown for each from this seed), so that a later power cut can leave a
  // sector between two states that the program meant to follow one another in one sync.
  void write_back_mapped_stores(std::uint64_t seed);

  // The clocks stand still but for this. Advances both.
  void advance_microseconds(std::uint64_t microseconds);
  void set_calendar_seconds(std::int64_t seconds);

  // The message for a code; "simulated error " and the code without one.
  void set_error_text(std::uint32_t code, std::string text);
  void set_terminal(platform::Stream stream, bool is_terminal);

  // What an interrupt at this moment would say; nothing while interrupts are held, or before a first text.
  std::optional<std::string> words_of_an_interrupt() const;

  // platform::System
  platform::Result<std::unique_ptr<platform::File>> open(const std::string& path,
                                                         platform::Sharing sharing) override;
  platform::Result<std::unique_ptr<platform::File>> open_read_only(const std::string& path) override;
  platform::Result<std::unique_ptr<platform::File>> create_new(const std::string& path) override;
  platform::Status remove(const std::string& path) override;
  platform::Status sync_directory_of(const std::string& path) override;
  platform::Result<bool> is_directory(const std::string& path) override;
  platform::Result<std::uint64_t> free_bytes(const std::string& directory) override;
  platform::Result<std::string> error_text(std::uint32_t code) override;
  platform::Status disk_full() const override;
  std::uint64_t monotonic_microseconds() override;
  std::int64_t calendar_seconds() override;
  platform::Result<platform::FileTime> file_time_now() override;
  bool is_terminal(platform::Stream stream) override;
  void ignore_write_signals() override {}
  void end_on_interrupt(const std::string& last_words) override;
  void hold_interrupts(bool hold) override;

 private:
  std::shared_ptr<Machine> machine_;
};

// Makes the libraries use a system for as long as it lives.
class Installed {
 public:
  explicit Installed(platform::System& system) : before_(platform::replace_system(&system)) {}
  ~Installed() { (void)platform::replace_system(before_); }
  Installed(const Installed&) = delete;
  Installed& operator=(const Installed&) = delete;

 private:
  platform::System* before_;
};

}  // namespace simulation
