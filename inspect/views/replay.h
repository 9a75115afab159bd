// What opening the database would write into main.odb.

#pragma once

#include <cstdint>

#include "inspect/facts.h"

namespace inspect {

struct ReplaySize {
  std::uint64_t bytes = 0;
  std::uint64_t blocks = 0;  // each counted once
};

// Of the transactions that a replay carries out. REQUIRES: `facts` has the transactions, and `mdb` is what
// they write to.
ReplaySize replay_size(const JournalFacts& facts, const MdbFacts& mdb);

}  // namespace inspect
