#include "views/replay.h"

#include <set>

namespace inspect {

ReplaySize replay_size(const JournalFacts& facts, const MdbFacts& mdb) {
  std::set<std::uint64_t> blocks;
  std::uint64_t bytes = 0;
  for (const HalfFacts& half : facts.halves) {
    for (const TransactionFacts& transaction : half.transactions) {
      if (transaction.fate != TransactionFate::replayed)
        continue;
      for (const UpdateFacts& update : transaction.updates) {
        bytes += update.length;
        for (std::uint64_t block = update.target / mdb.block_size;
             block * mdb.block_size < update.target + update.length; ++block)
          blocks.insert(block);
      }
    }
  }
  return {bytes, blocks.size()};
}

}  // namespace inspect
