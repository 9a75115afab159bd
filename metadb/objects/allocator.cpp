// Where an object goes. The search has three stages: the hinted block alone, the blocks from the last-good
// one to the end of the store, and all blocks, of which only the last lengthens the store.
//
// Invariants:
//
//   A1  last_good names a data block in which an unfilled search succeeded, in transactions all committed
//       or still open; an abort forgets it.
//   A2  Nothing is read, counted or marked for a size that no block can serve.

#include "metadb/objects/allocator.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "allocation_map.h"
#include "common/errors.h"
#include "common/log.h"
#include "common/meters.h"
#include "common/text.h"
#include "metadb/objects/data_block.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/journal.h"

namespace mdb {
namespace {

struct AllocatorState {
  std::uint32_t first_alloc_block = 0;
  std::uint32_t last_good = 0;  // 0 = none
};

AllocatorState state;

meter::Group alloc_group(nullptr, "alloc");
meter::IntegerCounter bloads(alloc_group, "bloads", "",
                             "Number of full MDB blocks loaded from backing store for placeholder search");
meter::IntegerCounter hint_calls(alloc_group, "hint_calls", "", "Hinted MDB space allocation requests");
meter::IntegerCounter hintfail(
    alloc_group, "hintfail", "",
    "Number of times the hint passed to the allocator failed to provide a quick allocation");
meter::IntegerCounter lastfail(
    alloc_group, "lastfail", "",
    "Number of times the last-good block remembered by the allocator failed to provide a quick allocation");
meter::IntegerCounter nohint_calls(alloc_group, "nohint_calls", "",
                                   "Non-hinted MDB space allocation requests");

enum class Stage { hint, last_good, scratch };

void forget_uncommitted() {
  allocation_map::drop_pages();
  state.last_good = 0;  // A1
}

// A data block with fewer free bytes counts as full.
std::uint32_t full_below_bytes() {
  return block_size() * 25 / 100;
}

// Whether a placeholder can give up `size` bytes: all of it, or with a header's room left.
bool serves(std::uint32_t placeholder_bytes, std::uint32_t size) {
  return placeholder_bytes == size ||
         std::uint64_t{placeholder_bytes} >= std::uint64_t{size} + format::item::header_size;
}

// An odd size is for the splitter to refuse.
bool can_ever_be_placed(std::uint32_t size) {
  if (size > block_size())
    return false;
  return size % 2 != 0 || (size >= format::item::header_size && serves(block_size(), size));
}

[[noreturn]] void throw_no_space() {
  log(logging::warning, logging::space, "No valid block found for space allocation");
  throw error_dbnospace("No free blocks in meta database");
}

std::uint64_t store_block_count() {
  return backing_size() / block_size();
}

ObjectHandle take_empty_block(std::uint32_t block) {
  ObjectHandle handle{block, 0, read_block_copy(block)};
  log(logging::detail, logging::space, "Found empty block - starting from scratch on that one");
  store_item_header(handle.data.bytes(), 0, block_size(), true);

  Transaction transaction;
  transaction_update(handle.data.bytes().first(format::item::header_size),
                     std::uint64_t{block} * block_size());
  mark_block(block, BlockClass::used);
  transaction.end();
  state.last_good = block;
  return handle;
}

void mark_full(std::uint32_t block) {
  log(logging::information, logging::space, "Marked block ", block, " as full");
  Transaction transaction;
  mark_block(block, BlockClass::full);
  transaction.end();
}

std::optional<ObjectHandle> try_data_block(std::uint32_t block, BlockClass block_class, std::uint32_t size) {
  ObjectHandle handle{block, 0, {}};
  const PlaceholderSearch outcome = find_placeholder(handle, size);
  if (outcome.block_full && block_class != BlockClass::full)
    mark_full(block);
  if (!outcome.found)
    return std::nullopt;
  if (!outcome.block_full)
    state.last_good = block;
  return handle;
}

std::optional<ObjectHandle> try_block(std::uint32_t block, Stage stage, std::uint32_t size) {
  const BlockClass block_class = mark_query(block);
  ensure_block(block);
  if (block_class == BlockClass::empty)
    return take_empty_block(block);
  const bool may_hold =
      block_class == BlockClass::used || (block_class == BlockClass::full && stage == Stage::hint);
  return may_hold ? try_data_block(block, block_class, size) : std::nullopt;
}

std::optional<ObjectHandle> search(Stage stage, std::uint32_t start, std::uint32_t size) {
  const std::uint64_t first = std::max(state.first_alloc_block, start);
  const std::uint64_t map_end = allocation_map::block_count();
  const std::uint64_t store_end = std::min(map_end, store_block_count());
  const std::uint64_t end = stage == Stage::scratch ? map_end
                            : stage == Stage::hint  ? std::min(store_end, first + 1)
                                                    : store_end;
  for (std::uint64_t block = first; block < end; ++block) {
    if (stage != Stage::hint) {
      block = allocation_map::find(block, store_end, allocation_map::match_empty_or_used);
      if (block >= end)
        break;
    }
    if (auto handle = try_block(static_cast<std::uint32_t>(block), stage, size))
      return handle;
  }
  return std::nullopt;
}

}  // namespace

void alloc_map_init(std::uint32_t bitmap_first, std::uint32_t map_blocks) {
  alloc_reset();
  allocation_map::open(bitmap_first, map_blocks);
  state.first_alloc_block = bitmap_first + map_blocks;
  journal_set_hooks({.committed = alloc_transaction_end, .aborted = forget_uncommitted});
}

void alloc_reset() {
  journal_set_hooks({});
  allocation_map::reset();
  state = {};
}

void alloc_check_size(std::uint32_t size) {
  if (!can_ever_be_placed(size))
    throw_no_space();
}

ObjectHandle alloc_space(std::uint32_t hint, std::uint32_t size) {
  alloc_check_size(size);  // A2
  (hint != 0 ? hint_calls : nohint_calls).increment();
  if (hint != 0) {
    if (auto handle = search(Stage::hint, hint, size))
      return std::move(*handle);
    hintfail.increment();
  }
  if (state.last_good != 0) {
    if (auto handle = search(Stage::last_good, state.last_good, size))
      return std::move(*handle);
    state.last_good = 0;
    lastfail.increment();
  }
  if (auto handle = search(Stage::scratch, 0, size))
    return std::move(*handle);
  throw_no_space();
}

std::uint32_t alloc_empty_block(std::uint32_t start, bool allow_freed) {
  using allocation_map::FreedPages;
  const FreedPages freed_pages = allow_freed ? FreedPages::search : FreedPages::skip;
  const std::uint64_t end = allocation_map::block_count();
  const auto find_from = [&](std::uint32_t first) {
    return allocation_map::find(first, end, allocation_map::match_empty, freed_pages);
  };
  std::uint64_t block = find_from(std::max(start, state.first_alloc_block));
  if (block >= end && start != 0)
    block = find_from(state.first_alloc_block);
  if (block >= end) {
    log(logging::warning, logging::space, "No valid empty block found for empty block allocation");
    throw error_dbnospace("No empty blocks in meta database");
  }
  ensure_block(static_cast<std::uint32_t>(block));
  return static_cast<std::uint32_t>(block);
}

PlaceholderSearch find_placeholder(ObjectHandle& handle, std::uint32_t size) {
  if (mark_query(handle.block) == BlockClass::empty) {
    throw error_internal("Search for placeholder in empty block");
  }
  BlockBuffer scratch;
  const std::span<const std::byte> block_bytes = view_block(handle.block, scratch);
  bloads.increment();

  std::uint32_t free_bytes = 0;
  std::optional<std::uint32_t> candidate;
  for (const Item& item : BlockItems(handle.block, block_bytes)) {
    if (!item.is_placeholder)
      continue;
    free_bytes += item.length_bytes;
    if (serves(item.length_bytes, size))
      candidate = item.offset;
    if (candidate && free_bytes >= full_below_bytes())
      break;
  }
  handle.offset = candidate.value_or(0);
  handle.data = candidate ? read_block_copy(handle.block) : BlockBuffer();
  return {.found = candidate.has_value(), .block_full = free_bytes < full_below_bytes()};
}

BlockClass classify_block(const ObjectHandle& handle) {
  std::uint32_t free_bytes = 0;
  for (const Item& item : BlockItems(handle.block, handle.data.bytes())) {
    if (item.is_placeholder)
      free_bytes += item.length_bytes;
  }
  if (free_bytes < full_below_bytes())
    return BlockClass::full;
  return free_bytes == block_size() ? BlockClass::empty : BlockClass::used;
}

void ensure_block(std::uint32_t block) {
  const std::uint64_t needed_bytes = (std::uint64_t{block} + 1) * block_size();
  if (needed_bytes > backing_size())
    backing_grow(block);
  if (needed_bytes > backing_size()) {
    throw error_dbnospace(text::concat("Cannot grow the MDB to accomodate block ", block));
  }
}

}  // namespace mdb
