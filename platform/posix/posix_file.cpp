#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "calls.h"

namespace platform {
namespace {

static_assert(sizeof(off_t) == sizeof(std::uint64_t), "positions have 64 bits");

constexpr std::uint64_t nanoseconds_per_second = 1'000'000'000;

// For the owner alone: a database holds password digests.
constexpr mode_t creation_mode = S_IRUSR | S_IWUSR;

// A descriptor that is closed once.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() { (void)close(); }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, closed)) {}
  Descriptor& operator=(Descriptor&&) = delete;

  int number() const { return number_; }

  // Never repeated: after an interrupted close the number may already belong to another file.
  Status close() {
    const int number = std::exchange(number_, closed);
    return number == closed ? Status{} : outcome(::close(number));
  }

 private:
  static constexpr int closed = -1;
  int number_;
};

// A mapped range. The view starts at the page that holds the range's first byte.
class PosixMapping final : public Mapping {
 public:
  // `descriptor` is that of the file, which is closed after the mapping, and `offset` the position in it of
  // the first byte of the range.
  PosixMapping(int descriptor, std::uint64_t offset, std::size_t length)
      : lead_(offset % static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE))),
        view_length_(lead_ + length),
        descriptor_(descriptor),
        offset_(offset) {}
  ~PosixMapping() override { (void)unmap(); }
  PosixMapping(const PosixMapping&) = delete;
  PosixMapping& operator=(const PosixMapping&) = delete;

  Status map() {
    void* const view = ::mmap(nullptr, view_length_, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor_,
                              static_cast<off_t>(offset_ - lead_));
    if (view == MAP_FAILED)
      return last_error();
    view_ = static_cast<std::byte*>(view);
    return {};
  }

  std::span<std::byte> bytes() override {
    may_have_changes_ = true;
    return mapped();
  }

  std::span<const std::byte> view() override { return mapped(); }

  Status sync() override {
    if (!may_have_changes_)
      return {};
    const Status synced = outcome(uninterrupted([&] { return ::msync(view_, view_length_, MS_SYNC); }));
    may_have_changes_ = !synced.ok();
    return synced;
  }

  // The first touch of a page since the last sync costs a fault, several times as much as the copy. What is
  // written here is the file's at once and needs no sync of the view, which shows it as the systems that this
  // is built for keep one copy of a page for both.
  Status write(std::size_t offset, std::span<const std::byte> source) override {
    while (!source.empty()) {
      const ssize_t count = uninterrupted(
          [&] { return ::pwrite(descriptor_, source.data(), source.size(), position_of(offset)); });
      if (count <= 0)
        return count < 0 ? last_error() : Status{EIO};
      offset += static_cast<std::size_t>(count);
      source = source.subspan(static_cast<std::size_t>(count));
    }
    return {};
  }

  // What the file does not give is left to the view.
  void read(std::size_t offset, std::span<std::byte> destination) override {
    while (!destination.empty()) {
      const ssize_t count = uninterrupted(
          [&] { return ::pread(descriptor_, destination.data(), destination.size(), position_of(offset)); });
      if (count <= 0)
        return Mapping::read(offset, destination);
      offset += static_cast<std::size_t>(count);
      destination = destination.subspan(static_cast<std::size_t>(count));
    }
  }

  Status unmap() override {
    if (view_ == nullptr)
      return {};
    return outcome(::munmap(std::exchange(view_, nullptr), view_length_));
  }

  // There is no mapping object besides the view.
  Status close() override { return {}; }

 private:
  std::span<std::byte> mapped() const {
    if (view_ == nullptr)
      return {};
    return {view_ + lead_, view_length_ - lead_};
  }
  off_t position_of(std::size_t offset) const { return static_cast<off_t>(offset_ + offset); }

  std::byte* view_ = nullptr;
  std::size_t lead_;
  std::size_t view_length_;
  int descriptor_;
  std::uint64_t offset_;
  bool may_have_changes_ = true;  // who knows what others have stored in the file
};

class PosixFile final : public File {
 public:
  PosixFile(Descriptor descriptor, bool is_regular, bool is_block_device)
      : descriptor_(std::move(descriptor)), is_regular_(is_regular), is_block_device_(is_block_device) {}

