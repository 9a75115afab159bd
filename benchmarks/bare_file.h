// A file as a bare loop has it: the calls of the system and whether they succeeded.

#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <stdexcept>
#include <vector>

namespace bench {

// The tool creates its files in pieces of this size, which the system then keeps their pages in.
inline constexpr std::size_t created_at_once = 4096;

inline void require(bool succeeded) {
  if (!succeeded)
    throw std::runtime_error("A call of a bare loop has failed");
}

class BareFile {
 public:
  // Opens the file, which is made if need be.
  explicit BareFile(const std::filesystem::path& path, int flags = 0)
      : descriptor_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | flags, 0600)) {
    require(descriptor_ >= 0);
  }
  ~BareFile() { ::close(descriptor_); }
  BareFile(const BareFile&) = delete;
  BareFile& operator=(const BareFile&) = delete;

  void write(std::uint64_t position, std::span<const std::byte> bytes) const {
    require(::pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(position)) ==
            static_cast<ssize_t>(bytes.size()));
  }
  void read(std::uint64_t position, std::span<std::byte> bytes) const {
    require(::pread(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(position)) ==
            static_cast<ssize_t>(bytes.size()));
  }
  // Writes zeros from `start` up to `end`, a whole number of pieces.
  void write_zeros(std::uint64_t start, std::uint64_t end, std::size_t at_once) const {
    const std::vector<std::byte> zeros(at_once);
    for (std::uint64_t position = start; position < end; position += at_once)
      write(position, zeros);
  }
  void start_flush(std::uint64_t position, std::uint64_t length) const {
    require(::sync_file_range(descriptor_, static_cast<off_t>(position), static_cast<off_t>(length),
                              SYNC_FILE_RANGE_WRITE) == 0);
  }
  void flush() const { require(::fsync(descriptor_) == 0); }
  void stamp() const { require(::futimens(descriptor_, nullptr) == 0); }
  std::span<std::byte> map(std::size_t length) const {
    void* view = ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor_, 0);
    require(view != MAP_FAILED);
    return {static_cast<std::byte*>(view), length};
  }

 private:
  int descriptor_;
};

}  // namespace bench
