#include "reader.h"

#include <algorithm>
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

std::uint32_t u32_at(Span bytes, std::uint64_t offset) {
  const Span word = part(bytes, offset, 4);
  return std::uint32_t{word[0]} << 24 | std::uint32_t{word[1]} << 16 | std::uint32_t{word[2]} << 8 | word[3];
}

std::uint64_t u64_at(Span bytes, std::uint64_t offset) {
  return std::uint64_t{u32_at(bytes, offset)} << 32 | u32_at(bytes, offset + 4);
}

std::string text_at(Span bytes, std::uint64_t offset, std::uint64_t length) {
  const Span found = part(bytes, offset, length);
  return std::string(found.begin(), found.end());
}

bool all_zero(Span bytes) {
  return std::ranges::count(bytes, 0) == std::ssize(bytes);
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

constexpr const char* chain_magics[] = {"HEAD", "TAIL", "LBAL", "CHCK"};
constexpr std::uint32_t entry_widths[] = {4, 4, 16, 8};
constexpr std::uint32_t chain_block_header = 16;

}  // namespace

Tsdb::Tsdb(Bytes bytes) : file(std::move(bytes)), block_size(u32_at(file, 8)), set_count(u32_at(file, 20)) {
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

}  // namespace reader
