#include "journal_entries.h"

#include "metadb/storage/journal_format.h"

namespace inspect {

namespace format = mdb::format;

std::uint64_t TransactionExtent::first_update() const {
  return begin + format::begin_entry::size;
}

std::uint64_t TransactionExtent::next() const {
  return end + format::end_entry::size;
}

EntryKind JournalEntries::kind_at(std::uint64_t position) const {
  if (!fits(position, sizeof(std::uint32_t)))
    return EntryKind::none;
  const auto if_fits = [&](EntryKind kind, std::uint64_t size) {
    return fits(position, size) ? kind : EntryKind::none;
  };
  switch (bytes::load_u32(from(position), 0)) {
    case format::begin_entry::magic_word:
      return if_fits(EntryKind::begin, format::begin_entry::size);
    case format::end_entry::magic_word:
      return if_fits(EntryKind::end, format::end_entry::size);
    case format::redirection_entry::magic_word:
      return if_fits(EntryKind::redirection, format::redirection_entry::size);
    case format::update_entry::magic_word:
      if (!fits(position, format::update_entry::data))
        return EntryKind::none;
      return if_fits(EntryKind::update, update_size(position));
    default:
      return EntryKind::none;
  }
}

std::uint64_t JournalEntries::begin_serial(std::uint64_t position) const {
  return bytes::load_u64(from(position), format::begin_entry::serial);
}

std::uint32_t JournalEntries::redirection_target(std::uint64_t position) const {
  return bytes::load_u32(from(position), format::redirection_entry::jpos);
}

std::uint64_t JournalEntries::update_size(std::uint64_t position) const {
  return format::update_entry_size(bytes::load_u32(from(position), format::update_entry::length));
}

Update JournalEntries::update_at(std::uint64_t position) const {
  return {bytes::load_u64(from(position), format::update_entry::target),
          static_cast<std::uint32_t>(position + format::update_entry::data),
          bytes::load_u32(from(position), format::update_entry::length)};
}

std::uint32_t JournalEntries::update_reserved(std::uint64_t position) const {
  return bytes::load_u32(from(position), format::update_entry::zero);
}

TransactionExtent JournalEntries::transaction_at(std::uint64_t begin) const {
  using State = TransactionExtent::State;
  TransactionExtent extent{State::complete, begin, begin + format::begin_entry::size, 0};
  while (kind_at(extent.end) == EntryKind::update) {
    extent.end += update_size(extent.end);
    extent.update_count += 1;
  }
  if (kind_at(extent.end) != EntryKind::end) {
    extent.state = extent.update_count == 0 ? State::without_updates_or_end : State::without_end;
    return extent;
  }
  const auto covered = from(begin).first(static_cast<std::size_t>(extent.end - begin));
  if (security::crc32(covered) != bytes::load_u32(from(extent.end), format::end_entry::crc))
    extent.state = State::bad_crc;
  return extent;
}

}  // namespace inspect
