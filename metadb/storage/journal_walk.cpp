#include "journal_walk.h"

#include "common/errors.h"
#include "common/log.h"

namespace mdb {
namespace {

bool fits(JournalBytes journal, std::uint64_t position, std::uint64_t size) {
  return size <= journal.size() && position <= journal.size() - size;
}

JournalBytes at(JournalBytes journal, std::uint64_t position) {
  return journal.subspan(static_cast<std::size_t>(position));
}

// Size of the update entry at `position`; 0 when it crosses the journal's end.
std::uint64_t whole_update_size(JournalBytes journal, std::uint64_t position) {
  if (!fits(journal, position, format::update_entry::data))
    return 0;
  const std::uint32_t length = bytes::load_u32(at(journal, position), format::update_entry::length);
  const std::uint64_t size = format::update_entry_size(length);
  return fits(journal, position, size) ? size : 0;
}

// The magic that stands at `position`; 0 where none fits. Throws error_range at or past the journal's end.
std::uint32_t magic_at(JournalBytes journal, std::uint64_t position) {
  if (position >= journal.size())
    throw error_range("Access beyond end of journal attempted");
  return fits(journal, position, sizeof(std::uint32_t)) ? bytes::load_u32(at(journal, position), 0) : 0;
}

}  // namespace

EntryKind entry_kind(JournalBytes journal, std::uint64_t position) {
  const auto kind_if_fits = [&](EntryKind kind, std::uint64_t size) {
    return fits(journal, position, size) ? kind : EntryKind::none;
  };
  switch (magic_at(journal, position)) {
    case format::begin_entry::magic_word:
      return kind_if_fits(EntryKind::begin, format::begin_entry::size);
    case format::end_entry::magic_word:
      return kind_if_fits(EntryKind::end, format::end_entry::size);
    case format::redirection_entry::magic_word:
      return kind_if_fits(EntryKind::redirection, format::redirection_entry::size);
    case format::update_entry::magic_word:
      return whole_update_size(journal, position) != 0 ? EntryKind::update : EntryKind::none;
    default:
      return EntryKind::none;
  }
}

std::uint64_t begin_serial(JournalBytes journal, std::uint64_t position) {
  return bytes::load_u64(at(journal, position), format::begin_entry::serial);
}

std::uint32_t redirection_target(JournalBytes journal, std::uint64_t position) {
  return bytes::load_u32(at(journal, position), format::redirection_entry::jpos);
}

Update read_update(JournalBytes journal, std::uint64_t position, std::uint64_t end) {
  const auto rest = journal.first(static_cast<std::size_t>(end)).subspan(static_cast<std::size_t>(position));
  if (rest.size() < format::update_entry::data ||
      bytes::load_u32(rest, 0) != format::update_entry::magic_word) {
    throw error_io("Update entry in log changed between reads!");
  }
  const std::uint32_t length = bytes::load_u32(rest, format::update_entry::length);
  if (format::update_entry_size(length) > rest.size()) {
    throw error_io("Update entry in log changed length between reads!");
  }
  return {bytes::load_u64(rest, format::update_entry::target),
          rest.subspan(format::update_entry::data, length),
          static_cast<std::uint32_t>(position + format::update_entry::data)};
}

TransactionExtent check_transaction(JournalBytes journal, std::uint64_t begin) {
  using State = TransactionExtent::State;
  security::Crc32 crc;
  std::uint64_t position = begin;
  const auto pass = [&](std::uint64_t size) {
    crc.update(at(journal, position).first(static_cast<std::size_t>(size)));
    position += size;
  };
  pass(format::begin_entry::size);
  while (magic_at(journal, position) == format::update_entry::magic_word) {
    const std::uint64_t size = whole_update_size(journal, position);
    if (size == 0)
      break;
    pass(size);
  }
  if (entry_kind(journal, position) != EntryKind::end) {
    log(logging::information, logging::replay, "End of valid update entries in journal.");
    log(logging::information, logging::replay, "End of valid transaction end entries in journal.");
    return {State::no_end, begin, position};
  }
  if (crc.value() != bytes::load_u32(at(journal, position), format::end_entry::crc)) {
    log(logging::information, logging::replay, "Invalid CRC in transaction - no more valid entries.");
    return {State::bad_checksum, begin, position};
  }
  return {State::complete, begin, position};
}

}  // namespace mdb
