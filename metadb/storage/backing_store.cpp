#include "metadb/storage/backing_store.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <utility>

#include "common/errors.h"
#include "common/log.h"
#include "common/text.h"
#include "metadb/storage/block_buffer.h"
#include "platform/platform.h"
#include "sync_failure.h"
#include "write_out.h"

namespace mdb {
namespace {

constexpr std::uint64_t first_probe = 8192;
constexpr std::uint64_t probe_end = std::uint64_t{1} << 62;
constexpr std::uint64_t no_address_limit = std::numeric_limits<std::uint64_t>::max();

struct Store {
  std::unique_ptr<platform::File> file;
  std::string name;
  std::uint64_t size = 0;
  std::uint64_t position = 0;
  std::uint64_t address_limit = no_address_limit;
  std::uint32_t block_size = 0;
  bool fixed_size = true;
  SyncFailure sync_failure;
  WriteOut write_out;
};

Store store;

bool byte_is_readable(platform::File& file, std::uint64_t position) {
  std::byte byte;
  const auto done = file.read_at(position, {&byte, 1});
  return done.ok() && done.value() == 1;
}

void seek_to(std::uint64_t offset) {
  if (offset > platform::max_position)
    throw error_seek("Unable to seek to position in MDB");
  backing_seek(static_cast<std::int64_t>(offset));
}

// Reads until the buffer is full or nothing more comes; `what` begins the message of a failure.
void read_at_position(std::span<std::byte> buffer, std::string_view what) {
  if (store.file == nullptr)
    throw error_internal("MDB backing store is not open");
  std::size_t done = 0;
  while (done < buffer.size()) {
    const auto step = store.file->read_at(store.position + done, buffer.subspan(done));
    if (!step.ok())
      throw error_io(text::concat(what, "\"", system_error_string(step.status().code), "\""));
    if (step.value() == 0)
      throw error_io(text::concat(what, "\"", system_error_string(0), "\""));
    done += step.value();
  }
}

}  // namespace

void backing_open(std::string name) {
  store = {};
  auto opened = platform::system().open(name, platform::Sharing::all);
  if (!opened.ok())
    throw error_open(text::concat("Cannot open database for read/write in \"", name, "\""));
  store.file = std::move(opened.value());
  store.name = std::move(name);
  store.size = probe_last_byte(*store.file) + 1;
  store.fixed_size = store.file->has_fixed_size();
}

void backing_close() {
  const auto file = std::move(store.file);
  store = {};
  if (file != nullptr && !file->close().ok())
    throw error_io("Error when closing the database");
}

bool backing_has_fixed_size() {
  return store.fixed_size;
}

bool backing_is_open() {
  return store.file != nullptr;
}

const std::string& backing_name() {
  return store.name;
}

void backing_sync() {
  throw_if_backing_sync_failed();
  if (store.file == nullptr)
    throw error_internal("MDB backing store is not open");
  if (!store.file->sync().ok())
    store.sync_failure.fail("sync error on backing store");
  store.write_out = {};
}

void throw_if_backing_sync_failed() {
  store.sync_failure.throw_if_failed();
}

void backing_seek(std::int64_t offset) {
  if (offset < 0)
    throw error_seek("Unable to seek to position in MDB");
  store.position = static_cast<std::uint64_t>(offset);
}

void block_read(std::span<std::byte> buffer, std::uint32_t first, std::uint32_t count) {
  seek_to(std::uint64_t{store.block_size} * first);
  read_at_position(buffer.first(std::size_t{store.block_size} * count), "Could not block-read: ");
}

void byte_read(std::span<std::byte> buffer, std::uint64_t offset) {
  if (offset > store.size || buffer.size() > store.size - offset) {
    throw error_range("Read beyond end of object backing store attempted");
  }
  seek_to(offset);
  read_at_position(buffer, "Could not byte-read: ");
}

void byte_write(std::span<const std::byte> bytes, std::uint64_t offset, bool allow_beyond_end) {
  if (!allow_beyond_end && (offset > store.size || bytes.size() > store.size - offset)) {
    throw error_range("Write beyond end of object backing store attempted");
  }
  seek_to(offset);
  if (store.file == nullptr)
    throw error_internal("MDB backing store is not open");
  const auto done = store.file->write_at(store.position, bytes);
  if (!done.ok()) {
    throw error_io(text::concat("Could not byte-write: \"", system_error_string(done.status().code), "\""));
  }
  if (done.value() != bytes.size()) {
    throw error_io(text::concat("Could not byte-write: written=", done.value(), " byte_len=", bytes.size()));
  }
  // Growth and recovery write in the order of the file, which the system writes out best by itself.
  if (!allow_beyond_end)
    store.write_out.wrote(*store.file, bytes.size());
}

void backing_grow(std::uint32_t block) {
  if (store.fixed_size)
    return;
  std::uint64_t step = store.size / 100 * 20 & ~std::uint64_t{store.block_size - 1};
  if (step == 0)
    step = store.block_size;
  const std::uint64_t wanted = std::uint64_t{block + 1} * store.block_size;
  const std::uint64_t target = std::max(store.size + step, wanted);
  log(logging::information, logging::space, "Attempting to grow MDB from ", store.size, " bytes to ", target,
      " bytes");
  BlockBuffer zeros(store.block_size);
  std::ranges::fill(zeros.bytes(), std::byte{0});
  while (store.size < target) {
    byte_write(zeros.bytes(), store.size, true);
    store.size += store.block_size;
  }
}

std::uint64_t backing_size() {
  return store.size;
}
void backing_set_size(std::uint64_t size) {
  store.size = size;
}

std::uint32_t block_size() {
  return store.block_size;
}
void set_block_size(std::uint32_t size) {
  store.block_size = size;
}

std::uint64_t address_limit() {
  return store.address_limit;
}
void set_address_limit(std::uint64_t limit) {
  store.address_limit = limit;
}

std::uint64_t probe_last_byte(platform::File& file) {
  std::uint64_t low = 0;
  std::uint64_t high = first_probe;
  while (high < probe_end && byte_is_readable(file, high)) {
    low = high;
    high *= 2;
  }
  while (low + 1 < high) {
    const std::uint64_t middle = (low + high) / 2;
    (byte_is_readable(file, middle) ? low : high) = middle;
  }
  return low;
}

}  // namespace mdb
