#include "journal_writer.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "common/errors.h"
#include "common/text.h"
#include "journal_meters.h"
#include "metadb/storage/mapped_journal.h"

namespace mdb {
namespace {

format::JournalGeometry geometry() {
  return {journal_bytes().size()};
}

// What is gathered before it is written, so that a large transaction takes no memory of its size.
constexpr std::size_t gathered_limit = std::size_t{256} << 10;

// How much is searched between two calls of the system: few calls, and it stays in the processor's cache.
constexpr std::size_t searched_at_once = std::size_t{256} << 10;
static_assert(searched_at_once % format::entry_alignment == 0);

void check_range(std::uint64_t position, std::uint64_t size) {
  const std::size_t length = journal_bytes().size();
  if (size > length || position > length - size)
    throw error_range("Access beyond end of journal attempted");
}

std::span<std::byte> checked_range(std::uint64_t position, std::uint64_t size) {
  check_range(position, size);
  return journal_bytes_to_change().subspan(static_cast<std::size_t>(position),
                                           static_cast<std::size_t>(size));
}

// The place of the first begin entry's magic from `at` on, at the distance of whole entries; `end` if there
// is none. The compiler makes vector instructions of the inner loop.
std::size_t find_begin(std::span<const std::byte> entries, std::size_t at, std::size_t end) {
  constexpr std::size_t words_at_once = 64;
  std::uint32_t pattern = 0;
  bytes::store_u32(std::as_writable_bytes(std::span(&pattern, 1)), 0, format::begin_entry::magic_word);
  while (at + words_at_once * sizeof pattern <= end) {
    std::uint32_t found = 0;
    for (std::size_t i = 0; i < words_at_once; ++i) {
      std::uint32_t word;
      std::memcpy(&word, &entries[at + i * sizeof word], sizeof word);
      found += word == pattern ? 1U : 0U;
    }
    if (found != 0)
      break;
    at += words_at_once * sizeof pattern;
  }
  while (at < end && bytes::load_u32(entries, at) != format::begin_entry::magic_word)
    at += format::entry_alignment;
  return std::min(at, end);
}

// Calls `visit(position, serial)` for whatever in a half reads as a whole begin entry. (One that reaches into
// the second half's first entry would have its magic in the serial, which no serial reaches.)
template <typename Visitor>
void for_each_begin(unsigned half, Visitor visit) {
  const auto halves = geometry();
  const std::uint64_t end = half == 0 ? halves.first_entry(1) : halves.half_end(1);
  std::vector<std::byte> piece;
  for (std::uint64_t from = halves.first_entry(half); from + format::begin_entry::size <= end;
       from += searched_at_once) {
    // With as much of the next piece as an entry in the last place of this one takes.
    const std::uint64_t wanted = searched_at_once + format::begin_entry::size - format::entry_alignment;
    piece.resize(static_cast<std::size_t>(std::min(end - from, wanted)));
    journal_read(from, piece);
    const std::size_t places_end = piece.size() - format::begin_entry::size + 1;
    for (std::size_t at = find_begin(piece, 0, places_end); at < places_end;
         at = find_begin(piece, at + format::entry_alignment, places_end)) {
      visit(from + at, bytes::load_u64(piece, at + format::begin_entry::serial));
    }
  }
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
  for (const unsigned each : {0U, 1U}) {
    may_hold_stale_begins_[each] = false;
    for_each_begin(
        each, [&](std::uint64_t, std::uint64_t found) { may_hold_stale_begins_[each] |= found > serial; });
  }
}

void JournalWriter::enter_other_half() {
  const unsigned next = 1 - half_;
  const std::uint64_t first_entry = geometry().first_entry(next);
  check_range(0, format::journal_header_size);
  std::array<std::byte, format::journal_header_size> header;
  bytes::copy(journal_bytes().first(header.size()), header);
  format::store_index_pointer(header, next, {serial_ + 1, static_cast<std::uint32_t>(first_entry)});
  journal_write(0, header);
  half_ = next;
  serial_ += 1;
  position_ = first_entry;
  start_sum();
}

bool JournalWriter::strike_out_stale_begins() {
  const unsigned next = 1 - half_;
  if (!may_hold_stale_begins_[next])
    return false;
  bool struck = false;
  bool left = false;
  for_each_begin(next, [&](std::uint64_t position, std::uint64_t serial) {
    left |= serial > serial_ + 1;
    if (serial != serial_ + 1)
      return;
    std::ranges::fill(checked_range(position, format::begin_entry::size), std::byte{0});
    struck = true;
  });
  may_hold_stale_begins_[next] = left;
  return struck;
}

std::span<std::byte> JournalWriter::claim(std::uint64_t size) {
  check_range(position_, size);
  if (!is_flushed_ && gathered_bytes_ + size > gathered_limit) {
    sum_up();
    flush();
  }
  journal_meters::bytes.increment(size);
  if (size > gathered_limit) {
    forget_gathered();
    position_ += size;
    return checked_range(position_ - size, size);
  }
  const std::size_t unflushed_bytes = is_flushed_ ? 0 : gathered_bytes_;
  if (unflushed_bytes + size > gathered_.size())
    gathered_.resize(unflushed_bytes + size);
  if (is_flushed_) {
    gathered_from_ = position_;
    gathered_bytes_ = 0;
    is_flushed_ = false;
  }
  const auto entry = std::span(gathered_).subspan(gathered_bytes_, static_cast<std::size_t>(size));
  gathered_bytes_ += entry.size();
  position_ += size;
  return entry;
}

std::span<const std::byte> JournalWriter::unwritten(std::size_t entry_size, std::size_t from,
                                                    std::size_t length) const {
  if (entry_size > gathered_limit)
    return {};  // the entry is written in place
  return journal_bytes().subspan(static_cast<std::size_t>(position_) - entry_size + from, length);
}

void JournalWriter::flush() {
  if (is_flushed_)
    return;
  journal_write(gathered_from_, std::span(gathered_).first(gathered_bytes_));
  is_flushed_ = true;
}

void JournalWriter::start_sum() {
  sum_.reset();
  begin_ = summed_to_ = position_;
}

void JournalWriter::sum_up() {
  const std::uint64_t from = gathered_bytes_ == 0 ? position_ : std::max(summed_to_, gathered_from_);
  const auto flushed = journal_bytes().first(static_cast<std::size_t>(from));
  sum_.update(flushed.subspan(static_cast<std::size_t>(summed_to_)));
  sum_.update(written(from, position_ - from));
  summed_to_ = position_;
}

void JournalWriter::return_to(std::uint64_t position) {
  position_ = position;
  if (position_ >= summed_to_)
    return;
  sum_.reset();
  summed_to_ = begin_;
}

void JournalWriter::forget_gathered() {
  gathered_bytes_ = 0;
  is_flushed_ = true;
}

void JournalWriter::look_for_begins(std::span<const std::byte> entries) {
  if (find_begin(entries, 0, entries.size()) < entries.size())
    may_hold_stale_begins_[half_] = true;
}

void JournalWriter::write_begin() {
  start_sum();
  const auto entry = claim(format::begin_entry::size);
  constexpr std::size_t kept_size = format::begin_entry::serial - format::begin_entry::unwritten;
  bytes::copy(unwritten(entry.size(), format::begin_entry::unwritten, kept_size),
              entry.subspan(format::begin_entry::unwritten));
  bytes::store_u32(entry, 0, format::begin_entry::magic_word);
  bytes::store_u64(entry, format::begin_entry::serial, serial_);
}

std::uint32_t JournalWriter::write_update(std::span<const std::byte> data, std::uint64_t target) {
  const std::uint64_t start = position_;
  const auto entry = claim(format::update_entry_size(data.size()));
  const std::size_t data_end = format::update_entry::data + data.size();
  const auto padding = unwritten(entry.size(), data_end, entry.size() - data_end);
  __builtin_prefetch(padding.data());  // nobody has looked there for a whole round of the journal
  bytes::store_u32(entry, 0, format::update_entry::magic_word);
  bytes::store_u32(entry, format::update_entry::length, static_cast<std::uint32_t>(data.size()));
  bytes::store_u64(entry, format::update_entry::target, target);
  bytes::store_u32(entry, format::update_entry::zero, 0);
  bytes::copy(data, entry.subspan(format::update_entry::data));
  bytes::copy(padding, entry.subspan(data_end));
  look_for_begins(entry);
  return static_cast<std::uint32_t>(start + format::update_entry::data);
}

void JournalWriter::write_end() {
  sum_up();
  const auto entry = claim(format::end_entry::size);
  bytes::store_u32(entry, 0, format::end_entry::magic_word);
  bytes::store_u32(entry, format::end_entry::crc, sum_.value());
  try {
    flush();
  } catch (...) {
    gathered_bytes_ -= entry.size();
    position_ -= entry.size();
    throw;
  }
}

void JournalWriter::write_redirection() {
  check_range(position_, format::redirection_entry::size);
  journal_meters::bytes.increment(format::redirection_entry::size);
  std::array<std::byte, format::redirection_entry::size> entry;
  bytes::store_u32(entry, 0, format::redirection_entry::magic_word);
  bytes::store_u32(entry, format::redirection_entry::jpos,
                   static_cast<std::uint32_t>(geometry().first_entry(1 - half_)));
  journal_write(position_, entry);
}

void JournalWriter::write_raw(std::span<const std::byte> entries) {
  const auto copy = claim(entries.size());
  bytes::copy(entries, copy);
  look_for_begins(copy);
}

void JournalWriter::move_back(std::uint64_t position) {
  if (!journal_has_failed())
    flush();
  forget_gathered();
  return_to(position);
}

void JournalWriter::move_back_and_erase(std::uint64_t position) {
  if (position <= gathered_from_) {
    forget_gathered();
  } else {
    gathered_bytes_ = std::min(gathered_bytes_, static_cast<std::size_t>(position - gathered_from_));
  }
  if (!journal_has_failed())
    std::ranges::fill(checked_range(position, position_ - position), std::byte{0});
  return_to(position);
}

std::span<const std::byte> JournalWriter::written(std::uint64_t position, std::uint64_t length) const {
  const auto count = static_cast<std::size_t>(length);
  if (position >= gathered_from_ && position - gathered_from_ + length <= gathered_bytes_)
    return std::span(gathered_).subspan(static_cast<std::size_t>(position - gathered_from_), count);
  return journal_bytes().subspan(static_cast<std::size_t>(position), count);
}

std::span<const std::byte> JournalWriter::whole_entries_since(std::uint64_t position) {
  flush();
  return journal_bytes().subspan(static_cast<std::size_t>(position),
                                 static_cast<std::size_t>(position_ - position));
}

}  // namespace mdb
