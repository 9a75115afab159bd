// What the journal's opening, its flips and its transactions share.

#pragma once

#include <cstdint>

#include "journal_writer.h"

namespace mdb {

struct JournalState {
  JournalWriter writer;
  std::uint64_t last_sync_second = 0;  // of the monotonic clock
  bool running = false;                // validated, so that entries may be written
};

JournalState& journal_state();

// Throws what keeps the journal from being used: none mapped, a failed flush, a broken commit.
void throw_if_journal_unusable();

// Syncs the journal and applies what is committed when a second has passed since that was last done; at once
// when `at_once` is set.
void sync_and_apply_when_due(bool at_once);

// Syncs, applies, syncs the store and moves to the other half; the open transaction, if any, must have been
// taken off the half.
void sync_apply_and_flip(bool write_redirect);

// Forgets every open transaction.
void transactions_forget();

}  // namespace mdb
