#include "metadb/storage/buffer_cache.h"

#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "cache_table.h"
#include "common/assertion.h"
#include "common/meters.h"
#include "metadb/storage/backing_store.h"
#include "overlay.h"
#include "running_half.h"

namespace mdb {
namespace {

constexpr std::uint32_t default_limit = 8192;
constexpr std::uint32_t no_entry = ~std::uint32_t{0};

struct Entry {
  std::uint32_t block;
  std::uint32_t newer = no_entry;
  std::uint32_t older = no_entry;
  std::uint64_t version = 0;
  BlockBuffer buffer;
};

// The entries by index, linked from the most to the least recently used.
struct Cache {
  std::vector<Entry> entries;
  std::uint32_t newest = no_entry;
  std::uint32_t oldest = no_entry;
  CacheTable table;
};

std::uint32_t limit = default_limit;
Cache cache;
std::uint64_t last_version = 0;  // of all caches

std::uint64_t entry_count() {
  return cache.entries.size();
}

meter::Group group(nullptr, "buffercache");
meter::IntegerCounter hits(group, "hits", "", "Number of buffer cache hits");
meter::IntegerCounter misses(group, "misses", "", "Number of buffer cache misses");
meter::IntegerGaugeCallback size(group, "size", "kB", "Current size of buffer cache",
                                 std::make_unique<meter::Bind0<std::uint64_t>>(entry_count));

void link_in_front(std::uint32_t index) {
  Entry& entry = cache.entries[index];
  entry.newer = no_entry;
  entry.older = cache.newest;
  if (cache.newest != no_entry)
    cache.entries[cache.newest].newer = index;
  cache.newest = index;
  if (cache.oldest == no_entry)
    cache.oldest = index;
}

void move_to_front(std::uint32_t index) {
  if (cache.newest == index)
    return;
  const Entry& entry = cache.entries[index];
  cache.entries[entry.newer].older = entry.older;
  if (entry.older != no_entry) {
    cache.entries[entry.older].newer = entry.newer;
  } else {
    cache.oldest = entry.newer;
  }
  link_in_front(index);
}

// The block's committed bytes: what the file holds and, over it, what it does not hold yet.
void read_committed(BlockBuffer& buffer, std::uint32_t block) {
  const UnappliedUpdates updates(block);
  updates.prefetch();
  const bool is_in_store = block < backing_size() / block_size();
  if (!is_in_store || !updates.cover_block())
    block_read(buffer.bytes(), block, 1);
  updates.overlay(buffer.bytes(), std::uint64_t{block} * block_size());
}

std::uint32_t add_entry(std::uint32_t block) {
  BlockBuffer buffer(block_size());
  read_committed(buffer, block);
  const auto index = static_cast<std::uint32_t>(cache.entries.size());
  cache.entries.push_back({block, no_entry, no_entry, ++last_version, std::move(buffer)});  // C4
  link_in_front(index);
  return index;
}

std::uint32_t reuse_oldest_entry(std::uint32_t block) {
  const std::uint32_t index = cache.oldest;
  Entry& entry = cache.entries[index];
  cache.table.erase(entry.block);
  read_committed(entry.buffer, block);  // C2: if this throws, no slot names the entry
  entry.block = block;
  entry.version = ++last_version;  // C4
  move_to_front(index);
  return index;
}

}  // namespace

BlockView cache_get_version(std::uint32_t block) {
  std::uint32_t index;
  if (const auto found = cache.table.find(block)) {
    index = *found;
    if (cache.entries[index].block != block)
      assertion_failed("Buffer cache corruption");
    move_to_front(index);
    hits.increment();
  } else {
    misses.increment();
    index = cache.entries.size() != limit ? add_entry(block) : reuse_oldest_entry(block);
    cache.table.insert(block, index);
  }
  const Entry& entry = cache.entries[index];
  return {entry.buffer.bytes(), entry.version};
}

std::span<const std::byte> cache_get_block(std::uint32_t block) {
  return cache_get_version(block).bytes;
}

std::span<const std::byte> cache_peek(std::uint32_t block) {
  const auto found = cache.table.find(block);
  if (!found.has_value())
    return {};
  return cache.entries[*found].buffer.bytes();
}

void cache_apply_update(std::uint64_t target, std::span<const std::byte> data) {
  const std::uint64_t size_bytes = block_size();
  for (std::uint64_t block = target / size_bytes; block * size_bytes < target + data.size(); ++block) {
    if (block > std::numeric_limits<std::uint32_t>::max())
      return;  // no such block can be cached
    const auto found = cache.table.find(static_cast<std::uint32_t>(block));
    if (!found.has_value())
      continue;
    Entry& entry = cache.entries[*found];
    entry.version = ++last_version;  // C4
    overlay_update(entry.buffer.bytes(), block * size_bytes, target, data);
  }
}

void cache_apply_block(std::uint32_t block, BlockBuffer image) {
  const auto found = cache.table.find(block);
  if (!found.has_value())
    return;
  Entry& entry = cache.entries[*found];
  entry.version = ++last_version;  // C4
  entry.buffer = std::move(image);
}

void cache_clear() {
  cache = {};
}

void cache_set_limit(std::uint32_t entry_limit) {
  limit = entry_limit;
}

CacheStatistics cache_statistics() {
  return {static_cast<std::uint32_t>(cache.entries.size()),
          cache.table.slot_count(),
          cache.table.live_count(),
          cache.table.non_empty_count(),
          cache.table.probes(),
          cache.table.rehashes()};
}

}  // namespace mdb
