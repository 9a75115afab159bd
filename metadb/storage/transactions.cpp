// Transactions: a stack of open ones over the one journal. Invariants:
//
//   T1  The bytes from the outermost begin to the write position are one begin entry and whole updates.
//   T2  `pending` lists those updates in order; nobody but private copies sees them.
//   T3  An outermost transaction is committed exactly when its end entry is written; what fails after that
//       leaves no open transaction behind.
//   T4  An abort leaves position and pending updates as they were at its begin.

#include <algorithm>
#include <utility>
#include <vector>

#include "common/assertion.h"
#include "common/bytes.h"
#include "common/errors.h"
#include "common/log.h"
#include "journal_meters.h"
#include "journal_state.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/block_copy.h"
#include "metadb/storage/buffer_cache.h"
#include "metadb/storage/journal.h"
#include "metadb/storage/journal_format.h"
#include "metadb/storage/mapped_journal.h"
#include "overlay.h"
#include "pending_updates.h"
#include "running_half.h"

namespace mdb {
namespace {

struct OpenTransaction {
  std::uint64_t begin;        // write position at its begin
  std::size_t pending_count;  // updates before it
};

// The bytes of a pending update of a whole block, for the cache.
struct BlockImage {
  std::size_t update;  // its number among the pending ones
  BlockBuffer bytes;
};

// For no more than these, so that a large transaction takes no memory of its size; the others go by the
// journal.
constexpr std::size_t kept_image_bytes = std::size_t{256} << 10;

struct Transactions {
  std::vector<OpenTransaction> open;
  PendingUpdates pending;
  std::vector<BlockImage> images;  // in the order of their updates
};

Transactions transactions;
TransactionHooks hooks;
std::uint64_t journals_forgotten = 0;  // guards of an earlier journal have nothing to abort

JournalWriter& writer() {
  return journal_state().writer;
}

void call(void (*hook)()) {
  if (hook != nullptr)
    hook();
}

void begin_outermost() {
  throw_if_journal_unusable();
  journal_checkpoint();
  if (writer().free() < format::begin_entry::size) {
    log(logging::warning, logging::replay, "Flipping journal at beginning of transaction");
    journal_flip(true);
    if (writer().free() < format::begin_entry::size) {
      throw error_internal("After journal flip; no space for transbeg.");
    }
  }
  const std::uint64_t begin = writer().position();
  transactions.open.reserve(1);  // T1: nothing may fail between the entry and its record
  writer().write_begin();
  transactions.open.push_back({begin, 0});
}

// The outermost transaction's updates, with a begin of the new serial, at the start of the half that has just
// been entered. Only the begin entry was overwritten by the redirection; the updates still stand in the old
// half.
void write_again(std::span<const std::byte> updates, std::uint64_t old_begin) {
  auto& outermost = transactions.open.front();
  outermost.begin = writer().position();
  if (writer().free() < format::begin_entry::size + updates.size() + format::end_entry::size) {
    throw error_internal("After journal flip; no space for transend.");
  }
  writer().write_begin();
  try {
    writer().write_raw(updates);
  } catch (...) {
    writer().move_back_and_erase(outermost.begin);  // it did not come along
    throw;
  }
  transactions.pending.move_data(static_cast<std::int64_t>(outermost.begin) -
                                 static_cast<std::int64_t>(old_begin));
}

// The end entry does not fit: the transaction moves whole into the other half.
void move_to_other_half() {
  log(logging::warning, logging::replay, "Flipping journal at end of transaction");
  const std::uint64_t begin = transactions.open.front().begin;
  const std::uint64_t end = writer().position();
  const std::uint64_t serial = writer().serial();
  const auto updates = writer().whole_entries_since(begin).subspan(format::begin_entry::size);
  writer().move_back(begin);
  try {
    sync_apply_and_flip(true);
  } catch (...) {
    if (writer().serial() == serial) {
      writer().move_back(end);  // T1
    } else {
      transactions.open.front().begin = writer().position();
    }
    throw;
  }
  write_again(updates, begin);
}

void forget_pending_from(std::size_t update) {
  transactions.pending.truncate(update);
  while (!transactions.images.empty() && transactions.images.back().update >= update)
    transactions.images.pop_back();
}

// The entry of the update, at `entry`, goes when it cannot be listed (T2).
void add_pending(const UpdateRecord& record, std::uint64_t entry) {
  try {
    transactions.pending.add(record);
  } catch (...) {
    writer().move_back_and_erase(entry);
    throw;
  }
}

// The commit-time pass over the transaction that has just been committed.
void hand_over_pending() {
  struct Emptied {
    ~Emptied() { forget_pending_from(0); }
  } const on_return;
  const auto records = transactions.pending.records();
  auto image = transactions.images.begin();
  for (std::size_t i = 0; i < records.size(); ++i) {
    if (image != transactions.images.end() && image->update == i) {
      running_half_take(records[i], std::move(image->bytes));
      ++image;
    } else {
      running_half_take(records[i], writer().written(records[i].data_position, records[i].length));
    }
  }
}

// An outermost transaction that failed to move has no begin in the half that was entered.
void throw_if_left_behind() {
  if (writer().position() < transactions.open.front().begin + format::begin_entry::size)
    throw_incomplete_update();
}

void end_outermost(bool lazy) {
  const std::uint64_t begin = transactions.open.front().begin;
  if (writer().position() == begin + format::begin_entry::size) {
    writer().move_back(begin);
    transactions.open.clear();
    return;
  }
  throw_if_journal_unusable();
  throw_if_left_behind();
  if (writer().free() < format::end_entry::size)
    move_to_other_half();
  writer().write_end();
  running_half_count_commit();
  journal_meters::commits.increment();
  transactions.open.clear();  // T3
  call(hooks.committed);
  hand_over_pending();
  sync_and_apply_when_due(!lazy);
}

// Lays the open transactions' updates over a buffer that lies within one block.
void overlay_pending(std::span<std::byte> buffer, std::uint64_t offset) {
  for (const UpdateRecord& record : transactions.pending.of_block(offset / block_size())) {
    if (std::uint64_t{record.data_position} + record.length > writer().position())
      throw_incomplete_update();  // it did not come along into the other half
    overlay_update(buffer, offset, record.target, writer().written(record.data_position, record.length));
  }
}

}  // namespace

void journal_set_hooks(TransactionHooks wanted_hooks) {
  hooks = wanted_hooks;
}

bool transaction_is_open() {
  return !transactions.open.empty();
}

std::size_t transaction_depth() {
  return transactions.open.size();
}

void transactions_forget() {
  transactions = {};
  journals_forgotten += 1;
}

void transaction_begin() {
  if (!transaction_is_open()) {
    begin_outermost();
  } else {
    transactions.open.push_back({writer().position(), transactions.pending.size()});
  }
}

void transaction_update(std::span<const std::byte> data, std::uint64_t offset) {
  if (!transaction_is_open())
    throw error_internal("Update outside of transaction attempted");
  throw_if_left_behind();
  if (offset > address_limit() || data.size() > address_limit() - offset)
    throw error_range("Write beyond end of object backing store attempted");
  if (journal_free() < format::update_entry_size(data.size()))
    throw error_transact("Transaction log full");
  const std::uint64_t start = writer().position();
  const std::uint32_t data_position = writer().write_update(data, offset);
  if (!data.empty())
    add_pending({offset, static_cast<std::uint32_t>(data.size()), data_position}, start);
}

void transaction_end(bool lazy) {
  if (!transaction_is_open())
    throw error_internal("End of non-existing transaction");
  if (transactions.open.size() == 1) {
    end_outermost(lazy);
    return;
  }
  if (!lazy)
    assertion_failed("Syncronous nested transactions not supported");
  transactions.open.pop_back();
}

void transaction_abort() {
  if (!transaction_is_open())
    throw error_internal("Abort of non-existing transaction");
  const OpenTransaction innermost = transactions.open.back();
  transactions.open.pop_back();
  if (journal_is_mapped())
    writer().move_back_and_erase(innermost.begin);  // T4
  forget_pending_from(innermost.pending_count);
  journal_meters::aborts.increment();
  call(hooks.aborted);
}

Transaction::Transaction() {
  transaction_begin();
  depth_ = transaction_depth();
  journal_ = journals_forgotten;
}

Transaction::~Transaction() {
  if (!is_open())
    return;
  try {
    transaction_abort();
  } catch (...) {
    assertion_failed("Transaction cannot be aborted");
  }
}

bool Transaction::is_open() const {
  return !ended_ && journal_ == journals_forgotten;
}

void Transaction::end(bool lazy) {
  try {
    transaction_end(lazy);
  } catch (...) {
    ended_ = transaction_depth() < depth_;
    throw;
  }
  ended_ = true;
}

BlockBuffer read_block_copy(std::uint32_t block) {
  const auto committed = cache_get_block(block);
  BlockBuffer copy(committed.size());
  bytes::copy(committed, copy.bytes());
  overlay_pending(copy.bytes(), std::uint64_t{block} * block_size());
  return copy;
}

void write_block_copy(std::uint32_t block, BlockBuffer copy) {
  transactions.images.reserve(kept_image_bytes / block_size() + 1);  // nothing may fail behind the update
  transaction_update(copy.bytes(), std::uint64_t{block} * block_size());
  if (transactions.images.size() * block_size() < kept_image_bytes)
    transactions.images.push_back({transactions.pending.size() - 1, std::move(copy)});
}

BlockView view_block_version(std::uint32_t block, BlockBuffer& scratch) {
  if (!transactions.pending.touches(block))
    return cache_get_version(block);
  scratch = read_block_copy(block);
  return {scratch.bytes(), 0};
}

std::span<const std::byte> view_block(std::uint32_t block, BlockBuffer& scratch) {
  return view_block_version(block, scratch).bytes;
}

void read_bytes_current(std::span<std::byte> buffer, std::uint64_t offset) {
  byte_read(buffer, offset);
  while (!buffer.empty()) {
    const auto in_block = static_cast<std::size_t>(block_size() - offset % block_size());
    const auto part = buffer.first(std::min(buffer.size(), in_block));
    UnappliedUpdates(offset / block_size()).overlay(part, offset);
    overlay_pending(part, offset);
    buffer = buffer.subspan(part.size());
    offset += part.size();
  }
}

}  // namespace mdb
