#include "views/names.h"
#include "views/replay.h"
#include "views/text.h"

namespace inspect {
namespace {

void print_transaction(std::ostream& out, const MdbFacts& mdb, const TransactionFacts& transaction) {
  out << "    " << transaction.offset << ": transaction of serial " << transaction.serial << ", "
      << counted(transaction.updates.size(), "update") << ", up to " << transaction.end << ", "
      << name_of(transaction.fate) << '\n';
  for (const UpdateFacts& update : transaction.updates) {
    out << "      " << update.offset << ": " << counted(update.length, "byte") << " to block "
        << update.target / mdb.block_size << ", offset " << update.target % mdb.block_size << '\n';
  }
}

void print_half(std::ostream& out, const JournalFacts& facts, const MdbFacts& mdb, unsigned half) {
  const HalfFacts& at = facts.halves[half];
  out << "  half " << half << ": ";
  if (at.pointer_is_valid) {
    out << "serial " << at.serial << (facts.newest_half == half ? " (newest)" : "") << ", first entry at "
        << at.first_entry << '\n';
  } else {
    out << "index pointer unreadable\n";
  }
  for (const TransactionFacts& transaction : at.transactions)
    print_transaction(out, mdb, transaction);
  if (at.end)
    out << "    " << at.end_offset << ": " << name_of(*at.end) << '\n';
}

void print_replay(std::ostream& out, const JournalFacts& facts, const MdbFacts& mdb) {
  const ReplaySize size = replay_size(facts, mdb);
  out << "  replay: " << counted(facts.replayed_transactions, "transaction") << ", "
      << counted(facts.replayed_updates, "update") << ", " << counted(size.bytes, "byte") << " in "
      << counted(size.blocks, "block") << '\n';
}

}  // namespace

void print_journal(std::ostream& out, const JournalFacts& facts, const MdbFacts& mdb) {
  out << "Journal" << (facts.is_internal ? ", inside main.odb" : " " + printable(facts.path)) << ", "
      << facts.length_bytes << " bytes\n";
  print_half(out, facts, mdb, 0);
  print_half(out, facts, mdb, 1);
  print_replay(out, facts, mdb);
}

}  // namespace inspect
