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
//       written before.
//   S5  The medium takes sectors of 512 bytes, each as it stood at one moment.
// Error codes are errno values in every call. Paths take slash and backslash alike; names are as given.

#pragma once

#include <cerrno>
#include <utility>

#include "simulation/machine.h"

namespace simulation {

class SimulatedSystem : public platform::System {
 public:
  SimulatedSystem() : machine_(std::make_shared<Machine>()) {}
  // A computer of its own in the state of the other one, unsynced writes and faults included. Its files are
  // not open.
  SimulatedSystem(const SimulatedSystem& other) : platform::System(other), machine_(other.machine_->fork()) {}
  SimulatedSystem& operator=(const SimulatedSystem&) = delete;

  // The disk as the test sees it. None of these is an operation: they neither fail nor count.
  // A directory or file put there is durable. "/" is there from the start; so is no other directory.
  void add_directory(std::string_view path) { machine_->directories.insert(with_slashes(path)); }
  void add_file(std::string_view path, std::span<const std::byte> contents);
  // Removes a file's name, durably. Open handles keep working.
  void remove_file(std::string_view path);
  bool has_file(std::string_view path) const { return machine_->names.contains(with_slashes(path)); }
  // How many changes the medium has not received: what Kept::all_but_one counts.
  std::size_t unsynced_count() const { return machine_->unsynced_count(); }
  // What a read would see now. REQUIRES (the next four): has_file(path).
  std::vector<std::byte> contents(std::string_view path) const;
  // What a power cut that keeps nothing would leave.
  std::vector<std::byte> durable_contents(std::string_view path) const {
    return machine_->file(path).durable;
  }
  // Replaces the contents, durably. REQUIRES: the file is not mapped.
  void set_contents(std::string_view path, std::span<const std::byte> contents) {
    machine_->file(path).replace(contents);
  }
  // Makes the file a device: it cannot grow, and a write past its end fails with "no space".
  void make_fixed_size(std::string_view path) { machine_->file(path).has_fixed_size = true; }

  // How many bytes files may still grow by; without limit at first. A write that does not fit is short,
  // one that has no room at all fails with the code of disk_full().
  void set_free_bytes(std::uint64_t bytes) { machine_->free_bytes = bytes; }

  void inject(Fault fault) { machine_->faults.push_back(std::move(fault)); }
  void clear_faults() { machine_->faults.clear(); }

  // The operations since the start or the last clear_events(), oldest first.
  const std::vector<Event>& events() const { return machine_->events; }
  void clear_events() { machine_->events.clear(); }
  // How many of them are of a kind, on paths that end so.
  std::uint64_t count(Operation operation, std::string_view path_end = {}) const;

  // The power goes, unless it is gone, and comes back. Every open file and mapping is dead afterwards: its
  // operations fail with EBADF, its stores reach nothing, its locks are gone. Faults stay.
  void power_cut(Policy policy) { machine_->power_cut(policy); }
  // False from a fault that takes the power until the power cut.
  bool has_power() const { return !machine_->power_is_off; }

  // From now on, at each operation, changed sectors of mappings may reach the cache of the medium as they
  // are at that moment (a coin is thrown for each from this seed), so that a later power cut can leave a
  // sector between two states that the program meant to follow one another in one sync.
  void write_back_mapped_stores(std::uint64_t seed) { machine_->write_back.emplace(seed); }

  // The clocks stand still but for this. Advances both.
  void advance_microseconds(std::uint64_t microseconds) {
    machine_->monotonic_microseconds += microseconds;
    machine_->calendar_microseconds += microseconds;
  }
  void set_calendar_seconds(std::uint64_t seconds) { machine_->calendar_microseconds = seconds * 1'000'000; }

  // The message for a code; "simulated error " and the code without one.
  void set_error_text(std::uint32_t code, std::string text) { machine_->error_texts[code] = std::move(text); }
  void set_terminal(platform::Stream stream, bool is_terminal) {
    machine_->terminals[static_cast<std::size_t>(stream)] = is_terminal;
  }

  // What an interrupt at this moment would say; nothing while interrupts are held, or before a first text.
  std::optional<std::string> words_of_an_interrupt() const {
    return machine_->interrupts_held ? std::nullopt : machine_->last_words;
  }

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
  platform::Status disk_full() const override { return {ENOSPC}; }
  std::uint64_t monotonic_microseconds() override { return machine_->monotonic_microseconds; }
  std::int64_t calendar_seconds() override {
    return static_cast<std::int64_t>(machine_->calendar_microseconds / 1'000'000);
  }
  platform::Result<platform::FileTime> file_time_now() override {
    return platform::FileTime{machine_->calendar_microseconds};
  }
  bool is_terminal(platform::Stream stream) override {
    return machine_->terminals[static_cast<std::size_t>(stream)];
  }
  void ignore_write_signals() override {}
  void end_on_interrupt(const std::string& last_words) override { machine_->last_words = last_words; }
  void hold_interrupts(bool hold) override { machine_->interrupts_held = hold; }

 private:
  // Fails as the faults want, or with the other code unless it is 0.
  platform::Status admit(Operation operation, const std::string& name = {}, std::uint32_t otherwise = 0);

  std::shared_ptr<Machine> machine_;  // shared with the open files
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
