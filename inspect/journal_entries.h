// The entries of a journal, read one by one from bytes that may hold anything.

#pragma once

#include <cstdint>

#include "file_image.h"

namespace inspect {

enum class EntryKind { none, begin, update, end, redirection };

// A transaction from its begin entry to its end entry, or to what stands in that one's place.
struct TransactionExtent {
  enum class State { complete, without_updates_or_end, without_end, bad_crc };

  State state;
  std::uint64_t begin;
  std::uint64_t end;  // where the end entry is, or should be
  std::uint64_t update_count;

  std::uint64_t first_update() const;
  std::uint64_t next() const;
};

class JournalEntries {
 public:
  explicit JournalEntries(ByteView journal) : journal_(journal) {}

  std::uint64_t size() const { return journal_.size(); }

  // The kind of the whole entry at `position`; `none` for one that crosses the journal's end, or lies past
  // it.
  EntryKind kind_at(std::uint64_t position) const;

  // REQUIRES (the rest): kind_at() gave the kind.
  std::uint64_t begin_serial(std::uint64_t position) const;
  std::uint32_t redirection_target(std::uint64_t position) const;
  std::uint64_t update_size(std::uint64_t position) const;
  Update update_at(std::uint64_t position) const;
  // The word of an update that is always zero.
  std::uint32_t update_reserved(std::uint64_t position) const;

  TransactionExtent transaction_at(std::uint64_t begin) const;

  // Calls visit(position) for every update of a transaction.
  template <typename Visitor>
  void for_each_update(const TransactionExtent& transaction, Visitor visit) const;

 private:
  bool fits(std::uint64_t position, std::uint64_t size) const {
    return size <= journal_.size() && position <= journal_.size() - size;
  }
  ByteView from(std::uint64_t position) const { return journal_.subspan(static_cast<std::size_t>(position)); }

  ByteView journal_;
};

template <typename Visitor>
void JournalEntries::for_each_update(const TransactionExtent& transaction, Visitor visit) const {
  for (std::uint64_t position = transaction.first_update(); position < transaction.end;
       position += update_size(position))
    visit(position);
}

}  // namespace inspect
