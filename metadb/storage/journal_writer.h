// Where the next entry goes, and the writing of entries.

#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "common/crc32.h"
#include "metadb/storage/journal_format.h"

namespace mdb {

// The writer of one mapped journal. Each write begins at position() and advances it by the entry's size;
// the "bytes" meter counts it. Throws error_range for an entry past the journal's end.
//
// Entries are gathered in memory, and reach the journal in large pieces, at the end of their transaction at
// the latest: nobody but their own transaction reads them before. An entry too long for that is stored in
// place.
class JournalWriter {
 public:
  // Half 0 or 1: the one that is being written.
  unsigned half() const { return half_; }
  std::uint64_t serial() const { return serial_; }
  std::uint64_t position() const { return position_; }

  // Bytes below the half's limit; 0 past it. Throws error_internal for a position in the other half.
  std::uint32_t free() const;

  // Stands where recovery ended: the next flip leaves `half` and raises `serial` by one. Looks through the
  // whole journal, so that a flip has to only where something was found.
  void resume(std::uint64_t serial, unsigned half);
  // Continues at the first entry of the other half under the next serial, and writes its index pointer.
  void enter_other_half();
  // Strikes out what would read as a transaction of the next serial in the other half; true if anything was.
  bool strike_out_stale_begins();

  // Starts a transaction, and its checksum.
  void write_begin();
  // Returns the position of the data within the journal.
  std::uint32_t write_update(std::span<const std::byte> data, std::uint64_t target);
  // Brings the whole transaction into the journal. What fails leaves position() as it was before the call.
  void write_end();
  // Points to the first entry of the other half; the position does not advance.
  void write_redirection();
  // Writes entries that are already in their stored form.
  void write_raw(std::span<const std::byte> entries);

  // Gives back everything from `position` on; the second form leaves zeros there, unless the journal has
  // failed.
  void move_back(std::uint64_t position);
  void move_back_and_erase(std::uint64_t position);

  // Written bytes, of one entry or all of them gathered. Valid until the next write. What is no longer among
  // the gathered bytes is looked up in the journal.
  std::span<const std::byte> written(std::uint64_t position, std::uint64_t length) const;
  // The entries from `position` to position(), as the journal has them.
  std::span<const std::byte> whole_entries_since(std::uint64_t position);

 private:
  std::span<std::byte> claim(std::uint64_t size);
  // Bytes of the entry claimed last that no entry writes: what stands in the journal stays. Empty when the
  // entry stands there itself.
  std::span<const std::byte> unwritten(std::size_t entry_size, std::size_t from, std::size_t length) const;
  // Brings what is gathered into the journal.
  void flush();
  // Starts the checksum of a transaction that begins at position(), and brings it up to position().
  void start_sum();
  void sum_up();
  // The checksum goes back with the position.
  void return_to(std::uint64_t position);
  void forget_gathered();
  // Takes note when written bytes could be read as a begin entry.
  void look_for_begins(std::span<const std::byte> entries);

  unsigned half_ = 0;
  std::uint64_t serial_ = 0;
  std::uint64_t position_ = 0;
  // The checksum of the transaction's bytes up to a position. It lags behind, as one pass over what is
  // gathered costs less than one for each entry.
  security::Crc32 sum_;
  std::uint64_t begin_ = 0;
  std::uint64_t summed_to_ = 0;
  // Whether bytes in a half, of whatever origin, may read as a begin entry of a serial yet to come. Data is
  // looked at while it is written, as it is in the processor's cache then.
  std::array<bool, 2> may_hold_stale_begins_ = {true, true};
  // The last bytes that were written, and where in the journal they belong. They stay to be looked at, in the
  // processor's cache as they are, until others are gathered.
  std::vector<std::byte> gathered_;
  std::size_t gathered_bytes_ = 0;
  std::uint64_t gathered_from_ = 0;
  bool is_flushed_ = true;  // the journal has them
};

}  // namespace mdb
