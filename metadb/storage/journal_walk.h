// Reading the journal entry by entry. Every byte is hostile until checked: no function here reads past the
// journal, whatever it holds.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "metadb/storage/journal_format.h"

namespace mdb {

using JournalBytes = std::span<const std::byte>;

enum class EntryKind { none, begin, update, end, redirection };

// The kind of the whole entry at `position`; `none` also for one that crosses the journal's end.
// Throws error_range at or past the end.
EntryKind entry_kind(JournalBytes journal, std::uint64_t position);

// REQUIRES (both): entry_kind gave the kind.
std::uint64_t begin_serial(JournalBytes journal, std::uint64_t position);
std::uint32_t redirection_target(JournalBytes journal, std::uint64_t position);

struct Update {
  std::uint64_t target;  // byte offset in the database
  std::span<const std::byte> data;
  std::uint32_t data_position;  // byte offset in the journal

  std::uint64_t entry_size() const { return format::update_entry_size(data.size()); }
};

// A transaction from its begin entry to the end entry or whatever stands in its place.
struct TransactionExtent {
  enum class State { complete, no_end, bad_checksum };
  State state;
  std::uint64_t begin;
  std::uint64_t end;  // position of the end entry, or of what stands there

  std::uint64_t next() const { return end + format::end_entry::size; }
};

// Measures the transaction that begins at `begin` and checks its checksum; logs what is wrong with it.
// REQUIRES: there is a begin entry. Throws error_range when an entry would begin past the journal's end.
TransactionExtent check_transaction(JournalBytes journal, std::uint64_t begin);

// The update entry at `position` of a transaction that ends at `end`. The journal is a mapped file that
// somebody else might change between check and use: what is used here has been looked at once only. Throws
// error_io when it has changed.
Update read_update(JournalBytes journal, std::uint64_t position, std::uint64_t end);

// Calls `visit(const Update&)` for every update of a checked transaction. Throws as read_update does.
template <typename Visitor>
void for_each_update(JournalBytes journal, const TransactionExtent& transaction, Visitor visit) {
  std::uint64_t position = transaction.begin + format::begin_entry::size;
  while (position < transaction.end) {
    const Update update = read_update(journal, position, transaction.end);
    visit(update);
    position += update.entry_size();
  }
}

}  // namespace mdb
