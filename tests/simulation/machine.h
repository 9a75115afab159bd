// The state of a simulated computer, shared by the system object and by the files that it has opened.

#pragma once

#include <array>
#include <map>
#include <memory>
#include <set>

#include "stored_file.h"

namespace simulation {

// What is to become of an operation.
struct Verdict {
  std::uint32_t code = 0;
  std::size_t transfer_limit = ~std::size_t{0};
};

struct Machine {
  using Names = std::map<std::string, std::shared_ptr<StoredFile>, std::less<>>;

  Names names;
  Names durable_names;
  std::set<std::string, std::less<>> directories = {"/"};
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
  void turn_power_off();
  StoredFile& file(std::string_view path) const;
  void power_cut(Policy policy);
  // A machine of its own with the same disk, that nobody has anything open on.
  std::shared_ptr<Machine> fork() const;
};

// The path with slashes.
std::string with_slashes(std::string_view path);
// The directory that holds the file at a path with slashes, without a slash at its end.
std::string directory_of(std::string_view path);

std::unique_ptr<platform::File> make_file(std::shared_ptr<Machine> machine, std::string path,
                                          std::shared_ptr<StoredFile> stored, platform::Sharing sharing);

}  // namespace simulation
