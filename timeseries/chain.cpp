#include "timeseries/chain.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <utility>

#include "common/bytes.h"
#include "common/errors.h"
#include "common/text.h"

namespace tsdb {

namespace pointer_block = format::pointer_block;

PointerLayout::PointerLayout(ChainKind kind, std::uint32_t block_size)
    : block_size_bytes(block_size),
      entry_size_bytes(traits_of(kind).entry_size_bytes),
      entries_per_block(
          static_cast<std::uint32_t>((block_size_bytes - pointer_block::entries) / entry_size_bytes)) {}

std::size_t PointerLayout::offset_of(std::uint64_t entry_index) const {
  return static_cast<std::size_t>(entry_index / entries_per_block * block_size_bytes +
                                  pointer_block::entries +
                                  entry_index % entries_per_block * entry_size_bytes);
}

Run::Run(ChainKind kind, const PointerLayout& layout, std::uint32_t chain_set, std::uint32_t first_block,
         std::uint32_t block_count)
    : layout_(layout),
      first_block_(first_block),
      block_count_(block_count),
      buffer_(std::size_t{block_count} * layout.block_size_bytes) {
  std::span<std::byte> rest = buffer_;
  for (std::uint32_t sequence = 0; sequence < block_count; ++sequence) {
    const std::uint32_t next = sequence + 1 < block_count ? first_block + sequence + 1 : 0;
    format::encode_pointer_block_header(rest, traits_of(kind).magic, next, chain_set, sequence);
    rest = rest.subspan(layout.block_size_bytes);
  }
}

std::uint32_t Run::word(std::uint64_t entry_index, std::uint32_t word_index) const {
  return bytes::load_u32(buffer_, layout_.offset_of(entry_index) + std::size_t{4} * word_index);
}

void Run::store(std::uint64_t entry_index, std::span<const std::uint32_t> words) {
  if (entry_index >= capacity()) {
    throw error_internal(text::concat("Pointer ", entry_index, " does not exist in the run of ", block_count_,
                                      " blocks at block ", first_block_));
  }
  std::size_t offset = layout_.offset_of(entry_index);
  for (const std::uint32_t value : words) {
    bytes::store_u32(buffer_, offset, value);
    offset += sizeof(std::uint32_t);
  }
  if (words[0] == 0)
    first_possibly_free_ = std::min(first_possibly_free_, entry_index);
  mark_dirty();
}

void Run::link_to(std::uint32_t next_block) {
  const std::size_t last_block = buffer_.size() - layout_.block_size_bytes;
  bytes::store_u32(buffer_, last_block + pointer_block::next_block, next_block);
  mark_dirty();
}

std::optional<std::uint64_t> Run::find_free() {
  const std::uint64_t end = capacity();
  std::uint64_t entry_index = first_possibly_free_;
  while (entry_index < end && word(entry_index, 0) != 0)
    ++entry_index;
  first_possibly_free_ = entry_index;
  if (entry_index == end)
    return std::nullopt;
  return entry_index;
}

void Run::copy_entries(std::uint64_t entry_index, const Run& source, std::uint64_t source_index,
                       std::uint64_t count) {
  note_copied(entry_index, source, source_index, count);
  mark_dirty();
  const std::uint64_t per_block = layout_.entries_per_block;
  while (count > 0) {
    const std::uint64_t left_in_blocks =
        per_block - std::max(entry_index % per_block, source_index % per_block);
    const std::uint64_t piece = std::min(count, left_in_blocks);
    std::memmove(buffer_.data() + layout_.offset_of(entry_index),
                 source.buffer_.data() + source.layout_.offset_of(source_index),
                 static_cast<std::size_t>(piece * layout_.entry_size_bytes));
    entry_index += piece;
    source_index += piece;
    count -= piece;
  }
}

// Carries over what is known of free entries, so that the search in a copied chain does not start anew.
void Run::note_copied(std::uint64_t entry_index, const Run& source, std::uint64_t source_index,
                      std::uint64_t count) {
  if (first_possibly_free_ < entry_index)
    return;
  const std::uint64_t source_free = source.first_possibly_free_;
  const std::uint64_t used_count =
      source_free > source_index ? std::min(source_free - source_index, count) : 0;
  if (used_count < count || first_possibly_free_ < entry_index + count) {
    first_possibly_free_ = entry_index + used_count;
  }
}

void Run::clear_entries() {
  std::span<std::byte> rest = buffer_;
  while (!rest.empty()) {
    std::ranges::fill(rest.first(layout_.block_size_bytes).subspan(pointer_block::entries), std::byte{0});
    rest = rest.subspan(layout_.block_size_bytes);
  }
  first_possibly_free_ = 0;
  mark_dirty();
}

Chain::Chain(ChainKind kind, std::uint32_t chain_set, std::uint32_t block_size)
    : kind_(kind), chain_set_(chain_set), layout_(kind, block_size) {}

Run Chain::make_run(std::uint32_t first_block, std::uint32_t block_count) const {
  return Run(kind_, layout_, chain_set_, first_block, block_count);
}

std::span<Run> Chain::runs_to_change() {
  first_open_run_ = 0;
  return runs_;
}

Run& Chain::last_run() {
  first_open_run_ = std::min(first_open_run_, runs_.size() - 1);
  return runs_.back();
}

void Chain::append(Run run) {
  if (run_starts_.size() == run_starts_.capacity())
    run_starts_.reserve(2 * run_starts_.size() + 1);
  runs_.push_back(std::move(run));
  run_starts_.push_back(capacity_);
  capacity_ += runs_.back().capacity();
}

std::optional<Chain::Position> Chain::locate(std::uint64_t entry_number) const {
  if (entry_number >= capacity_)
    return std::nullopt;
  const auto after = std::upper_bound(run_starts_.begin(), run_starts_.end(), entry_number);
  const std::size_t run_index = static_cast<std::size_t>(after - run_starts_.begin()) - 1;
  return Position{run_index, entry_number - run_starts_[run_index]};
}

bool Chain::store(std::uint64_t entry_number, std::span<const std::uint32_t> words) {
  const auto position = locate(entry_number);
  if (!position)
    return false;
  runs_[position->run_index].store(position->entry_index, words);
  if (words[0] == 0)
    first_open_run_ = std::min(first_open_run_, position->run_index);
  return true;
}

std::optional<std::uint64_t> Chain::find_free_in(std::size_t run_index) {
  const auto found = runs_[run_index].find_free();
  if (!found && run_index == first_open_run_)
    ++first_open_run_;
  return found;
}

bool Chain::dirty() const {
  return std::ranges::any_of(runs_, &Run::dirty);
}

void Chain::mark_dirty() {
  std::ranges::for_each(runs_, &Run::mark_dirty);
}

void set_chain_pointer(Run& run, std::uint32_t entry_index, std::uint32_t value) {
  run.store(entry_index, std::array{value});
}

void set_chain_pointer(Chain& chain, std::uint32_t entry_number, std::uint32_t value) {
  store_entry(chain, entry_number, std::array{value});
}

void store_entry(Chain& chain, std::uint64_t entry_number, std::span<const std::uint32_t> words) {
  if (chain.store(entry_number, words))
    return;
  throw error_internal(
      text::concat("Pointer for lblock ", entry_number, " does not exist in chain ", chain.chain_set()));
}

std::uint32_t chain_pointer_count(const Chain& chain) {
  constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
  return static_cast<std::uint32_t>(std::min(chain.capacity(), most));
}

void link_run(Run& last, std::uint32_t first_block) {
  last.link_to(first_block);
}

}  // namespace tsdb
