#include "timeseries/levels.h"

#include <array>
#include <limits>

#include "common/errors.h"
#include "common/log.h"
#include "common/text.h"
#include "timeseries/backing_store.h"
#include "timeseries/block_map.h"
#include "timeseries/chain_sets.h"
#include "timeseries/chains.h"
#include "timeseries/check_ids.h"
#include "timeseries/entry_search.h"
#include "timeseries/growth.h"

namespace tsdb {
namespace {

constexpr std::uint32_t no_lblock = std::numeric_limits<std::uint32_t>::max();

// Entry sizes in bytes of the datatypes 1 and up.
constexpr std::array<std::uint32_t, 4> entry_sizes = {28, 20, 28, 1};

std::uint64_t end_of(std::uint32_t first_block, std::uint32_t block_count) {
  return std::uint64_t{first_block} + block_count;
}

[[noreturn]] void throw_no_blocks(std::uint32_t block_count) {
  throw error_dbnospace(text::concat("Unable to allocate ", block_count, " blocks in db file"));
}

// The map may manage blocks that the file does not have.
std::uint32_t allocate_within_file(std::uint32_t block_count) {
  if (block_count == 0)
    throw_no_blocks(block_count);
  std::uint32_t first = allocate_blocks(block_count);
  if (first != 0 && end_of(first, block_count) <= btb_block_count())
    return first;
  grow_tsdb(block_count);
  first = allocate_blocks(block_count);
  if (first == 0)
    throw_no_blocks(block_count);
  if (end_of(first, block_count) > btb_block_count()) {
    throw error_dbnospace(text::concat("Unable to grow TSDB to ", end_of(first, block_count), " blocks"));
  }
  return first;
}

std::uint32_t find_or_grow(Chain& chain) {
  std::uint32_t lblock = find_free_lblock(chain);
  if (lblock == no_lblock) {
    grow_chain(chain, 1);
    lblock = find_free_lblock(chain);
  }
  if (lblock == no_lblock)
    throw error_dbnospace("Unable to get free lblock pointer");
  return lblock;
}

void grow_to_hold(Chain& chain, std::uint32_t entry_number) {
  while (chain.capacity() <= entry_number)
    grow_chain(chain, 1);
}

void clear_level_ends(std::uint32_t lblock) {
  Chain& head = current_chain(ChainKind::head);
  Chain& tail = current_chain(ChainKind::tail);
  grow_to_hold(head, lblock);
  grow_to_hold(tail, lblock);
  set_chain_pointer(head, lblock, 0);
  set_chain_pointer(tail, lblock, 0);
}

// The level's number may be 0 here.
std::uint32_t enter_level(std::uint32_t block_count, std::uint32_t parameter, std::uint32_t next_lblock) {
  Chain& chain = current_chain(ChainKind::lblock);
  const std::uint32_t first = allocate_within_file(block_count);
  log(logging::detail, logging::chains, "Allocated ", block_count, " blocks starting at ", first,
      " for new level");
  const std::uint32_t lblock = find_or_grow(chain);
  store_entry(chain, lblock, LBlockEntry{first, block_count, next_lblock, parameter}.words());
  log(logging::detail, logging::chains, "LBlock ", lblock, " allocated from dblock ", first, " for ",
      block_count, " blocks");
  clear_level_ends(lblock);
  return lblock;
}

std::uint32_t blocks_for(std::uint32_t entry_count, std::uint32_t entry_size_bytes) {
  const std::uint64_t block_size = btb_block_size();
  return static_cast<std::uint32_t>((std::uint64_t{entry_count} * entry_size_bytes + block_size - 1) /
                                    block_size);
}

}  // namespace

std::uint32_t entry_size_of(std::uint32_t datatype) {
  if (datatype == 0 || datatype > entry_sizes.size())
    throw error_dbtype("Datatype out of range");
  return entry_sizes[datatype - 1];
}

std::uint32_t find_free_lblock(Chain& chain) {
  const auto found = find_free_entry(chain);
  return found && *found < no_lblock ? static_cast<std::uint32_t>(*found) : no_lblock;
}

std::uint32_t allocate_level(std::uint32_t block_count, std::uint32_t parameter, std::uint32_t next_lblock) {
  const std::uint32_t lblock = enter_level(block_count, parameter, next_lblock);
  return lblock != 0 ? lblock : allocate_level(block_count, parameter, next_lblock);
}

std::int32_t allocate_described_ts(const SeriesDescription& description) {
  if (description.levels.empty())
    throw error_internal("allocate_described_ts() invoked with no levels");
  const std::uint32_t entry_size_bytes = entry_size_of(description.datatype);
  // Throws before there is a database to size levels for.
  static_cast<void>(current_chain(ChainKind::lblock));
  std::uint32_t next = 0;
  // NOLINTNEXTLINE(modernize-loop-convert): what it proposes is more than Clang 14 can compile
  for (auto level = description.levels.rbegin(); level != description.levels.rend(); ++level) {
    next = allocate_level(blocks_for(level->entry_count, entry_size_bytes), level->parameter, next);
    if (next == 0)
      throw error_internal("allocate_level() returned 0");
  }
  if (next == 0)
    throw error_internal("allocate_described_ts() about to insert 0");
  return allocate_check_id(description.datatype, next);
}

}  // namespace tsdb
