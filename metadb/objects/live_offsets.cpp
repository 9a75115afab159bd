#include "live_offsets.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "metadb/objects/data_block.h"

namespace mdb::live_offsets {
namespace {

// What is known of one version of one block.
struct Entry {
  std::uint64_t version = 0;
  bool was_asked_again = false;
  std::vector<bool> is_live;  // by half the offset, as items start at even ones; empty for a damaged block
};

constexpr std::size_t max_entries = 8192;
constexpr std::size_t max_bytes = std::size_t{4} << 20;

// By the block's number; a later block takes the place of an earlier one.
std::vector<Entry> entries;

Entry& entry_of(std::uint32_t block, std::size_t block_bytes) {
  if (entries.empty())
    entries.resize(std::min(max_entries, max_bytes / (block_bytes / 2 / 8)));
  return entries[block % entries.size()];
}

// Nothing for a block that is damaged: a walk ends where the damage does not matter to it.
std::vector<bool> live_objects_of(std::span<const std::byte> block_bytes) {
  std::vector<bool> is_live(block_bytes.size() / 2);
  for (std::uint32_t offset = 0; offset < block_bytes.size();) {
    const auto item = sound_item_at(block_bytes, offset);
    if (!item)
      return {};
    is_live[offset / 2] = !item->is_placeholder;
    offset = item->end();
  }
  return is_live;
}

}  // namespace

bool contain(std::uint32_t block, const BlockView& view, std::uint32_t offset) {
  if (view.version == 0)
    return false;
  Entry& entry = entry_of(block, view.bytes.size());
  if (entry.version != view.version) {
    entry.version = view.version;
    entry.was_asked_again = false;
    return false;
  }
  if (!std::exchange(entry.was_asked_again, true))
    entry.is_live = live_objects_of(view.bytes);
  return offset % 2 == 0 && offset / 2 < entry.is_live.size() && entry.is_live[offset / 2];
}

void reset() {
  entries = {};
}

}  // namespace mdb::live_offsets
