#include "simulation/simulated_system.h"

#include <cerrno>
#include <utility>

#include "machine.h"

namespace simulation {

using platform::Result;
using platform::Status;

namespace {

constexpr std::uint64_t microseconds_per_second = 1'000'000;

// A file that lets itself be read and refuses everything else.
class ReadOnlyFile final : public platform::File {
 public:
  explicit ReadOnlyFile(std::unique_ptr<platform::File> file) : file_(std::move(file)) {}

  Result<std::size_t> read_at(std::uint64_t position, std::span<std::byte> buffer) override {
    return file_->read_at(position, buffer);
  }
  Result<std::size_t> write_at(std::uint64_t, std::span<const std::byte>) override { return refused; }
  Status sync() override { return refused; }
  Status set_modification_time(platform::FileTime) override { return refused; }
  bool has_fixed_size() const override { return file_->has_fixed_size(); }
  Result<std::unique_ptr<platform::Mapping>> map(std::uint64_t, std::uint32_t) override { return refused; }
  Status close() override { return file_->close(); }

 private:
  static constexpr Status refused{EBADF};

  std::unique_ptr<platform::File> file_;
};

}  // namespace

SimulatedSystem::SimulatedSystem() : machine_(std::make_shared<Machine>()) {}
SimulatedSystem::SimulatedSystem(const SimulatedSystem& other)
    : platform::System(other), machine_(other.machine_->fork()) {}
SimulatedSystem::~SimulatedSystem() = default;

void SimulatedSystem::add_directory(std::string_view path) {
  machine_->directories.insert(with_slashes(path));
}

void SimulatedSystem::add_file(std::string_view path, std::span<const std::byte> contents) {
  const auto stored = std::make_shared<StoredFile>(contents);
  machine_->names.insert_or_assign(with_slashes(path), stored);
  machine_->durable_names.insert_or_assign(with_slashes(path), stored);
}

void SimulatedSystem::remove_file(std::string_view path) {
  machine_->names.erase(with_slashes(path));
  machine_->durable_names.erase(with_slashes(path));
}

std::size_t SimulatedSystem::unsynced_count() const {
  std::size_t count = 0;
  for (const auto& [name, file] : machine_->names)
    count += file->unsynced_count();
  return count;
}

bool SimulatedSystem::has_file(std::string_view path) const {
  return machine_->names.contains(with_slashes(path));
}

std::vector<std::byte> SimulatedSystem::contents(std::string_view path) const {
  return machine_->file(path).seen();
}

std::vector<std::byte> SimulatedSystem::durable_contents(std::string_view path) const {
  return machine_->file(path).durable();
}

void SimulatedSystem::set_contents(std::string_view path, std::span<const std::byte> contents) {
  machine_->file(path).replace(contents);
}

platform::FileTime SimulatedSystem::modification_time(std::string_view path) const {
  return machine_->file(path).modification_time;
}

void SimulatedSystem::make_fixed_size(std::string_view path) {
  machine_->file(path).has_fixed_size = true;
}

void SimulatedSystem::set_free_bytes(std::uint64_t bytes) {
  machine_->free_bytes = bytes;
}

void SimulatedSystem::inject(Fault fault) {
  machine_->faults.push_back(std::move(fault));
}

void SimulatedSystem::clear_faults() {
  machine_->faults.clear();
}

const std::vector<Event>& SimulatedSystem::events() const {
  return machine_->events;
}

void SimulatedSystem::clear_events() {
  machine_->events.clear();
}

std::uint64_t SimulatedSystem::count(Operation operation, std::string_view path_end) const {
  std::uint64_t found = 0;
  for (const Event& event : machine_->events) {
    if (operation != Operation::any && operation != event.operation)
      continue;
    if (event.path.ends_with(path_end))
      found += 1;
  }
  return found;
}

void SimulatedSystem::power_cut(Policy policy) {
  machine_->power_cut(policy);
}

void SimulatedSystem::write_back_mapped_stores(std::uint64_t seed) {
  machine_->write_back.emplace(seed);
}

void SimulatedSystem::advance_microseconds(std::uint64_t microseconds) {
  machine_->monotonic_microseconds += microseconds;
  machine_->calendar_microseconds += microseconds;
}

void SimulatedSystem::set_calendar_seconds(std::int64_t seconds) {
  machine_->calendar_microseconds = static_cast<std::uint64_t>(seconds) * microseconds_per_second;
}

void SimulatedSystem::set_error_text(std::uint32_t code, std::string text) {
  machine_->error_texts[code] = std::move(text);
}

void SimulatedSystem::set_terminal(platform::Stream stream, bool is_terminal) {
  machine_->terminals[static_cast<std::size_t>(stream)] = is_terminal;
}

std::optional<std::string> SimulatedSystem::words_of_an_interrupt() const {
  return machine_->interrupts_held ? std::nullopt : machine_->last_words;
}

Result<std::unique_ptr<platform::File>> SimulatedSystem::open(const std::string& path,
                                                              platform::Sharing sharing) {
  const std::string name = with_slashes(path);
  const Verdict verdict = machine_->admit({Operation::open, name});
  if (verdict.code != 0)
    return Status{verdict.code};
  if (machine_->directories.contains(name))
    return Status{EISDIR};
  const auto found = machine_->names.find(name);
  if (found == machine_->names.end())
    return Status{ENOENT};
  if (sharing != platform::Sharing::all && found->second->is_locked)
    return Status{EWOULDBLOCK};
  return make_file(machine_, name, found->second, sharing);
}

Result<std::unique_ptr<platform::File>> SimulatedSystem::open_read_only(const std::string& path) {
  auto opened = open(path, platform::Sharing::all);
  if (!opened.ok())
    return opened.status();
  return std::unique_ptr<platform::File>(std::make_unique<ReadOnlyFile>(std::move(opened.value())));
}

Result<std::unique_ptr<platform::File>> SimulatedSystem::create_new(const std::string& path) {
  const std::string name = with_slashes(path);
  const Verdict verdict = machine_->admit({Operation::create, name});
  if (verdict.code != 0)
    return Status{verdict.code};
  if (machine_->names.contains(name) || machine_->directories.contains(name))
    return Status{EEXIST};
  if (!machine_->directories.contains(directory_of(name)))
    return Status{ENOENT};
  const auto stored = std::make_shared<StoredFile>(std::span<const std::byte>());
  machine_->names.emplace(name, stored);
  return make_file(machine_, name, stored, platform::Sharing::none);
}

Status SimulatedSystem::remove(const std::string& path) {
  const std::string name = with_slashes(path);
  const Verdict verdict = machine_->admit({Operation::remove, name});
  if (verdict.code != 0)
    return Status{verdict.code};
  return machine_->names.erase(name) != 0 ? Status{} : Status{ENOENT};
}

Status SimulatedSystem::sync_directory_of(const std::string& path) {
  const std::string name = with_slashes(path);
  const Verdict verdict = machine_->admit({Operation::sync_directory, name});
  if (verdict.code != 0)
    return Status{verdict.code};
  const std::string directory = directory_of(name);
  if (!machine_->directories.contains(directory))
    return Status{ENOENT};
  for (const auto& [sibling, file] : machine_->names) {
    if (directory_of(sibling) == directory)
      machine_->durable_names.insert_or_assign(sibling, file);
  }
  return {};
}

Result<bool> SimulatedSystem::is_directory(const std::string& path) {
  const std::string name = with_slashes(path);
  const Verdict verdict = machine_->admit({Operation::query_directory, name});
  if (verdict.code != 0)
    return Status{verdict.code};
  if (machine_->directories.contains(name))
    return true;
  if (machine_->names.contains(name))
    return false;
  return Status{ENOENT};
}

Result<std::uint64_t> SimulatedSystem::free_bytes(const std::string& directory) {
  const std::string name = with_slashes(directory);
  const Verdict verdict = machine_->admit({Operation::query_free_bytes, name});
  if (verdict.code != 0)
    return Status{verdict.code};
  if (!machine_->directories.contains(name))
    return Status{ENOENT};
  return std::uint64_t{machine_->free_bytes};
}

Result<std::string> SimulatedSystem::error_text(std::uint32_t code) {
  const Verdict verdict = machine_->admit({Operation::look_up_error, ""});
  if (verdict.code != 0)
    return Status{verdict.code};
  const auto found = machine_->error_texts.find(code);
  if (found != machine_->error_texts.end())
    return std::string(found->second);
  return "simulated error " + std::to_string(code);
}

Status SimulatedSystem::disk_full() const {
  return Status{ENOSPC};
}

std::uint64_t SimulatedSystem::monotonic_microseconds() {
  return machine_->monotonic_microseconds;
}

std::int64_t SimulatedSystem::calendar_seconds() {
  return static_cast<std::int64_t>(machine_->calendar_microseconds / microseconds_per_second);
}

Result<platform::FileTime> SimulatedSystem::file_time_now() {
  const Verdict verdict = machine_->admit({Operation::query_clock, ""});
  if (verdict.code != 0)
    return Status{verdict.code};
  return platform::FileTime{machine_->calendar_microseconds};
}

void SimulatedSystem::end_on_interrupt(const std::string& last_words) {
  machine_->last_words = last_words;
}

void SimulatedSystem::hold_interrupts(bool hold) {
  machine_->interrupts_held = hold;
}

bool SimulatedSystem::is_terminal(platform::Stream stream) {
  return machine_->terminals[static_cast<std::size_t>(stream)];
}

}  // namespace simulation
