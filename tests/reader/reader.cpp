#include "reader.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace reader {
namespace {

void require(bool condition, const std::string& what, std::uint64_t where = 0) {
  if (!condition)
    throw std::runtime_error(what + ' ' + std::to_string(where));
}

Span part(Span bytes, std::uint64_t offset, std::uint64_t length) {
  require(offset <= bytes.size() && length <= bytes.size() - offset, "too few bytes from", offset);
  return bytes.subspan(offset, length);
}

std::uint64_t u64_at(Span bytes, std::uint64_t offset) {
  return std::uint64_t{u32_at(bytes, offset)} << 32 | u32_at(bytes, offset + 4);
}

std::string text_at(Span bytes, std::uint64_t offset, std::uint64_t length) {
  const Span found = part(bytes, offset, length);
  return std::string(found.begin(), found.end());
}

std::uint32_t crc32(Span bytes) {
  std::uint32_t state = 0xFFFFFFFF;
  for (const std::uint8_t byte : bytes) {
    state ^= byte;
    for (int bit = 0; bit < 8; ++bit)
      state = (state >> 1) ^ ((state & 1) != 0 ? 0xEDB88320 : 0);
  }
  return ~state;
}

std::uint64_t padded(std::uint64_t length) {
  return (length + 7) / 8 * 8;
}

constexpr const char* chain_magics[] = {"HEAD", "TAIL", "LBAL", "CHCK"};
constexpr std::uint32_t entry_widths[] = {4, 4, 16, 8};
constexpr std::uint32_t chain_block_header = 16;

constexpr std::uint32_t class_used = 1;
constexpr std::uint32_t class_root = 4;
constexpr std::uint32_t class_leaf = 6;

constexpr std::uint32_t type_text = 3;
const std::map<std::uint32_t, std::uint32_t> value_lengths = {{1, 4}, {4, 8}, {5, 4}, {6, 1}, {9, 4}};

std::string describe_value(std::uint32_t type, Span value) {
  const auto end = std::find(value.begin(), value.end(), 0);
  if (type == type_text)
    return std::string(value.begin(), end);
  std::string hex;
  for (const std::uint8_t byte : part(value, 0, value_lengths.at(type)))
    hex += {"0123456789abcdef"[byte / 16], "0123456789abcdef"[byte % 16]};
  return hex;
}

std::string describe_record(Span record) {
  std::ostringstream text;
  for (std::uint64_t at = 0; at < record.size();) {
    const std::uint32_t type = u32_at(record, at + 8);
    const std::uint32_t length = u32_at(record, at + 4);
    const std::string value = describe_value(type, part(record, at + 12, length - 12));
    const std::uint64_t value_length = type == type_text ? value.size() + 1 : value_lengths.at(type);
    require(length == padded(12 + value_length), "length of the property at", at);
    text << u32_at(record, at) << '/' << type << '=' << value << ' ';
    at += length;
  }
  return text.str();
}

}  // namespace

Bytes read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  require(file.is_open(), "no file " + path);
  std::ostringstream contents;
  contents << file.rdbuf();
  const auto view = contents.view();
  return Bytes(view.begin(), view.end());
}

bool all_zero(Span bytes) {
  return std::ranges::count(bytes, 0) == std::ssize(bytes);
}

std::uint32_t u32_at(Span bytes, std::uint64_t offset) {
  const Span word = part(bytes, offset, 4);
  return std::uint32_t{word[0]} << 24 | std::uint32_t{word[1]} << 16 | std::uint32_t{word[2]} << 8 | word[3];
}

Tsdb::Tsdb(Bytes bytes)
    : file(std::move(bytes)),
      block_size(u32_at(file, 8)),
      creation_time(u32_at(file, 16)),
      set_count(u32_at(file, 20)) {
  require(text_at(file, 0, 4) == "TSDB" && u32_at(file, 4) == 1 && u32_at(file, 12) == 0, "the header");
}

std::uint32_t Tsdb::capacity(Kind kind) const {
  return (block_size - chain_block_header) / entry_widths[kind];
}

Chain Tsdb::chain(Kind kind, std::uint32_t set) const {
  const Span entry = part(file, 24 + 16 * (std::uint64_t{kind} * set_count + set), 16);
  if (u32_at(entry, 12) != crc32(entry.first(12)))
    return {};
  Chain found = {u64_at(entry, 0)};
  std::uint32_t next_in_run = 0;
  const std::uint32_t width = entry_widths[kind];
  for (std::uint32_t number = u32_at(entry, 8); number != 0;) {
    const Span block = part(file, std::uint64_t{number} * block_size, block_size);
    require(text_at(block, 0, 4) == chain_magics[kind], "magic of block", number);
    require(u32_at(block, 8) == set, "chain set of block", number);
    const std::uint32_t number_in_run = u32_at(block, 12);
    require(number_in_run == 0 || number_in_run == next_in_run, "number in its run of block", number);
    next_in_run = number_in_run + 1;
    found.run_count += number_in_run == 0 ? 1 : 0;
    for (std::uint32_t i = 0; i < capacity(kind); ++i) {
      const Span bytes = part(block, chain_block_header + std::uint64_t{i} * width, width);
      for (std::uint32_t at = 0; at < width && !all_zero(bytes); at += 4)
        found.used[found.blocks.size() * capacity(kind) + i].push_back(u32_at(bytes, at));
    }
    found.blocks.push_back(number);
    number = u32_at(block, 4);
  }
  return found;
}

