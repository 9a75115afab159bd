#include "metadb/storage/mapped_journal.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <memory>
#include <system_error>

#include "common/errors.h"
#include "common/log.h"
#include "common/text.h"
#include "common/time.h"
#include "journal_meters.h"
#include "metadb/storage/backing_store.h"
#include "platform/platform.h"
#include "sync_failure.h"
#include "write_out.h"

namespace mdb {
namespace {

constexpr std::uint64_t max_mapping = std::numeric_limits<std::uint32_t>::max();

constexpr std::string_view sync_failed = "Error when syncing journal";

struct MappedJournal {
  // The mapping lies above the file, so that it is released first.
  std::unique_ptr<platform::File> file;
  std::unique_ptr<platform::Mapping> mapping;
  std::uint64_t length = 0;
  std::uint64_t usable_length = 0;
  bool written = false;
  WriteOut write_out;
  SyncFailure sync_failure;
};

MappedJournal journal;

[[noreturn]] void fail_mapping(int errno_value) {
  errno = errno_value;
  throw error_io("Cannot memory map journal: " + std::generic_category().message(errno_value));
}

void check(platform::Status status, std::string_view what) {
  if (!status.ok())
    throw error_io(text::concat(what, system_error_string(status.code)));
}

}  // namespace

void journal_map(const std::string& name, std::uint64_t offset, std::uint64_t length, bool external,
                 std::uint64_t limit) {
  journal_drop();
  auto opened = platform::system().open(name, external ? platform::Sharing::readers : platform::Sharing::all);
  if (!opened.ok()) {
    throw error_open(
        text::concat("Cannot open journal in \"", name, "\": ", system_error_string(opened.status().code)));
  }
  journal.file = std::move(opened.value());
  const std::uint64_t file_size = probe_last_byte(*journal.file) + 1;
  if (offset >= file_size)
    fail_mapping(EINVAL);
  if (length == 0) {
    length = file_size - offset;
    log(logging::information, logging::journal, "Will use ", length, " as journal length");
  }
  if (offset + length > max_mapping)
    length = std::min(length, limit);
  if (length > max_mapping)
    fail_mapping(EFBIG);
  auto mapped = journal.file->map(offset, static_cast<std::uint32_t>(length));
  if (!mapped.ok())
    fail_mapping(static_cast<int>(mapped.status().code));
  journal.mapping = std::move(mapped.value());
  journal.length = length;
  journal.usable_length = std::min(length, limit);
}

void journal_sync() {
  throw_if_sync_failed();
  if (!journal_is_mapped())
    throw error_internal("No journal mapped");
  const timing::StopWatch watch;
  if (!journal.mapping->sync().ok() || !journal.file->sync().ok()) {
    journal.sync_failure.fail(sync_failed);
  }
  journal.written = false;
  journal.write_out = {};
  const auto now = platform::system().file_time_now();
  if (!now.ok())
    throw error_io("Cannot convert filetime for journal");
  if (!journal.file->set_modification_time(now.value()).ok()) {
    throw error_io("Cannot set modification time on journal");
  }
  journal_meters::sync.add(watch.elapsed_microseconds());
}

void journal_write(std::uint64_t position, std::span<const std::byte> bytes) {
  journal.sync_failure.throw_if_failed();
  if (!journal.mapping->write(static_cast<std::size_t>(position), bytes).ok())
    journal.sync_failure.fail(sync_failed);
  journal.written = true;
  journal.write_out.wrote(*journal.file, bytes.size());
}

void journal_read(std::uint64_t position, std::span<std::byte> bytes) {
  journal.mapping->read(static_cast<std::size_t>(position), bytes);
}

void journal_start_sync() {
  if (journal_is_mapped())
    journal.write_out.start(*journal.file);
}

bool journal_has_failed() {
  return journal.sync_failure.has_failed();
}

void journal_sync_if_written() {
  if (journal.written)
    journal_sync();
}

void journal_unmap() {
  journal_sync();
  const auto file = std::move(journal.file);
  const auto mapping = std::move(journal.mapping);
  journal = {};  // nobody may use what is about to go, whatever fails below
  check(mapping->unmap(), "Cannot unmap the journal: ");
  check(mapping->close(), "Cannot close the map handle: ");
  check(file->close(), "Cannot close the journal handle: ");
}

void journal_drop() {
  journal.mapping.reset();
  journal = {};
}

void throw_if_sync_failed() {
  journal.sync_failure.throw_if_failed();
  throw_if_backing_sync_failed();
}

bool journal_is_mapped() {
  return journal.mapping != nullptr;
}

std::span<const std::byte> journal_bytes() {
  if (!journal_is_mapped())
    return {};
  return journal.mapping->view().first(static_cast<std::size_t>(journal.usable_length));
}

std::span<std::byte> journal_bytes_to_change() {
  if (!journal_is_mapped())
    return {};
  journal.written = true;
  return journal.mapping->bytes().first(static_cast<std::size_t>(journal.usable_length));
}

std::uint64_t journal_mapped_length() {
  return journal.length;
}

}  // namespace mdb
