#include "simulation/simulated_system.h"

#include <algorithm>
#include <cerrno>

namespace simulation {

using platform::Result;
using platform::Sharing;
using platform::Status;

namespace {

// What every handle knows: its file, and the boot it was opened in.
struct Handle {
  std::shared_ptr<Machine> machine;
  std::string path;
  std::shared_ptr<StoredFile> stored;
  std::uint64_t boot = machine->boot;
  bool is_read_only = false;

  bool is_alive() const { return boot == machine->boot && !machine->power_is_off; }

  Verdict admit(Operation operation, std::uint64_t position = 0, std::uint64_t length = 0) const {
    Verdict verdict = machine->admit({operation, path, position, length});
    const bool only_looks = operation == Operation::read || operation == Operation::close;
    if (verdict.code == 0 && (boot != machine->boot || (is_read_only && !only_looks)))
      verdict.code = EBADF;
    if (verdict.code == 0 && position > platform::max_position - length)
      verdict.code = EINVAL;
    return verdict;
  }

  // What of the bytes up to `end` the disk has room for; takes the room.
  std::uint64_t reserve(std::uint64_t end) const {
    const std::uint64_t size = stored->contents.size();
    if (end <= size)
      return end;
    const std::uint64_t growth = stored->has_fixed_size ? 0 : std::min(end - size, machine->free_bytes);
    machine->free_bytes -= growth;
    return size + growth;
  }

  // S4: what was written before is lost to all later ones.
  void fail_sync() const {
    if (is_alive())
      stored->changes.clear();
  }
};

class SimulatedMapping final : public platform::Mapping {
 public:
  SimulatedMapping(Handle handle, std::uint64_t offset, std::uint32_t length)
      : handle_(std::move(handle)), view_{offset, std::vector<std::byte>(length)} {
    (void)handle_.stored->read(offset, view_.bytes);
    handle_.stored->views.push_back(&view_);
  }
  ~SimulatedMapping() override { remove_view(); }
  SimulatedMapping(const SimulatedMapping&) = delete;
  SimulatedMapping& operator=(const SimulatedMapping&) = delete;

  std::span<std::byte> bytes() override { return view_.bytes; }

  // A store like any other, but one that the system can refuse.
  Status write(std::size_t offset, std::span<const std::byte> source) override {
    const Verdict verdict = handle_.admit(Operation::mapping_write, view_.position + offset, source.size());
    if (verdict.code != 0)
      return Status{verdict.code};
    const auto taken = source.first(std::min(source.size(), verdict.transfer_limit));
    std::ranges::copy(taken, std::span(view_.bytes).subspan(offset).begin());
    return Status{taken.size() == source.size() ? 0U : EIO};
  }

  Status sync() override {
    const Verdict verdict = handle_.admit(Operation::mapping_sync);
    if (handle_.is_alive())
      handle_.stored->take_over(view_);
    if (verdict.code != 0)
      handle_.fail_sync();
    return Status{verdict.code};
  }

  Status unmap() override {
    const Verdict verdict = handle_.admit(Operation::mapping_unmap);
    remove_view();
    view_.bytes.clear();
    return Status{verdict.code};
  }

  Status close() override { return Status{handle_.admit(Operation::mapping_close).code}; }

 private:
  // The file has forgotten the view if the power went.
  void remove_view() {
    if (std::erase(handle_.stored->views, &view_) != 0)
      handle_.stored->take_over(view_);
  }

  Handle handle_;
  View view_;
};

class SimulatedFile final : public platform::File {
 public:
  SimulatedFile(Handle handle, Sharing sharing)
      : handle_(std::move(handle)), holds_lock_(sharing != Sharing::all) {
    handle_.stored->is_locked |= holds_lock_;
  }
  ~SimulatedFile() override { release(); }
  SimulatedFile(const SimulatedFile&) = delete;
  SimulatedFile& operator=(const SimulatedFile&) = delete;

  Result<std::size_t> read_at(std::uint64_t position, std::span<std::byte> buffer) override {
    const Verdict verdict = handle_.admit(Operation::read, position, buffer.size());
    if (verdict.code != 0)
      return Status{verdict.code};
    return handle_.stored->read(position, buffer.first(std::min(buffer.size(), verdict.transfer_limit)));
  }

  Result<std::size_t> write_at(std::uint64_t position, std::span<const std::byte> bytes) override {
    const Verdict verdict = handle_.admit(Operation::write, position, bytes.size());
    if (verdict.code != 0)
      return Status{verdict.code};
    const auto wanted = bytes.first(std::min(bytes.size(), verdict.transfer_limit));
    if (wanted.empty())
      return std::size_t{0};
    const std::uint64_t end = handle_.reserve(position + wanted.size());
    if (end <= position)
      return Status{ENOSPC};
    handle_.stored->write(position, wanted.first(end - position));
    return static_cast<std::size_t>(end - position);
  }

  Status sync() override {
    const Verdict verdict = handle_.admit(Operation::sync);
    if (verdict.code == 0) {
      handle_.stored->sync();
    } else {
      handle_.fail_sync();
    }
    return Status{verdict.code};
  }

  Status set_modification_time(platform::FileTime) override {
    return Status{handle_.admit(Operation::set_time).code};
  }

  bool has_fixed_size() const override { return handle_.stored->has_fixed_size; }
  void refuse_changes() { handle_.is_read_only = true; }

