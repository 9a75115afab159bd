#include "timeseries/backing_store.h"

#include <bit>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "common/errors.h"
#include "common/text.h"
#include "platform/platform.h"
#include "timeseries/meters.h"

namespace tsdb {
namespace {

constexpr std::uint64_t max_u32 = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t block_number_end = max_u32 + 1;
constexpr std::uint64_t first_probe = 1024;

struct Store {
  std::unique_ptr<platform::File> handle;
  std::string store_dir;
  std::uint64_t position = 0;
  std::uint32_t block_size = 0;
  // One less than the block size's logarithm: free space is counted in half-blocks.
  std::uint32_t block_shift = 0;
  std::uint32_t block_count = 0;
  bool is_volume = false;
};

Store store;

platform::File& open_file() {
  if (!store.handle)
    throw error_internal("No TSDB backing store is open");
  return *store.handle;
}

// Cannot overflow: (2^32 - 1) * (2^32 - 1) + 2^32 - 1 < 2^64.
std::uint64_t position_of(std::uint32_t block, std::uint32_t offset_bytes) {
  return std::uint64_t{store.block_size} * block + offset_bytes;
}

// Whether the first byte of block `block_index` can be read; no failure is an error.
bool probe(std::uint64_t block_index) {
  const std::uint64_t position = position_of(static_cast<std::uint32_t>(block_index), 0);
  if (position > platform::max_position)
    return false;
  std::byte byte{};
  const auto got = open_file().read_at(position, {&byte, 1});
  return got.ok() && got.value() == 1;
}

std::uint32_t measure_block_count() {
  std::uint64_t low = 0;
  std::uint64_t high = first_probe;
  if (probe(first_probe)) {
    low = first_probe;
    while (2 * low < block_number_end && probe(2 * low))
      low *= 2;
    high = 2 * low;
  }
  while (low + 1 < high) {
    const std::uint64_t middle = (low + high) / 2;
    (probe(middle) ? low : high) = middle;
  }
  return static_cast<std::uint32_t>(low);
}

[[noreturn]] void throw_write_error(std::size_t total_bytes, std::uint32_t block, std::size_t done_bytes,
                                    std::uint32_t code) {
  throw error_read(text::concat("Cannot seq. write ", total_bytes, " bytes at block ", block, " offset ",
                                done_bytes, ": \"", system_error_string(code), "\""));
}

// Writes all of `data` at the store's position; `block` is where that is, for the message.
void write_all(std::uint32_t block, std::span<const std::byte> data) {
  std::size_t done = 0;
  while (done < data.size()) {
    const auto written = open_file().write_at(store.position, data.subspan(done));
    if (!written.ok())
      throw_write_error(data.size(), block, done, written.status().code);
    if (written.value() == 0) {
      throw_write_error(data.size(), block, done, platform::system().disk_full().code);
    }
    done += written.value();
    store.position += written.value();
  }
}

std::vector<std::byte> zero_block() {
  return std::vector<std::byte>(store.block_size);
}

}  // namespace

std::string store_directory(const std::string& path) {
  if (path.empty())
    return {};
  const bool has_backslash = path.find('\\') != std::string::npos;
  const bool has_slash = path.find('/') != std::string::npos;
  const char separator = has_slash && !has_backslash ? '/' : '\\';
  if (path.back() == ':')
    return path + separator;
  const std::size_t last = path.rfind(separator);
  return last == std::string::npos ? std::string() : path.substr(0, last + 1);
}

void btb_open(const std::string& path) {
  btb_close();
  store.store_dir = store_directory(path);
  if (store.store_dir.empty())
    throw error_io("Cannot give empty name to TSDB backing store");
  auto opened = platform::system().open(path, platform::Sharing::none);
  if (!opened.ok()) {
    const std::uint32_t code = opened.status().code;
    throw error_open(text::concat("Unable to open \"", path, "\": ", system_error_string(code)));
  }
  store.handle = std::move(opened.value());
}

void btb_set_block_size(std::uint32_t block_size_bytes) {
  open_file();
  if (block_size_bytes == 0)
    throw error_internal("TSDB blocks of 0 bytes are not possible");
  store.block_size = block_size_bytes;
  store.block_shift = static_cast<std::uint32_t>(std::bit_width(block_size_bytes / 4));
  store.block_count = measure_block_count();
}

void btb_declare_volume() {
  open_file();
  store.is_volume = true;
}

void btb_close() {
  store = Store();
}

std::uint32_t btb_block_size() {
  return store.block_size;
}

std::uint32_t btb_block_count() {
  return store.block_count;
}

void btb_seek(std::uint32_t block, std::uint32_t offset_bytes) {
  open_file();
  if (store.block_size == 0)
    throw error_internal("The TSDB block size has not been set");
  const std::uint64_t position = position_of(block, offset_bytes);
  if (position > platform::max_position) {
    throw error_seek(text::concat("Unable to lseek to block #", block, " ofs ", offset_bytes));
  }
  store.position = position;
}

void btb_WriteFile(std::uint32_t first_block, std::span<const std::byte> buffer, std::uint32_t block_count) {
  static meter::MicroSecondTiming duration(low_group(), "btb_WriteFile", "us", "Time spent writing blocks");
  const meter::ScopedMicroSeconds measured(duration);
  btb_seek(first_block, 0);
  const std::uint64_t total_bytes = std::uint64_t{block_count} * store.block_size;
  if (total_bytes > max_u32) {
    throw error_toobig(text::concat("Cannot write ", block_count, " blocks at block ", first_block,
                                    " at once: more than 2^32 bytes"));
  }
  if (total_bytes > buffer.size()) {
    throw error_internal(text::concat("Buffer of ", buffer.size(), " bytes given for ", block_count,
                                      " blocks at block ", first_block));
  }
  write_all(first_block, buffer.first(static_cast<std::size_t>(total_bytes)));
}

std::uint32_t cgs_space() {
  static meter::MicroSecondTiming duration(low_group(), "cgs_space", "us",
                                           "Time spent asking for the free space");
  const meter::ScopedMicroSeconds measured(duration);
  open_file();
  if (store.is_volume)
    return 0;
  const auto free = platform::system().free_bytes(store.store_dir);
  if (!free.ok()) {
    const std::uint32_t code = free.status().code;
    throw error_io(text::concat("Unable to get free space information from \"", store.store_dir,
                                "\": ", system_error_string(code)));
  }
  const std::uint64_t half_block_count = free.value() >> store.block_shift;
  if (half_block_count > max_u32)
    throw error_toobig("TSDB backing store is more than 2^32 blocks");
  return static_cast<std::uint32_t>(half_block_count);
}

void btb_grow(std::uint32_t block_count, const BlocksWritten& written) {
  open_file();
  if (store.is_volume)
    throw error_internal("Cannot grow a volume");
  if (std::uint64_t{store.block_count} + block_count > max_u32) {
    throw error_dbspacewrap(text::concat("Growing the database with ", block_count,
                                         " blocks will make it exceed internal limits for TSDB size"));
  }
  const std::vector<std::byte> zeros = zero_block();
  for (std::uint32_t appended = 0; appended < block_count; ++appended) {
    btb_WriteFile(store.block_count, zeros, 1);
    ++store.block_count;
    if (written)
      written(appended + 1, block_count);
  }
}

void btb_format_volume(const BlocksWritten& written) {
  open_file();
  const std::vector<std::byte> zeros = zero_block();
  for (std::uint32_t block = 0; block != store.block_count; ++block) {
    btb_WriteFile(block, zeros, 1);
    if (written)
      written(block + 1, store.block_count);
  }
}

void sync_writes() {
  static meter::MicroSecondTiming duration(low_group(), "sync_writes", "us", "Time spent flushing writes");
  const meter::ScopedMicroSeconds measured(duration);
  const platform::Status flushed = open_file().sync();
  if (!flushed.ok()) {
    throw error_io(text::concat("flush failed with error: \"", system_error_string(flushed.code), "\""));
  }
}

}  // namespace tsdb