  Result<std::size_t> read_at(std::uint64_t position, std::span<std::byte> buffer) override {
    return transferred(uninterrupted([&] {
      return ::pread(descriptor_.number(), buffer.data(), buffer.size(), static_cast<off_t>(position));
    }));
  }

  Result<std::size_t> write_at(std::uint64_t position, std::span<const std::byte> bytes) override {
    return transferred(uninterrupted([&] {
      return ::pwrite(descriptor_.number(), bytes.data(), bytes.size(), static_cast<off_t>(position));
    }));
  }

  Status sync() override {
    return outcome(uninterrupted([&] { return ::fsync(descriptor_.number()); }));
  }

  void start_sync() override {
#ifdef SYNC_FILE_RANGE_WRITE
    constexpr off_t to_the_end = 0;
    (void)::sync_file_range(descriptor_.number(), 0, to_the_end, SYNC_FILE_RANGE_WRITE);
#endif
  }

  Status set_modification_time(FileTime time) override {
    const timespec modified{static_cast<time_t>(time.value / nanoseconds_per_second),
                            static_cast<long>(time.value % nanoseconds_per_second)};
    const timespec times[2] = {{0, UTIME_OMIT}, modified};
    return outcome(uninterrupted([&] { return ::futimens(descriptor_.number(), times); }));
  }

  bool has_fixed_size() const override {
    return is_block_device_;
  }

  Result<std::unique_ptr<Mapping>> map(std::uint64_t offset, std::uint32_t length) override;

  Status close() override {
    return descriptor_.close();
  }

 private:
  static Result<std::size_t> transferred(ssize_t count) {
    if (count < 0)
      return last_error();
    return static_cast<std::size_t>(count);
  }

  Status lengthen_to(std::uint64_t end);

  Descriptor descriptor_;
  bool is_regular_;
  bool is_block_device_;
};

Status PosixFile::lengthen_to(std::uint64_t end) {
  struct stat found {};
  if (uninterrupted([&] { return ::fstat(descriptor_.number(), &found); }) != 0)
    return last_error();
  if (!is_regular_ || static_cast<std::uint64_t>(found.st_size) >= end)
    return {};
  return outcome(uninterrupted([&] { return ::ftruncate(descriptor_.number(), static_cast<off_t>(end)); }));
}

Result<std::unique_ptr<Mapping>> PosixFile::map(std::uint64_t offset, std::uint32_t length) {
  if (offset > max_position - length) {
    errno = EINVAL;
    return last_error();
  }
  if (const Status lengthened = lengthen_to(offset + length); !lengthened.ok())
    return lengthened;

  auto mapping = std::make_unique<PosixMapping>(descriptor_.number(), offset, length);
  if (const Status mapped = mapping->map(); !mapped.ok())
    return mapped;
  return std::unique_ptr<Mapping>(std::move(mapping));
}

// Errors of flock that mean the want of locks, not that somebody holds one.
constexpr std::array lockless = {ENOLCK, ENOTSUP, EOPNOTSUPP, ENOSYS, EINVAL};

Status lock(int descriptor, Sharing sharing) {
  if (sharing == Sharing::all)
    return {};
  const int returned = uninterrupted([&] { return ::flock(descriptor, LOCK_EX | LOCK_NB); });
  if (returned == 0 || std::ranges::find(lockless, errno) != lockless.end())
    return {};
  return last_error();
}

}  // namespace

Result<std::unique_ptr<File>> open_file(const std::string& path, int flags, Sharing sharing) {
  const std::string native = native_path(path);
  Descriptor descriptor(
      uninterrupted([&] { return ::open(native.c_str(), flags | O_CLOEXEC, creation_mode); }));
  if (descriptor.number() < 0)
    return last_error();
  if (const Status locked = lock(descriptor.number(), sharing); !locked.ok())
    return locked;

  struct stat found {};
  if (uninterrupted([&] { return ::fstat(descriptor.number(), &found); }) != 0)
    return last_error();
  (void)::posix_fadvise(descriptor.number(), 0, 0, POSIX_FADV_RANDOM);  // advice only
  return std::unique_ptr<File>(
      std::make_unique<PosixFile>(std::move(descriptor), S_ISREG(found.st_mode), S_ISBLK(found.st_mode)));
}

}  // namespace platform
