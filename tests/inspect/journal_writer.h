// Writes entries into the bytes of a journal, as the library would or as no library does.

#pragma once

#include "common/crc32.h"
#include "metadb/storage/journal_format.h"
#include "pair_fixture.h"

namespace inspect_test {

inline std::uint64_t pointer_of(unsigned half) {
  return 16 + 16 * std::uint64_t{half};
}
// The half that is read first. REQUIRES: both pointers are readable.
inline unsigned newest_half(const FileBytes& journal) {
  return bytes::load_u64(journal, pointer_of(1)) > bytes::load_u64(journal, pointer_of(0)) ? 1 : 0;
}
inline std::uint64_t half_start(const FileBytes& journal, unsigned half) {
  return mdb::format::JournalGeometry{journal.size()}.first_entry(half);
}

// Begins at the first entry of a half, with the serial that its pointer has.
class JournalWriter {
 public:
  explicit JournalWriter(FileBytes& journal) : JournalWriter(journal, newest_half(journal)) {}
  JournalWriter(FileBytes& journal, unsigned half)
      : serial(bytes::load_u64(journal, pointer_of(half))),
        position(half_start(journal, half)),
        journal_(journal) {}

  JournalWriter& begin() {
    begin_ = position;
    return put("TBEG").put(0).put(serial, 8);
  }
  JournalWriter& update(std::uint64_t target = some_data, std::uint32_t value = 0,
                        std::uint32_t reserved = 0) {
    return put("TUPD").put(4).put(target, 8).put(reserved).put(value);
  }
  JournalWriter& end() {
    const std::uint32_t crc = security::crc32(std::span(journal_).subspan(begin_, position - begin_));
    return put("TEND").put(crc);
  }
  JournalWriter& redirect(std::uint64_t target) { return put("TRED").put(target); }
  JournalWriter& transaction(std::uint64_t target = some_data, std::uint32_t value = 0) {
    return begin().update(target, value).end();
  }
  // Breaks the value of the only update of the transaction that was ended last.
  JournalWriter& tear() {
    journal_[position - 12] ^= std::byte{1};
    return *this;
  }

  std::uint64_t serial;
  std::uint64_t position;

 private:
  JournalWriter& put(std::uint64_t value, unsigned size = 4) {
    write_all(journal_, {{position, value, size}});
    position += size;
    return *this;
  }
  JournalWriter& put(const char (&magic)[5]) { return put(bytes::magic(magic)); }

  FileBytes& journal_;
  std::uint64_t begin_ = 0;
};

}  // namespace inspect_test
