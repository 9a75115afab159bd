// Invariants:
//
//   M1  A page shows the committed map with the open transaction's own marks over it: a mark reaches its page
//       only after it was journalled, and an abort drops all pages.
//   M2  Every page's key is that of a block of the map; no other bytes are ever read or marked.
//   M3  `current` is null or points into `pages`, and so does all of `marked`.
//   M4  Exactly the pages in `marked` have a flag set.

#include "allocation_map.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "common/errors.h"
#include "common/log.h"
#include "common/text.h"
#include "metadb/objects/allocator.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/block_copy.h"
#include "metadb/storage/journal.h"

namespace mdb {
namespace {

struct MapPage {
  std::uint32_t key;  // the map block's number
  BlockBuffer classes;
  bool keep = false;   // marked in the open transaction: trimming leaves it
  bool freed = false;  // a block of it was freed in the open transaction
};

struct MapState {
  std::uint32_t bitmap_first = 0;
  std::uint32_t map_blocks = 0;
  std::map<std::uint32_t, MapPage> pages;
  MapPage* current = nullptr;    // the page used last
  std::vector<MapPage*> marked;  // in the open transaction
};

MapState state;

constexpr std::size_t trimming_starts_at_pages = 4;
constexpr std::size_t class_values = 256;

using ClassCounts = std::array<std::uint64_t, class_values>;

struct ClassName {
  BlockClass block_class;
  std::string_view name;
};
constexpr ClassName class_names[] = {
    {BlockClass::empty, "Empty"},
    {BlockClass::used, "Used"},
    {BlockClass::full, "Full"},
    {BlockClass::root_index, "Root index"},
    {BlockClass::non_root_index, "Non-root index"},
    {BlockClass::leaf, "Leaf"},
    {BlockClass::lob, "Lob"},
};

MapPage& load_page(std::uint32_t key) {
  BlockBuffer classes(block_size());
  read_bytes_current(classes.bytes(), std::uint64_t{key} * block_size());
  const auto [page, inserted] = state.pages.try_emplace(key, MapPage{key, std::move(classes)});
  if (!inserted)
    throw error_internal("Lazy map-loading error in allocator");
  return page->second;
}

// REQUIRES: the block has a class byte (M2).
MapPage& page_of(std::uint64_t block) {
  const auto key = static_cast<std::uint32_t>(block / block_size() + state.bitmap_first);
  if (state.current == nullptr || state.current->key != key) {
    const auto found = state.pages.find(key);
    state.current = found != state.pages.end() ? &found->second : &load_page(key);
  }
  return *state.current;
}

// Counting needs one page at a time; what it leaves loaded is what the first look-ups find.
void trim_pages() {
  for (auto page = state.pages.begin();
       page != state.pages.end() && state.pages.size() >= trimming_starts_at_pages;) {
    if (page->second.keep) {
      ++page;
      continue;
    }
    if (state.current == &page->second)
      state.current = nullptr;  // M3
    page = state.pages.erase(page);
  }
}

constexpr auto known_classes = [] {
  std::array<bool, class_values> known{};
  for (const ClassName& entry : class_names)
    known[static_cast<std::size_t>(entry.block_class)] = true;
  return known;
}();

std::uint64_t load_word(const std::byte* bytes) {
  std::uint64_t word;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

// Most of a map is Empty: eight blocks at a time where they are.
void count_page(std::uint64_t first_block, std::span<const std::byte> classes, ClassCounts& counts) {
  std::size_t index = 0;
  while (index < classes.size()) {
    if (index + sizeof(std::uint64_t) <= classes.size() && load_word(&classes[index]) == 0) {
      counts[static_cast<std::size_t>(BlockClass::empty)] += sizeof(std::uint64_t);
      index += sizeof(std::uint64_t);
      continue;
    }
    const auto value = std::to_integer<std::size_t>(classes[index]);
    if (!known_classes[value]) {
      throw error_consistency(
          text::concat("Unknown alloc. bitmap (", value, ") for block ", first_block + index));
    }
    ++counts[value];
    ++index;
  }
}

constexpr std::uint64_t every_byte(std::byte value) {
  return std::to_integer<std::uint64_t>(value) * 0x0101'0101'0101'0101;
}

bool has_zero_byte(std::uint64_t word) {
  return ((word - every_byte(std::byte{0x01})) & ~word & every_byte(std::byte{0x80})) != 0;
}

// Index of the first byte in [first, end) that has no bit of the mask, else `end`.
std::size_t find_in_page(std::span<const std::byte> classes, std::size_t first, std::size_t end,
                         std::byte mask) {
  const std::uint64_t word_mask = every_byte(mask);
  std::size_t index = first;
  while (index + sizeof(std::uint64_t) <= end && !has_zero_byte(load_word(&classes[index]) & word_mask)) {
    index += sizeof(std::uint64_t);
  }
  while (index < end && (classes[index] & mask) != std::byte{0})
    ++index;
  return index;
}

}  // namespace

namespace allocation_map {

void open(std::uint32_t bitmap_first, std::uint32_t map_blocks) {
  reset();
  if (block_size() == 0) {
    throw error_internal("Allocation map initialization attempted before block size was found");
  }
  state.map_blocks = map_blocks;
  state.bitmap_first = bitmap_first;

  ClassCounts counts{};
  for (std::uint32_t page_index = 0; page_index < map_blocks; ++page_index) {
    const std::uint64_t first_block = std::uint64_t{page_index} * block_size();
    count_page(first_block, page_of(first_block).classes.bytes(), counts);
    trim_pages();
  }
  for (const ClassName& entry : class_names) {
    log(logging::information, logging::space, entry.name,
        " blocks: ", counts[static_cast<std::size_t>(entry.block_class)]);
  }
}

void reset() {
  state = {};
}

void drop_pages() {
  state.current = nullptr;  // M3
  state.marked.clear();
  state.pages.clear();
}

std::uint64_t block_count() {
  constexpr std::uint64_t addressable = std::uint64_t{1} << 32;
  return std::min(std::uint64_t{state.map_blocks} * block_size(), addressable);
}

std::uint64_t find(std::uint64_t first, std::uint64_t end, std::byte mask, FreedPages freed_pages) {
  while (first < end) {
    const MapPage& page = page_of(first);
    const std::uint64_t page_start = first - first % block_size();
    const std::uint64_t page_end = std::min(end, page_start + block_size());
    if (freed_pages == FreedPages::search || !page.freed) {
      const std::size_t index =
          find_in_page(page.classes.bytes(), static_cast<std::size_t>(first - page_start),
                       static_cast<std::size_t>(page_end - page_start), mask);
      if (page_start + index < page_end)
        return page_start + index;
    }
    first = page_end;
  }
  return first;
}

}  // namespace allocation_map

BlockClass mark_query(std::uint32_t block) {
  if (block >= allocation_map::block_count()) {
    throw error_range(text::concat("Block ", block, " for mark query is out of range"));
  }
  const std::span<const std::byte> classes = page_of(block).classes.bytes();
  return static_cast<BlockClass>(classes[block % block_size()]);
}

void mark_block(std::uint32_t block, BlockClass block_class) {
  if (block >= allocation_map::block_count()) {
    throw error_range(text::concat("Block ", block, " for marking is out of range"));
  }
  MapPage& page = page_of(block);
  const std::uint32_t index = block % block_size();
  std::byte& stored_class = page.classes.bytes()[index];
  const auto new_class = static_cast<std::byte>(block_class);
  transaction_update({&new_class, 1}, std::uint64_t{page.key} * block_size() + index);  // M1

  if (stored_class != std::byte{0} && new_class == std::byte{0})
    page.freed = true;
  if (!page.keep)
    state.marked.push_back(&page);  // M4
  page.keep = true;
  stored_class = new_class;
}

void alloc_transaction_end() {
  for (MapPage* page : state.marked)
    page->keep = page->freed = false;
  state.marked.clear();  // M4
}

}  // namespace mdb
