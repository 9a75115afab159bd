// Writes entries into the bytes of a journal, as the library would or as no library does.

#pragma once

#include "common/crc32.h"
#include "metadb/storage/journal_format.h"
#include "pair_fixture.h"

namespace inspect_test {

inline std::uint64_t pointer_of(unsigned half) {
  return 16 + 16 * std::uint64_t{half};
}

// Begins at the first entry of the half that is read first, with the serial that its pointer has.
class JournalWriter {
 public:
  explicit JournalWriter(FileBytes& bytes) : journal(bytes), half(serial_of(1) > serial_of(0) ? 1 : 0) {}

  std::uint64_t serial_of(unsigned of_half) const { return bytes::load_u64(journal, pointer_of(of_half)); }
  std::uint64_t start_of(unsigned of_half) const {
    return mdb::format::JournalGeometry{journal.size()}.first_entry(of_half);
  }

  // Goes on in that half, whatever its pointer says.
  JournalWriter& enter(unsigned other, std::uint64_t other_serial) {
    half = other;
    serial = other_serial;
    position = start_of(half);
    return *this;
  }
  JournalWriter& write_pointer() {
    write_all(journal, with_crc(pointer_of(half), serial, static_cast<std::uint32_t>(position)));
    return *this;
  }
  JournalWriter& lose_pointer(unsigned of_half) {
    journal[pointer_of(of_half) + 12] ^= std::byte{1};
    return *this;
  }

  JournalWriter& go_on_with(std::uint64_t other_serial) {
    serial = other_serial;
    return *this;
  }
  JournalWriter& begin() {
    begin_ = position;
    return put("TBEG").put(0).put(serial, 8);
  }
  JournalWriter& update(std::uint32_t value = 0, std::uint64_t target = some_data, std::uint32_t reserved = 0,
                        std::uint32_t length = 4) {
    return put("TUPD").put(length).put(target, 8).put(reserved).put(value);
  }
  JournalWriter& end() {
    return put("TEND").put(security::crc32(std::span(journal).subspan(begin_, position - 4 - begin_)));
  }
  JournalWriter& redirect(std::uint64_t target) { return put("TRED").put(target); }
  JournalWriter& transaction(std::uint32_t value = 0, std::uint64_t target = some_data) {
    return begin().update(value, target).end();
  }
  // Breaks the value of the only update of the transaction that was ended last.
  JournalWriter& tear() {
    journal[position - 12] ^= std::byte{1};
    return *this;
  }

  FileBytes& journal;
  unsigned half;
  std::uint64_t serial = serial_of(half);
  std::uint64_t position = start_of(half);

 private:
  JournalWriter& put(std::uint64_t value, unsigned size = 4) {
    write_all(journal, {{position, value, size}});
    position += size;
    return *this;
  }
  JournalWriter& put(const char (&magic)[5]) { return put(bytes::magic(magic)); }

  std::uint64_t begin_ = 0;
};

}  // namespace inspect_test
