#include "checksums.h"

#include <algorithm>
#include <iterator>
#include <random>

#include "common/bytes.h"
#include "common/crc32.h"
#include "metadb/storage/journal_format.h"
#include "metadb/storage/mdb_format.h"
#include "timeseries/chain_kind.h"
#include "timeseries/format.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace fuzz {
namespace {

namespace begin_entry = mdb::format::begin_entry;
namespace update_entry = mdb::format::update_entry;
namespace end_entry = mdb::format::end_entry;

// The words that sizes, numbers and places are most easily mistaken about.
constexpr std::uint32_t words[] = {0, 1,   2,           3,           4,           7,
                                   8, 255, 0x7FFF'FFFF, 0x8000'0000, 0xFFFF'FFF8, 0xFFFF'FFFF};

// The position behind the transaction that begins at `begin`, whose end entry now fits it.
std::size_t fit_transaction(std::span<std::byte> journal, std::size_t begin) {
  std::size_t position = begin + begin_entry::size;
  while (position + update_entry::data <= journal.size() &&
         bytes::load_u32(journal, position) == update_entry::magic_word) {
    position += mdb::format::update_entry_size(bytes::load_u32(journal, position + update_entry::length));
  }
  if (position + end_entry::size > journal.size() ||
      bytes::load_u32(journal, position) != end_entry::magic_word)
    return begin + mdb::format::entry_alignment;
  bytes::store_u32(journal, position + end_entry::crc,
                   security::crc32(journal.subspan(begin, position - begin)));
  return position + end_entry::size;
}

// A word at a place where structure is likely: the start of the file or of a small block, or anywhere.
void set_some_word(std::span<std::byte> file, std::minstd_rand& random) {
  constexpr std::size_t spacing = 128;
  std::size_t offset = random() % file.size();
  if (random() % 2 == 0)
    offset = offset / spacing * spacing + random() % 12 * 4;
  offset = std::min(offset / 4 * 4, file.size() - 4);
  switch (random() % 4) {
    case 0:
      return bytes::store_u32(file, offset, static_cast<std::uint32_t>(random() % 256));
    case 1:
      return bytes::store_u32(file, offset, bytes::load_u32(file, random() % (file.size() / 4) * 4));
    case 2:
      return bytes::store_u32(file, offset, bytes::load_u32(file, offset) + (random() % 2 == 0 ? 1 : ~0U));
    default:
      return bytes::store_u32(file, offset, words[random() % std::size(words)]);
  }
}

}  // namespace

void fit_journal(std::span<std::byte> journal) {
  if (journal.size() < mdb::format::journal_header_size)
    return;
  for (const unsigned half : {0U, 1U})
    mdb::format::store_index_pointer(journal, half, mdb::format::load_index_pointer(journal, half));
  std::size_t position = mdb::format::journal_header_size;
  while (position + begin_entry::size <= journal.size()) {
    position = bytes::load_u32(journal, position) == begin_entry::magic_word
                   ? fit_transaction(journal, position)
                   : position + mdb::format::entry_alignment;
  }
}

void fit_mdb(std::span<std::byte> file) {
  namespace header = mdb::format::header;
  if (file.size() < header::size || bytes::load_u32(file, header::journal_type) != header::type_internal)
    return;
  const std::uint64_t begin = std::uint64_t{bytes::load_u32(file, header::block_size)} *
                              bytes::load_u32(file, header::journal_first_block);
  if (begin < file.size())
    fit_journal(file.subspan(static_cast<std::size_t>(begin)));
}

void fit_tsdb(std::span<std::byte> file) {
  namespace header = tsdb::format::header;
  namespace entry = tsdb::format::chain_entry;
  if (file.size() < header::chain_table)
    return;
  std::uint64_t lines =
      std::uint64_t{tsdb::chain_traits.size()} * bytes::load_u32(file, header::chain_set_count);
  for (auto rest = file.subspan(header::chain_table); lines > 0 && rest.size() >= entry::size; --lines) {
    bytes::store_u32(rest, entry::crc, security::crc32(rest.first(entry::crc)));
    rest = rest.subspan(entry::size);
  }
}

std::size_t mutate(std::uint8_t* data, std::size_t size, std::size_t max_size, unsigned seed, Fit fit) {
  std::minstd_rand random(seed);
  if (size < 4 || random() % 3 == 0) {
    size = LLVMFuzzerMutate(data, size, max_size);
  } else {
    for (auto count = 1 + random() % 3; count > 0; --count)
      set_some_word(std::as_writable_bytes(std::span(data, size)), random);
  }
  if (random() % 2 == 0)
    fit(std::as_writable_bytes(std::span(data, size)));
  return size;
}

}  // namespace fuzz
