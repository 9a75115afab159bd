// Recovery: carrying the newest half of the journal out when the database is opened.

#pragma once

#include <cstdint>
#include <optional>

#include "journal_walk.h"

namespace mdb {

struct RecoveryStart {
  format::IndexPointer pointer;
  // Where the other half's entries would begin, when its index pointer cannot be read.
  std::optional<std::uint64_t> unreadable_half;
};

struct RecoveryResult {
  std::uint64_t serial;            // that of the last half that was walked
  std::uint64_t highest_byte_end;  // one past the highest byte written, 0 when nothing was
};

// Writes every complete transaction of the half, and of the one that a redirection leads to, into the store.
// Ends quietly at the first entry that is not part of one. REQUIRES: the journal has been synced.
// Throws error_range for positions outside the journal, error_io for a journal that changes meanwhile, and
// what byte_write throws.
RecoveryResult recover(JournalBytes journal, const RecoveryStart& start);

}  // namespace mdb
