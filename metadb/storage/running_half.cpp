#include "running_half.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "common/errors.h"
#include "journal_walk.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/buffer_cache.h"
#include "metadb/storage/mapped_journal.h"
#include "overlay.h"
#include "update_index.h"

namespace mdb {
namespace {

// How far one user of the half has come: bytes from its first entry, and transactions.
struct Cursor {
  std::uint64_t offset = 0;
  std::uint64_t transactions = 0;
};

struct RunningHalf {
  std::uint64_t serial = 0;
  std::uint64_t jpos = 0;
  std::uint64_t committed = 0;
  Cursor checked;             // applied, or found fit to be
  std::uint64_t applied = 0;  // transactions
  UpdateIndex unapplied;
  std::exception_ptr broken;
};

RunningHalf half;

// In the running journal, what is not a complete transaction of the serial is corruption, not the end.
[[noreturn]] void throw_stale() {
  throw error_internal("Stale transaction found in running journal");
}

// Walks the transactions between the cursor and the last committed one, no entry further.
template <typename Visitor>
Cursor walk(Cursor from, Visitor visit) {
  const JournalBytes journal = journal_bytes();
  std::uint64_t position = half.jpos + from.offset;
  std::uint64_t transactions = from.transactions;
  std::uint64_t serial = half.serial;
  while (transactions < half.committed) {
    const EntryKind kind = entry_kind(journal, position);
    if (kind == EntryKind::redirection && serial == half.serial) {
      position = redirection_target(journal, position);
      serial += 1;
      continue;
    }
    if (kind != EntryKind::begin || begin_serial(journal, position) != serial)
      throw_stale();
    const TransactionExtent extent = check_transaction(journal, position);
    if (extent.state != TransactionExtent::State::complete)
      throw_stale();
    for_each_update(journal, extent, visit);
    position = extent.next();
    transactions += 1;
  }
  return {position - half.jpos, transactions};
}

// The bytes from `start` to `end` of the store, which lie in one block, as the journal has them.
void write_range(std::uint64_t block, std::uint64_t start, std::uint64_t end) {
  const std::uint64_t block_start = block * block_size();
  const auto length = static_cast<std::size_t>(end - start);
  const auto cached = cache_peek(static_cast<std::uint32_t>(block));
  if (!cached.empty()) {
    byte_write(cached.subspan(static_cast<std::size_t>(start - block_start), length), start, false);
    return;
  }
  BlockBuffer bytes(length);
  byte_read(bytes.bytes(), start);
  UnappliedUpdates(block).overlay(bytes.bytes(), start);
  byte_write(bytes.bytes(), start, false);
}

// One write from the first to the last changed byte; the bytes between are written as the file has them.
void write_changed_block(std::uint64_t block) {
  const std::uint64_t block_start = block * block_size();
  const std::uint64_t block_end = block_start + block_size();
  std::uint64_t start = block_end;
  std::uint64_t end = block_start;
  for (const UpdateRecord& record : half.unapplied.of_block(block)) {
    start = std::min(start, std::max(record.target, block_start));
    end = std::max(end, std::min(record.target + record.length, block_end));
  }
  write_range(block, start, end);
}

void note_unapplied(const UpdateRecord& record) {
  try {
    half.unapplied.add(record);
  } catch (...) {
    half.broken = std::current_exception();  // R2 does not hold
    throw;
  }
}

void check_lies_within_store(const Update& update) {
  if (update.target > backing_size() || update.data.size() > backing_size() - update.target) {
    throw error_range("Write beyond end of object backing store attempted");
  }
}

}  // namespace

void running_half_enter(std::uint64_t serial, std::uint64_t jpos) {
  UpdateIndex unapplied = std::move(half.unapplied);  // with its room
  unapplied.clear();
  half = {};
  half.serial = serial;
  half.jpos = jpos;
  half.unapplied = std::move(unapplied);
}

void running_half_count_commit() {
  half.committed += 1;
}

void running_half_take(const UpdateRecord& record, std::span<const std::byte> data) {
  cache_apply_update(record.target, data);
  note_unapplied(record);
}

void running_half_take(const UpdateRecord& record, BlockBuffer image) {
  cache_apply_block(static_cast<std::uint32_t>(record.target / block_size()), std::move(image));
  note_unapplied(record);
}

void running_half_check() {
  half.checked = walk(half.checked, check_lies_within_store);
}

void running_half_apply() {
  running_half_throw_if_broken();
  if (half.applied >= half.committed)
    return;
  running_half_check();
  journal_sync_if_written();
  for (const std::uint64_t block : half.unapplied.blocks())
    write_changed_block(block);
  half.applied = half.checked.transactions;  // R3
  half.unapplied.clear();                    // R2
}

UnappliedUpdates::UnappliedUpdates(std::uint64_t block)
    : block_(block), updates_(half.unapplied.of_block(block)) {}

bool UnappliedUpdates::cover_block() const {
  return !updates_.empty() && covers_block(updates_.front(), block_);
}

void UnappliedUpdates::prefetch() const {
  constexpr std::size_t line_bytes = 64;
  constexpr std::size_t most_lines = 512;  // of a cache near the processor
  const JournalBytes journal = journal_bytes();
  std::size_t lines = 0;
  for (const UpdateRecord& update : updates_) {
    const std::uint64_t start = std::max(update.target, block_ * block_size());
    const std::uint64_t end = std::min(update.target + update.length, (block_ + 1) * block_size());
    const std::uint64_t position = update.data_position + (start - update.target);
    if (position + (end - start) > journal.size())
      return;
    const auto data =
        journal.subspan(static_cast<std::size_t>(position), static_cast<std::size_t>(end - start));
    for (std::size_t at = 0; at < data.size(); at += line_bytes) {
      if (++lines > most_lines)
        return;
      __builtin_prefetch(&data[at]);
    }
    __builtin_prefetch(&data.back());  // it rarely starts with a line
  }
}

void UnappliedUpdates::overlay(std::span<std::byte> buffer, std::uint64_t offset) const {
  const JournalBytes journal = journal_bytes();
  for (const UpdateRecord& update : updates_)
    overlay_record(buffer, offset, update, journal);
}

void running_half_throw_if_broken() {
  if (half.broken != nullptr)
    std::rethrow_exception(half.broken);
}

}  // namespace mdb
