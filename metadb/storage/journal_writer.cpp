#include "journal_writer.h"

#include "common/errors.h"
#include "common/text.h"
#include "journal_meters.h"
#include "metadb/storage/mapped_journal.h"

namespace mdb {
namespace {

format::JournalGeometry geometry() {
  return {journal_bytes().size()};
}

std::span<std::byte> checked_range(std::uint64_t position, std::uint64_t size) {
  const auto journal = journal_bytes();
  if (size > journal.size() || position > journal.size() - size) {
    throw error_range("Access beyond end of journal attempted");
  }
  journal_mark_written();
  return journal.subspan(static_cast<std::size_t>(position), static_cast<std::size_t>(size));
}

}  // namespace

std::uint32_t JournalWriter::free() const {
  const auto halves = geometry();
  // The first half of a tiny journal is past its end from the first entry on.
  const bool is_in_first = position_ < halves.half_end(0) || position_ == halves.first_entry(0);
  if (half_ == 0 ? !is_in_first : position_ < halves.half_start(1)) {
    throw error_internal(text::concat("Writing in wrong half of journal (pos=", position_, ")"));
  }
  const std::uint64_t limit = halves.writable_limit(half_);
  return position_ >= limit ? 0 : static_cast<std::uint32_t>(limit - position_);
}

void JournalWriter::resume(std::uint64_t serial, unsigned half) {
  serial_ = serial;
  half_ = half;
}

void JournalWriter::enter_other_half() {
  const unsigned next = 1 - half_;
  const std::uint64_t first_entry = geometry().first_entry(next);
  const auto header = checked_range(0, format::journal_header_size);
  format::store_index_pointer(header, next, {serial_ + 1, static_cast<std::uint32_t>(first_entry)});
  half_ = next;
  serial_ += 1;
  position_ = first_entry;
}

bool JournalWriter::strike_out_stale_begins() {
  const auto halves = geometry();
  const auto journal = journal_bytes();
  const unsigned next = 1 - half_;
  bool struck = false;
  for (std::uint64_t at = halves.first_entry(next); at + format::begin_entry::size <= halves.half_end(next);
       at += format::entry_alignment) {
    const auto entry = journal.subspan(static_cast<std::size_t>(at), format::begin_entry::size);
    if (bytes::load_u32(entry, 0) != format::begin_entry::magic_word)
      continue;
    if (bytes::load_u64(entry, format::begin_entry::serial) != serial_ + 1)
      continue;
    std::ranges::fill(entry, std::byte{0});
    struck = true;
  }
  if (struck)
    journal_mark_written();
  return struck;
}

std::span<std::byte> JournalWriter::claim(std::uint64_t size) {
  const auto entry = checked_range(position_, size);
  position_ += size;
  journal_meters::bytes.increment(size);
  return entry;
}

void JournalWriter::write_begin() {
  const auto entry = claim(format::begin_entry::size);
  bytes::store_u32(entry, 0, format::begin_entry::magic_word);
  bytes::store_u64(entry, format::begin_entry::serial, serial_);
}

std::uint32_t JournalWriter::write_update(std::span<const std::byte> data, std::uint64_t target) {
  const std::uint64_t start = position_;
  const auto entry = claim(format::update_entry_size(data.size()));
  bytes::store_u32(entry, 0, format::update_entry::magic_word);
  bytes::store_u32(entry, format::update_entry::length, static_cast<std::uint32_t>(data.size()));
  bytes::store_u64(entry, format::update_entry::target, target);
  bytes::store_u32(entry, format::update_entry::zero, 0);
  std::ranges::copy(data, entry.begin() + format::update_entry::data);
  return static_cast<std::uint32_t>(start + format::update_entry::data);
}

void JournalWriter::write_end(std::uint32_t crc) {
  const auto entry = claim(format::end_entry::size);
  bytes::store_u32(entry, 0, format::end_entry::magic_word);
  bytes::store_u32(entry, format::end_entry::crc, crc);
}

void JournalWriter::write_redirection() {
  const auto entry = checked_range(position_, format::redirection_entry::size);
  journal_meters::bytes.increment(format::redirection_entry::size);
  bytes::store_u32(entry, 0, format::redirection_entry::magic_word);
  bytes::store_u32(entry, format::redirection_entry::jpos,
                   static_cast<std::uint32_t>(geometry().first_entry(1 - half_)));
}

void JournalWriter::write_raw(std::span<const std::byte> entries) {
  std::ranges::copy(entries, claim(entries.size()).begin());
}

void JournalWriter::move_back(std::uint64_t position) {
  position_ = position;
}

void JournalWriter::move_back_and_erase(std::uint64_t position) {
  std::ranges::fill(checked_range(position, position_ - position), std::byte{0});
  position_ = position;
}

std::span<const std::byte> JournalWriter::written_since(std::uint64_t position) const {
  return journal_bytes().subspan(static_cast<std::size_t>(position),
                                 static_cast<std::size_t>(position_ - position));
}

}  // namespace mdb
