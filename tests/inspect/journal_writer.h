// Writes entries into the bytes of a journal, as the library would or as no library does.

#pragma once

#include "common/crc32.h"
#include "metadb/storage/journal_format.h"
#include "pair_fixture.h"

namespace inspect_test {

inline constexpr std::uint64_t some_data = 60 * block_size;  // an empty block

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

class JournalWriter {
 public:
  // Begins at the first entry of the newest half.
  explicit JournalWriter(FileBytes& journal)
      : JournalWriter(journal, newest_half(journal),
                      bytes::load_u64(journal, pointer_of(newest_half(journal)))) {}
  JournalWriter(FileBytes& journal, unsigned half, std::uint64_t used_serial)
      : serial(used_serial), journal_(journal), position_(half_start(journal, half)), begin_(position_) {}

  std::uint64_t position() const { return position_; }

  JournalWriter& begin() {
    begin_ = position_;
    return put(bytes::magic("TBEG")).put(0).put64(serial);
  }
  JournalWriter& update(std::uint64_t target = some_data, std::uint32_t value = 0,
                        std::uint32_t reserved = 0) {
    return put(bytes::magic("TUPD")).put(4).put64(target).put(reserved).put(value);
  }
  JournalWriter& end() {
    const auto covered = std::span(journal_).subspan(begin_, position_ - begin_);
    return put(bytes::magic("TEND")).put(security::crc32(covered));
  }
  JournalWriter& redirect(std::uint64_t target) {
    return put(bytes::magic("TRED")).put(static_cast<std::uint32_t>(target));
  }
  JournalWriter& transaction(std::uint64_t target = some_data, std::uint32_t value = 0) {
    return begin().update(target, value).end();
  }
  // Breaks the value of the only update of the transaction that was ended last.
  JournalWriter& tear() {
    journal_[position_ - 12] ^= std::byte{1};
    return *this;
  }

  std::uint64_t serial;

 private:
  JournalWriter& put(std::uint32_t value) {
    set_word(journal_, position_, value);
    position_ += 4;
    return *this;
  }
  JournalWriter& put64(std::uint64_t value) {
    return put(static_cast<std::uint32_t>(value >> 32)).put(static_cast<std::uint32_t>(value));
  }

  FileBytes& journal_;
  std::uint64_t position_;
  std::uint64_t begin_;
};

}  // namespace inspect_test
