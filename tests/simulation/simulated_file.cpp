#include <algorithm>
#include <cerrno>
#include <utility>

#include "machine.h"

namespace simulation {
namespace {

using platform::Result;
using platform::Status;

// What every handle knows: its file, and the boot it was opened in.
struct Handle {
  std::shared_ptr<Machine> machine;
  std::string path;
  std::shared_ptr<StoredFile> stored;
  std::uint64_t boot = 0;

  bool is_dead() const { return boot != machine->boot; }

  Verdict admit(Operation operation, std::uint64_t position = 0, std::uint64_t length = 0) const {
    Verdict verdict = machine->admit({operation, path, position, length});
    if (is_dead())
      verdict.code = EBADF;
    return verdict;
  }
};

class SimulatedMapping final : public platform::Mapping {
 public:
  SimulatedMapping(Handle handle, std::uint64_t offset, std::uint32_t length)
      : handle_(std::move(handle)), view_(std::make_unique<View>(View{offset, {}})) {
    view_->bytes.resize(length);
    (void)handle_.stored->read(offset, view_->bytes);
    handle_.stored->add_view(*view_);
  }
  ~SimulatedMapping() override { remove_view(); }
  SimulatedMapping(const SimulatedMapping&) = delete;
  SimulatedMapping& operator=(const SimulatedMapping&) = delete;

  std::span<std::byte> bytes() override {
    if (view_ == nullptr)
      return {};
    return view_->bytes;
  }

  Status sync() override {
    const Verdict verdict = handle_.admit(Operation::mapping_sync);
    if (!handle_.is_dead() && !handle_.machine->power_is_off) {
      handle_.stored->take_over(*view_);
      if (verdict.code != 0)
        handle_.stored->fail_sync();
    }
    return Status{verdict.code};
  }

  Status unmap() override {
    const Verdict verdict = handle_.admit(Operation::mapping_unmap);
    remove_view();
    return Status{verdict.code};
  }

  Status close() override { return Status{handle_.admit(Operation::mapping_close).code}; }

 private:
  void remove_view() {
    if (view_ == nullptr)
      return;
    if (!handle_.is_dead() && !handle_.machine->power_is_off) {
      handle_.stored->take_over(*view_);
      handle_.stored->remove_view(*view_);
    }
    view_ = nullptr;
  }

  Handle handle_;
  std::unique_ptr<View> view_;
};

class SimulatedFile final : public platform::File {
 public:
  SimulatedFile(Handle handle, bool holds_lock) : handle_(std::move(handle)), holds_lock_(holds_lock) {}
  ~SimulatedFile() override { release(); }
  SimulatedFile(const SimulatedFile&) = delete;
  SimulatedFile& operator=(const SimulatedFile&) = delete;

  Result<std::size_t> read_at(std::uint64_t position, std::span<std::byte> buffer) override {
    const Verdict verdict = handle_.admit(Operation::read, position, buffer.size());
    if (verdict.code != 0)
      return Status{verdict.code};
    if (position > platform::max_position)
      return Status{EINVAL};
    return handle_.stored->read(position, buffer.first(std::min(buffer.size(), verdict.transfer_limit)));
  }

  Result<std::size_t> write_at(std::uint64_t position, std::span<const std::byte> bytes) override;

  Status sync() override {
    const Verdict verdict = handle_.admit(Operation::sync);
    if (verdict.code == 0) {
      handle_.stored->sync();
    } else if (!handle_.is_dead() && !handle_.machine->power_is_off) {
      handle_.stored->fail_sync();
    }
    return Status{verdict.code};
  }

  Status set_modification_time(platform::FileTime time) override {
    const Verdict verdict = handle_.admit(Operation::set_time);
    if (verdict.code == 0)
      handle_.stored->modification_time = time;
    return Status{verdict.code};
  }

  bool has_fixed_size() const override { return handle_.stored->has_fixed_size; }

  Result<std::unique_ptr<platform::Mapping>> map(std::uint64_t offset, std::uint32_t length) override;

  Status close() override {
    const Verdict verdict = handle_.admit(Operation::close);
    release();
    return Status{verdict.code};
  }

 private:
  void release() {
    if (std::exchange(holds_lock_, false) && !handle_.is_dead())
      handle_.stored->is_locked = false;
  }

  // How many of the bytes up to `end` the disk has room for; takes the room.
  std::uint64_t reserve(std::uint64_t end);

  Handle handle_;
  bool holds_lock_;
};

std::uint64_t SimulatedFile::reserve(std::uint64_t end) {
  const std::uint64_t size = handle_.stored->size();
  if (end <= size)
    return end;
  if (handle_.stored->has_fixed_size)
    return size;
  const std::uint64_t growth = std::min(end - size, handle_.machine->free_bytes);
  handle_.machine->free_bytes -= growth;
  return size + growth;
}

Result<std::size_t> SimulatedFile::write_at(std::uint64_t position, std::span<const std::byte> bytes) {
  const Verdict verdict = handle_.admit(Operation::write, position, bytes.size());
  if (verdict.code != 0)
    return Status{verdict.code};
  if (position > platform::max_position - bytes.size())
    return Status{EINVAL};

  const auto wanted = bytes.first(std::min(bytes.size(), verdict.transfer_limit));
  if (wanted.empty())
    return std::size_t{0};
  const std::uint64_t end = reserve(position + wanted.size());
  if (end <= position)
    return Status{ENOSPC};
  handle_.stored->write(position, wanted.first(end - position));
  return static_cast<std::size_t>(end - position);
}

Result<std::unique_ptr<platform::Mapping>> SimulatedFile::map(std::uint64_t offset, std::uint32_t length) {
  const auto failed = [](std::uint32_t code) {
    errno = static_cast<int>(code);
    return Status{code};
  };
  const Verdict verdict = handle_.admit(Operation::map, offset, length);
  if (verdict.code != 0)
    return failed(verdict.code);
  if (length == 0 || offset > platform::max_position - length)
    return failed(EINVAL);

  const std::uint64_t size = handle_.stored->size();
  const std::uint64_t end = offset + length;
  if (reserve(end) < end)
    return failed(ENOSPC);
  if (end > size)
    handle_.stored->write(size, std::vector<std::byte>(end - size));
  return std::unique_ptr<platform::Mapping>(std::make_unique<SimulatedMapping>(handle_, offset, length));
}

}  // namespace

std::unique_ptr<platform::File> make_file(std::shared_ptr<Machine> machine, std::string path,
                                          std::shared_ptr<StoredFile> stored, platform::Sharing sharing) {
  const bool takes_lock = sharing != platform::Sharing::all;
  if (takes_lock)
    stored->is_locked = true;
  const std::uint64_t boot = machine->boot;
  return std::make_unique<SimulatedFile>(Handle{std::move(machine), std::move(path), std::move(stored), boot},
                                         takes_lock);
}

}  // namespace simulation
