#include "createdb/create_files.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <string_view>

#include "createdb/end_of_run.h"
#include "createdb/interrupts.h"
#include "platform/platform.h"

namespace createdb {
namespace {

using OpenedFile = platform::Result<std::unique_ptr<platform::File>>;

// What differs between a file and a device.
struct StoreKind {
  OpenedFile (*open)(const std::string& path);
  bool has_new_name;
  std::string_view open_failure;
  std::string_view close_failure;
};

constexpr std::string_view write_failure = "Unable to write to \"";

constexpr StoreKind new_file = {
    .open = [](const std::string& path) { return platform::system().create_new(path); },
    .has_new_name = true,
    .open_failure = "Unable to create file \"",
    .close_failure = "Failed closing file \"",
};
constexpr StoreKind device = {
    .open = [](const std::string& path) { return platform::system().open(path, platform::Sharing::none); },
    .has_new_name = false,
    .open_failure = "Unable to open store \"",
    .close_failure = "Failed closing store \"",
};

void write_zeros(platform::File& file, const std::string& path, std::uint64_t size_bytes) {
  static constexpr std::array<std::byte, 4096> zeros{};
  for (std::uint64_t position = 0; position < size_bytes;) {
    const auto length =
        static_cast<std::size_t>(std::min<std::uint64_t>(size_bytes - position, zeros.size()));
    const auto written = file.write_at(position, std::span(zeros).first(length));
    if (!written.ok())
      fail(write_failure, path, '"');
    if (written.value() == 0)
      fail("write returned 0");
    position += written.value();
  }
}

OpenedFile open_store(const StoreKind& kind, const std::string& path) {
  const platform::InterruptsHeld held(platform::system());
  auto opened = kind.open(path);
  if (opened.ok() && kind.has_new_name)
    note_file_made(path);
  return opened;
}

void make_store(const StoreKind& kind, const std::string& path, std::uint64_t size_bytes) {
  auto opened = open_store(kind, path);
  if (!opened.ok())
    fail(kind.open_failure, path, '"');
  platform::File& file = *opened.value();
  write_zeros(file, path, size_bytes);
  if (!file.close().ok())
    fail(kind.close_failure, path, '"');
  if (kind.has_new_name && !platform::system().sync_directory_of(path).ok())
    fail(write_failure, path, '"');
}

}  // namespace

void create_zero_file(const std::string& path, std::uint64_t size_bytes) {
  make_store(new_file, path, size_bytes);
}

void prepare_store(const std::string& path, std::uint64_t size_bytes) {
  make_store(device, path, size_bytes);
}

}  // namespace createdb