  Result<std::unique_ptr<platform::Mapping>> map(std::uint64_t offset, std::uint32_t length) override {
    Verdict verdict = handle_.admit(Operation::map, offset, length);
    const std::uint64_t size = handle_.stored->contents.size();
    const std::uint64_t end = offset + length;
    if (verdict.code == 0 && handle_.reserve(end) < end)
      verdict.code = ENOSPC;
    if (verdict.code != 0) {
      errno = static_cast<int>(verdict.code);
      return Status{verdict.code};
    }
    if (end > size)
      handle_.stored->write(size, std::vector<std::byte>(end - size));
    return std::unique_ptr<platform::Mapping>(std::make_unique<SimulatedMapping>(handle_, offset, length));
  }

  Status close() override {
    const Verdict verdict = handle_.admit(Operation::close);
    release();
    return Status{verdict.code};
  }

 private:
  void release() {
    if (std::exchange(holds_lock_, false) && handle_.boot == handle_.machine->boot)
      handle_.stored->is_locked = false;
  }

  Handle handle_;
  bool holds_lock_;
};

std::string directory_of(const std::string& path) {
  return path.substr(0, std::max<std::size_t>(path.rfind('/'), 1));
}

}  // namespace

void SimulatedSystem::add_file(std::string_view path, std::span<const std::byte> contents) {
  const auto stored = std::make_shared<StoredFile>(contents);
  machine_->names.insert_or_assign(with_slashes(path), stored);
  machine_->durable_names.insert_or_assign(with_slashes(path), stored);
}

void SimulatedSystem::remove_file(std::string_view path) {
  machine_->names.erase(with_slashes(path));
  machine_->durable_names.erase(with_slashes(path));
}

std::vector<std::byte> SimulatedSystem::contents(std::string_view path) const {
  std::vector<std::byte> bytes(machine_->file(path).contents.size());
  (void)machine_->file(path).read(0, bytes);
  return bytes;
}

std::uint64_t SimulatedSystem::count(Operation operation, std::string_view path_end) const {
  const auto matches = [&](const Event& event) { return event.matches(operation, path_end); };
  return static_cast<std::uint64_t>(std::ranges::count_if(machine_->events, matches));
}

Status SimulatedSystem::admit(Operation operation, const std::string& name, std::uint32_t otherwise) {
  const std::uint32_t code = machine_->admit({operation, name}).code;
  return {code != 0 ? code : otherwise};
}

Result<std::unique_ptr<platform::File>> SimulatedSystem::open(const std::string& path, Sharing sharing) {
  const std::string name = with_slashes(path);
  const auto found = machine_->names.find(name);
  const bool is_there = found != machine_->names.end();
  const bool is_refused = is_there && sharing != Sharing::all && found->second->is_locked;
  const Status status = admit(Operation::open, name, is_refused ? EWOULDBLOCK : is_there ? 0 : ENOENT);
  if (!status.ok())
    return status;
  return std::unique_ptr<platform::File>(
      std::make_unique<SimulatedFile>(Handle{machine_, name, found->second}, sharing));
}

Result<std::unique_ptr<platform::File>> SimulatedSystem::open_read_only(const std::string& path) {
  auto opened = open(path, Sharing::all);
  if (opened.ok())
    static_cast<SimulatedFile&>(*opened.value()).refuse_changes();
  return opened;
}

Result<std::unique_ptr<platform::File>> SimulatedSystem::create_new(const std::string& path) {
  const std::string name = with_slashes(path);
  const bool is_there = machine_->names.contains(name) || machine_->directories.contains(name);
  const bool has_place = machine_->directories.contains(directory_of(name));
  const Status status = admit(Operation::create, name, is_there ? EEXIST : has_place ? 0 : ENOENT);
  if (!status.ok())
    return status;
  const auto stored = std::make_shared<StoredFile>(std::span<const std::byte>());
  machine_->names.emplace(name, stored);
  return std::unique_ptr<platform::File>(
      std::make_unique<SimulatedFile>(Handle{machine_, name, stored}, Sharing::none));
}

Status SimulatedSystem::remove(const std::string& path) {
  const std::string name = with_slashes(path);
  const Status status = admit(Operation::remove, name, machine_->names.contains(name) ? 0 : ENOENT);
  if (status.ok())
    machine_->names.erase(name);
  return status;
}

Status SimulatedSystem::sync_directory_of(const std::string& path) {
  const std::string name = with_slashes(path);
  const Status status = admit(Operation::sync_directory, name);
  for (const auto& [sibling, file] : machine_->names) {
    if (status.ok() && directory_of(sibling) == directory_of(name))
      machine_->durable_names.insert_or_assign(sibling, file);
  }
  return status;
}

Result<bool> SimulatedSystem::is_directory(const std::string& path) {
  const std::string name = with_slashes(path);
  const bool is_one = machine_->directories.contains(name);
  const Status status = admit(Operation::query_directory, name, is_one || has_file(name) ? 0 : ENOENT);
  return status.ok() ? Result<bool>(is_one) : status;
}

Result<std::uint64_t> SimulatedSystem::free_bytes(const std::string& directory) {
  const Status status = admit(Operation::query_free_bytes, with_slashes(directory));
  return status.ok() ? Result<std::uint64_t>(machine_->free_bytes) : status;
}

Result<std::string> SimulatedSystem::error_text(std::uint32_t code) {
  if (const Status failed = admit(Operation::look_up_error); !failed.ok())
    return failed;
  const auto found = machine_->error_texts.find(code);
  return found != machine_->error_texts.end() ? found->second : "simulated error " + std::to_string(code);
}

}  // namespace simulation
