#include <algorithm>
#include <cerrno>
#include <utility>

#include "calls.h"
#include "windows_errno.h"

namespace platform {
namespace {

// The most that one call is asked to transfer.
constexpr std::size_t transfer_limit = std::size_t{1} << 30;

// A handle that is closed once. "No handle" is null.
class Handle {
 public:
  explicit Handle(HANDLE value) : value_(value == INVALID_HANDLE_VALUE ? nullptr : value) {}
  ~Handle() { (void)close(); }
  Handle(Handle&& other) noexcept : value_(std::exchange(other.value_, nullptr)) {}
  Handle& operator=(Handle&&) = delete;

  HANDLE get() const { return value_; }

  Status close() {
    HANDLE value = std::exchange(value_, nullptr);
    return value == nullptr ? Status{} : outcome(::CloseHandle(value));
  }

 private:
  HANDLE value_;
};

// Leaves errno at the meaning of the last error and returns it.
Status last_error_as_errno() {
  errno = errno_of(::GetLastError());
  return Status{static_cast<std::uint32_t>(errno)};
}

std::uint64_t granularity() {
  SYSTEM_INFO info{};
  ::GetSystemInfo(&info);
  return info.dwAllocationGranularity;
}

// A mapped range. The view starts at the granule that holds the range's first byte.
class WindowsMapping final : public Mapping {
 public:
  WindowsMapping(Handle object, std::uint64_t offset, std::size_t length)
      : object_(std::move(object)),
        lead_(offset % granularity()),
        start_(offset - lead_),
        view_length_(lead_ + length) {}
  ~WindowsMapping() override { (void)unmap(); }
  WindowsMapping(const WindowsMapping&) = delete;
  WindowsMapping& operator=(const WindowsMapping&) = delete;

  Status map() {
    view_ = static_cast<std::byte*>(::MapViewOfFile(object_.get(), FILE_MAP_ALL_ACCESS, high_word(start_),
                                                    low_word(start_), view_length_));
    return view_ == nullptr ? last_error_as_errno() : Status{};
  }

  std::span<std::byte> bytes() override {
    if (view_ == nullptr)
      return {};
    return {view_ + lead_, view_length_ - lead_};
  }

  Status sync() override { return outcome(::FlushViewOfFile(view_, view_length_)); }

  Status unmap() override {
    if (view_ == nullptr)
      return {};
    return outcome(::UnmapViewOfFile(std::exchange(view_, nullptr)));
  }

  Status close() override { return object_.close(); }

 private:
  Handle object_;
  std::byte* view_ = nullptr;
  std::size_t lead_;
  std::uint64_t start_;
  std::size_t view_length_;
};

// Where a transfer takes place.
OVERLAPPED at(std::uint64_t position) {
  OVERLAPPED place{};
  place.Offset = low_word(position);
  place.OffsetHigh = high_word(position);
  return place;
}

class WindowsFile final : public File {
 public:
  explicit WindowsFile(Handle handle) : handle_(std::move(handle)) {}

  Result<std::size_t> read_at(std::uint64_t position, std::span<std::byte> buffer) override;
  Result<std::size_t> write_at(std::uint64_t position, std::span<const std::byte> bytes) override;

  Status sync() override { return outcome(::FlushFileBuffers(handle_.get())); }

  Status set_modification_time(FileTime time) override {
    const FILETIME modified{low_word(time.value), high_word(time.value)};
    return outcome(::SetFileTime(handle_.get(), nullptr, nullptr, &modified));
  }

  bool has_fixed_size() const override { return false; }

  Result<std::unique_ptr<Mapping>> map(std::uint64_t offset, std::uint32_t length) override;

  Status close() override { return handle_.close(); }

 private:
  Handle handle_;
};

Result<std::size_t> WindowsFile::read_at(std::uint64_t position, std::span<std::byte> buffer) {
  if (position > max_position)
    return Status{ERROR_NEGATIVE_SEEK};
  OVERLAPPED place = at(position);
  DWORD count = 0;
  const auto wanted = static_cast<DWORD>(std::min(buffer.size(), transfer_limit));
  if (::ReadFile(handle_.get(), buffer.data(), wanted, &count, &place) != FALSE)
    return std::size_t{count};
  const Status failure = last_error();
  if (failure.code == ERROR_HANDLE_EOF)
    return std::size_t{0};
  return failure;
}

Result<std::size_t> WindowsFile::write_at(std::uint64_t position, std::span<const std::byte> bytes) {
  if (position > max_position)
    return Status{ERROR_NEGATIVE_SEEK};
  OVERLAPPED place = at(position);
  DWORD count = 0;
  const auto wanted = static_cast<DWORD>(std::min(bytes.size(), transfer_limit));
  if (::WriteFile(handle_.get(), bytes.data(), wanted, &count, &place) == FALSE)
    return last_error();
  return std::size_t{count};
}

Result<std::unique_ptr<Mapping>> WindowsFile::map(std::uint64_t offset, std::uint32_t length) {
  // The maximum size is a 32-bit number; a file that is shorter is lengthened to it.
  Handle object(
      ::CreateFileMappingA(handle_.get(), nullptr, PAGE_READWRITE, 0, low_word(offset + length), nullptr));
  if (object.get() == nullptr)
    return last_error_as_errno();

  auto mapping = std::make_unique<WindowsMapping>(std::move(object), offset, length);
  if (const Status mapped = mapping->map(); !mapped.ok())
    return mapped;
  return std::unique_ptr<Mapping>(std::move(mapping));
}

}  // namespace

Result<std::unique_ptr<File>> open_file(const std::string& path, DWORD access, DWORD share_mode,
                                        DWORD disposition) {
  Handle handle(::CreateFileA(path.c_str(), access, share_mode, nullptr, disposition,
                              FILE_ATTRIBUTE_NORMAL | FILE_FLAG_RANDOM_ACCESS, nullptr));
  if (handle.get() == nullptr)
    return last_error();
  return std::unique_ptr<File>(std::make_unique<WindowsFile>(std::move(handle)));
}

}  // namespace platform