Mdb::Mdb(Bytes bytes, Bytes external_journal) : file(std::move(bytes)), journal(std::move(external_journal)) {
  require(text_at(file, 0, 4) == "QMDB" && u32_at(file, 4) == 1 && u32_at(file, 8) == 8192, "the header");
  journal_type = u32_at(file, 12);
  const std::uint64_t journal_field = u32_at(file, 16);  // the length of its path, or its first block
  const std::uint64_t tail = 20 + journal_field;         // whatever the journal's type
  const std::uint32_t root_count = u32_at(file, tail);
  require(root_count == 2, "number of index roots", root_count);
  roots = {u32_at(file, tail + 4), u32_at(file, tail + 8)};
  bitmap_first = u32_at(file, tail + 16);
  data_first = u32_at(file, tail + 20);
  require(journal_type == (journal.empty() ? 1 : 2), "journal of type", journal_type);
  if (journal_type == 2) {
    journal_path = text_at(file, 20, journal_field);
  } else {
    const Span inside = part(file, journal_field * 8192, (bitmap_first - journal_field) * 8192);
    journal.assign(inside.begin(), inside.end());
  }
  replay();
}

void Mdb::replay() {
  require(text_at(journal, 0, 4) == "JHDR" && u32_at(journal, 4) == 1, "header of the journal");
  for (std::uint64_t i = 0; i < 2; ++i) {
    const Span pointer = part(journal, 16 + 16 * i, 16);
    require(u32_at(pointer, 12) == crc32(pointer.first(12)), "CRC of pointer", i);
    serials[i] = u64_at(pointer, 0);
  }
  // The tool begins in the journal's first half and does not come to its end.
  require(serials[0] >= serials[1], "pointer 1 is the newer one");
  const std::uint64_t serial = serials[0];
  for (std::uint64_t at = u32_at(journal, 24);
       at != 0 && text_at(journal, at, 4) == "TBEG" && u64_at(journal, at + 8) == serial;)
    at = replay_transaction(at);
}

// Returns where the next transaction begins.
std::uint64_t Mdb::replay_transaction(std::uint64_t begin) {
  std::uint64_t at = begin + 16;
  while (text_at(journal, at, 4) == "TUPD") {
    const std::uint32_t length = u32_at(journal, at + 4);
    const std::uint64_t target = u64_at(journal, at + 8);
    const Span data = part(journal, at + 20, length);
    file.resize(std::max<std::uint64_t>(file.size(), target + length));
    std::ranges::copy(data, file.begin() + static_cast<std::ptrdiff_t>(target));
    at += padded(20 + length);
  }
  require(text_at(journal, at, 4) == "TEND", "no end of the transaction at", begin);
  require(u32_at(journal, at + 4) == crc32(part(journal, begin, at - begin)), "CRC at", at);
  return at + 8;
}

Span Mdb::block(std::uint32_t number) const {
  return part(file, std::uint64_t{number} * 8192, 8192);
}

std::map<std::uint32_t, std::uint32_t> Mdb::block_classes() const {
  std::map<std::uint32_t, std::uint32_t> found;
  const Span map = part(file, bitmap_first * 8192ULL, (data_first - bitmap_first) * 8192ULL);
  for (std::uint32_t number = 0; number < map.size(); ++number) {
    if (map[number] != 0)
      found[number] = map[number];
  }
  return found;
}

std::map<Place, std::string> Mdb::records() const {
  std::map<Place, std::string> found;
  for (const auto& [number, block_class] : block_classes()) {
    const Span bytes = block_class == class_used ? block(number) : Span();
    for (std::uint32_t at = 0; at < bytes.size();) {
      const std::uint32_t header = u32_at(bytes, at);
      const std::uint32_t length = header & ~1U;
      require(length >= 4, "item in block", number);
      const Span item = part(bytes, at, length);
      if ((header & 1) == 0)
        found[{number, at}] = describe_record(item.subspan(4));
      at += length;
    }
  }
  return found;
}

std::map<Key, Place> Mdb::index(std::uint32_t number, std::uint32_t leaf) const {
  const Span root = block(roots.at(number));
  require(block_classes()[roots[number]] == class_root && text_at(root, 0, 4) == "RINT", "root", number);
  require(u32_at(root, 4) == 0 && u32_at(root, 8) == leaf, "leaf of root", number);
  const Span bytes = block(leaf);
  require(block_classes()[leaf] == class_leaf && text_at(bytes, 0, 4) == "LEAF", "leaf", leaf);
  require(u32_at(bytes, 4) == 0 && u32_at(bytes, 8) == 0, "neighbours of leaf", leaf);
  std::map<Key, Place> found;
  for (std::uint64_t at = 16; at < 16 + 16ULL * u32_at(bytes, 12); at += 16) {
    const Key key = {u32_at(bytes, at), u32_at(bytes, at + 4)};
    require(found.empty() || found.rbegin()->first < key, "order in leaf", leaf);
    found[key] = {u32_at(bytes, at + 8), u32_at(bytes, at + 12)};
  }
  return found;
}

}  // namespace reader
