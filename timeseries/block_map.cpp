// Invariants of the map:
//   B1  Every block from 1 to full_below - 1 is in use: a search from block 1 finds nothing there and may
//       start at full_below. Freeing a block lowers it; nothing else has to touch it.
//   B2  full_below never exceeds total_blocks (or is 1).

#include "timeseries/block_map.h"

#include <algorithm>
#include <bit>
#include <utility>
#include <vector>

#include "common/errors.h"
#include "common/text.h"

namespace tsdb {
namespace {

constexpr std::uint32_t bits_per_word = 32;

struct BlockMap {
  std::uint32_t total_blocks = 0;
  // Bit b mod 32 of word b / 32 is 1 when block b is in use.
  std::vector<std::uint32_t> bitmap;
  std::uint32_t used_blocks = 0;
  FreeHints free_hints{};
  std::uint64_t full_below = 1;
};

BlockMap map;

std::size_t word_count(std::uint32_t block_count) {
  return static_cast<std::size_t>(block_map_capacity(block_count) / bits_per_word);
}

bool is_used(std::uint64_t block) {
  return (map.bitmap[static_cast<std::size_t>(block / bits_per_word)] >> (block % bits_per_word) & 1) != 0;
}

// The bits of word `word_index` that lie in [first, end). REQUIRES: the word has at least one of them.
std::uint32_t mask_within_word(std::uint64_t word_index, std::uint64_t first, std::uint64_t end) {
  const std::uint64_t word_first = word_index * bits_per_word;
  std::uint32_t mask = ~std::uint32_t{0};
  if (first > word_first)
    mask &= ~std::uint32_t{0} << (first - word_first);
  if (end < word_first + bits_per_word)
    mask &= ~(~std::uint32_t{0} << (end - word_first));
  return mask;
}

void set_used(std::uint64_t first, std::uint64_t end) {
  for (std::uint64_t word = first / bits_per_word; word * bits_per_word < end; ++word) {
    map.bitmap[static_cast<std::size_t>(word)] |= mask_within_word(word, first, end);
  }
}

// The first block of [first, end) in the given state; `end` when there is none.
std::uint64_t find_block(bool used, std::uint64_t first, std::uint64_t end) {
  if (first >= end)
    return end;
  for (std::uint64_t word = first / bits_per_word; word * bits_per_word < end; ++word) {
    const std::uint32_t stored = map.bitmap[static_cast<std::size_t>(word)];
    const std::uint32_t matching = (used ? stored : ~stored) & mask_within_word(word, first, end);
    if (matching != 0) {
      return word * bits_per_word + static_cast<std::uint32_t>(std::countr_zero(matching));
    }
  }
  return end;
}

// The end of the free run at `first`, looking no further than the run asked for.
std::uint64_t free_run_end(std::uint64_t first, std::uint32_t wanted_count) {
  return find_block(true, first, std::min<std::uint64_t>(map.total_blocks, first + wanted_count));
}

// The size class of a run: the power of two that it reaches.
std::size_t size_class(std::uint64_t block_count) {
  return static_cast<std::size_t>(std::bit_width(block_count)) - 1;
}

bool is_valid_hint(std::uint32_t hint) {
  return hint != 0 && hint < map.total_blocks && !is_used(hint);
}

std::uint32_t take_hinted_run(std::uint32_t wanted_count) {
  for (std::size_t j = size_class(wanted_count); j < map.free_hints.size(); ++j) {
    const std::uint32_t hint = map.free_hints[j];
    if (!is_valid_hint(hint))
      continue;
    const std::uint64_t end = free_run_end(hint, wanted_count);
    if (end - hint == wanted_count) {
      set_used(hint, end);
      map.free_hints[j] = static_cast<std::uint32_t>(end);
      return hint;
    }
    map.free_hints[j] = 0;
  }
  return 0;
}

void remember_run(std::uint32_t first, std::size_t class_count) {
  for (std::size_t j = 0; j < class_count; ++j) {
    if (!is_valid_hint(map.free_hints[j]))
      map.free_hints[j] = first;
  }
}

void take_scanned_run(std::uint32_t first, std::uint64_t end, std::size_t class_count) {
  set_used(first, end);
  const auto hints_end = map.free_hints.begin() + static_cast<std::ptrdiff_t>(class_count);
  std::replace(map.free_hints.begin(), hints_end, first, static_cast<std::uint32_t>(end));
}

std::uint32_t take_first_fit(std::uint32_t wanted_count) {
  map.full_below = std::max<std::uint64_t>(1, find_block(false, map.full_below, map.total_blocks));  // B1
  std::uint64_t block = map.full_below;
  while (block < map.total_blocks) {
    const std::uint64_t end = free_run_end(block, wanted_count);
    const std::size_t class_count = std::min(size_class(end - block), map.free_hints.size());
    const std::uint32_t first = static_cast<std::uint32_t>(block);
    remember_run(first, class_count);
    if (end - block >= wanted_count) {
      take_scanned_run(first, end, class_count);
      return first;
    }
    block = find_block(false, end, map.total_blocks);
  }
  return 0;
}

void require_within_map(std::uint64_t first_block, std::int64_t block_count) {
  const std::uint64_t total = map.total_blocks;
  if (block_count >= 0 && first_block <= total &&
      static_cast<std::uint64_t>(block_count) <= total - first_block) {
    return;
  }
  throw error_internal(text::concat(block_count, " blocks at block ", first_block,
                                    " do not lie in the block map of ", map.total_blocks, " blocks"));
}

}  // namespace

std::uint64_t init_block_map(std::uint32_t block_count) {
  BlockMap fresh;
  fresh.total_blocks = block_count;
  fresh.bitmap.resize(word_count(block_count));
  map = std::move(fresh);
  return block_map_capacity(block_count);
}

std::uint64_t resize_block_map(std::uint32_t block_count) {
  const std::size_t words = word_count(block_count);
  if (words < map.bitmap.size()) {
    const auto dropped = map.bitmap.begin() + static_cast<std::ptrdiff_t>(words);
    if (std::any_of(dropped, map.bitmap.end(), [](std::uint32_t word) { return word != 0; })) {
      throw error_unref_used("Referenced block deallocated");
    }
  }
  map.bitmap.resize(words);
  map.total_blocks = block_count;
  map.full_below = std::clamp<std::uint64_t>(block_count, 1, map.full_below);  // B2
  return block_map_capacity(block_count);
}

std::uint32_t allocate_blocks(std::uint32_t block_count) {
  if (block_count == 0 || map.total_blocks <= 1)
    return 0;
  const std::uint32_t hinted = take_hinted_run(block_count);
  return hinted != 0 ? hinted : take_first_fit(block_count);
}

void mark_allocated(std::uint32_t first_block, std::int32_t block_count) {
  require_within_map(first_block, block_count);
  const std::uint64_t end = std::uint64_t{first_block} + static_cast<std::uint32_t>(block_count);
  if (find_block(true, first_block, end) != end) {
    throw error_dcalloc(text::concat("Block ", first_block, " doubly allocated"));
  }
  set_used(first_block, end);
  map.used_blocks += static_cast<std::uint32_t>(block_count);
}

void set_block_state(std::uint64_t block, bool used) {
  require_within_map(block, 1);
  const std::uint32_t bit = std::uint32_t{1} << (block % bits_per_word);
  std::uint32_t& word = map.bitmap[static_cast<std::size_t>(block / bits_per_word)];
  word = used ? word | bit : word & ~bit;
  if (!used)
    map.full_below = std::clamp<std::uint64_t>(block, 1, map.full_below);  // B1
}

bool block_in_use(std::uint64_t block) {
  require_within_map(block, 1);
  return is_used(block);
}

std::uint32_t total_blocks() {
  return map.total_blocks;
}

std::uint32_t used_blocks() {
  return map.used_blocks;
}

const FreeHints& free_hints() {
  return map.free_hints;
}

void forget_block_map() {
  map = BlockMap();
}

}  // namespace tsdb
