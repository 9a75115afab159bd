// The half of the journal that is being written, as far as its transactions are committed: which of them the
// cache has, which the database file has, and how a reader gets those that the file does not have yet.
//
//   R1  The cache has every committed transaction: the commit-time pass follows each commit.
//   R2  `unapplied` lists exactly the updates of the committed transactions that the file does not have.
//   R3  Only whole transactions count as applied, and only once all their bytes are in the file.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "metadb/storage/block_buffer.h"
#include "update_index.h"

namespace mdb {

// Starts an empty half: its serial and where its entries begin.
void running_half_enter(std::uint64_t serial, std::uint64_t jpos);

// Counts one more committed transaction.
void running_half_count_commit();

// The commit-time pass: hands an update of the transaction that has just been committed to the cache. `data`
// is what was written, for which the end entry vouches.
// Throws std::bad_alloc; then the database must be opened anew.
void running_half_take(const UpdateRecord& record, std::span<const std::byte> data);
// The same for an update of a whole block.
void running_half_take(const UpdateRecord& record, BlockBuffer image);

// Checks what is committed and not yet applied, as running_half_apply does unless this was called before.
// Throws error_internal "Stale transaction found in running journal", error_range for an update past the
// store's end, error_io when the journal changes meanwhile.
void running_half_check();

// Syncs the journal where needed and writes what is committed and not yet applied into the store, each
// changed block once, in file order.
// Throws error_internal "Stale transaction found in running journal", and what journal_sync and byte_write
// throw.
void running_half_apply();

// What is committed and not yet applied of one block. Valid until something is committed or applied.
class UnappliedUpdates {
 public:
  explicit UnappliedUpdates(std::uint64_t block);

  // Whether they have every byte of the block, so that the file need not be read.
  bool cover_block() const;
  // Has the processor fetch what they write, as it lies all over the journal, while the file is read.
  void prefetch() const;
  // Lays them over a buffer that holds the file's bytes from `offset`, which lie within the block.
  void overlay(std::span<std::byte> buffer, std::uint64_t offset) const;

 private:
  std::uint64_t block_;
  std::span<const UpdateRecord> updates_;
};

// Throws the error of an earlier commit-time pass that did not complete.
void running_half_throw_if_broken();

}  // namespace mdb
