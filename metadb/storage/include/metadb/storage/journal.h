// The write-ahead journal: transactions of byte updates, written to one of two halves in turn and applied
// to the database later. The journal knows nothing of the layers above; they register what must happen at
// the end of a transaction. One open journal a process, one thread.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace mdb {

// Writes a fresh journal header into the mapped journal and syncs it.
// Throws error_range when the journal is shorter than its header.
void journal_format();

// Checks the header, replays the newest half into the database, syncs that and flips, so that writing
// goes on in the half that was not replayed from. What is thrown before the flip leaves the journal as it
// was; what is thrown in it loses nothing, and the next opening replays again.
// Throws error_internal, error_fubar, error_unsupported, error_need_repair and what reading or writing
// throws.
void journal_validate();

// Syncs, unmaps and closes the journal without applying it, then logs "Journal in sync. Ready for shutdown.".
// Throws error_io: when it was the sync that failed the journal is still mapped, and what was committed
// lazily since the last sync may be lost in a power cut; else the journal is gone and everything is on the
// medium.
void journal_shutdown();

// Drops the journal as it stands, with every open transaction, without a sync and without an error: what the
// next opening finds is what recovery makes of it.
void journal_abandon();

// Opens a transaction, nested when one is open. An outermost one first runs journal_checkpoint(). Nothing is
// open when it throws error_internal without a validated journal or with one too small for an entry
// (error_range with one below 56 bytes), the error of an earlier flush that
// failed, or what syncing and applying throw.
void transaction_begin();

// Records that the bytes at `offset` of the database shall be `data`. They are visible to private copies
// at once and to everyone after the outermost end.
// Throws error_internal outside a transaction, error_transact "Transaction log full", error_range past what
// the allocation map can address.
void transaction_update(std::span<const std::byte> data, std::uint64_t offset);

// Closes the innermost transaction. `lazy` lets an outermost one become durable within a second or so;
// otherwise it is on the medium, and applied, when the call returns. When it throws and transaction_depth()
// is unchanged, the transaction is still open and must be aborted; when the depth has dropped, it is
// committed and only its syncing or applying failed. A nested end that is not lazy aborts the process.
void transaction_end(bool lazy);

// Takes back everything since the innermost begin and closes that transaction.
// Throws error_internal when none is open.
void transaction_abort();

// Whether any transaction is open, and how many are, nested ones included.
bool transaction_is_open();
std::size_t transaction_depth();

// Bytes still writable in the current half. Throws error_internal without a validated journal, and the error
// of an earlier flush that failed.
std::uint32_t journal_free();

// Moves writing to the other half, with a redirection entry at the write position when asked. Syncs the
// journal, applies it and syncs the database first; ends with a journal sync.
// Throws error_internal inside a transaction, and what syncing and applying throw.
void journal_flip(bool write_redirect);

// Applies the current half when a second has passed since the last sync, and flips when less than a
// quarter of it is free. Throws as journal_flip does.
void journal_checkpoint();

// What the layer above wants to hear of; null members are not called.
struct TransactionHooks {
  void (*committed)() = nullptr;  // an outermost transaction with updates has been committed
  void (*aborted)() = nullptr;    // a transaction has been aborted: what was read inside it may be wrong
};
// Replaces the hooks until the next call, whatever journal is open.
void journal_set_hooks(TransactionHooks wanted_hooks);

// Begins a transaction, and aborts it when it is left without an end, unless the journal has been closed
// meanwhile: then there is nothing left to abort.
class Transaction {
 public:
  Transaction();
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  // transaction_end(), with what it throws.
  void end(bool lazy = true);
  // False once the transaction is committed or, nested, part of the one around it; also when end() threw
  // because of what follows the commit.
  bool is_open() const;

 private:
  std::size_t depth_ = 0;
  std::uint64_t journal_ = 0;
  bool ended_ = false;
};

}  // namespace mdb
