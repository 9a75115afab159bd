#include "cache_table.h"

#include <array>
#include <utility>

#include "common/assertion.h"

namespace mdb {
namespace {

// The largest prime below each power of two from 2^9 to 2^32.
constexpr std::array<std::uint32_t, 24> slot_counts = {
    509,      1021,     2039,      4093,      8191,      16381,      32749,      65521,
    131071,   262139,   524287,    1048573,   2097143,   4194301,    8388593,    16777213,
    33554393, 67108859, 134217689, 268435399, 536870909, 1073741789, 2147483647, 4294967291};

constexpr std::uint32_t hash_factor = 0x9E37'79B1;

}  // namespace

CacheTable::CacheTable() : slots_(slot_counts[0]) {}

std::size_t CacheTable::hash(std::uint32_t block) const {
  const std::uint32_t hashed = block * hash_factor;  // wraps
  return hashed % slots_.size();
}

std::optional<std::size_t> CacheTable::find_slot(std::uint32_t block) {
  for (std::size_t slot = hash(block); slots_[slot].state != SlotState::empty; slot = after(slot)) {
    if (slots_[slot].state == SlotState::in_use && slots_[slot].block == block)
      return slot;
    probes_ += 1;
  }
  return std::nullopt;
}

std::optional<CacheTable::Entry> CacheTable::find(std::uint32_t block) {
  const auto slot = find_slot(block);
  if (!slot.has_value())
    return std::nullopt;
  return slots_[*slot].entry;
}

void CacheTable::insert(std::uint32_t block, Entry entry) {
  std::size_t slot = hash(block);
  for (; slots_[slot].state == SlotState::in_use; slot = after(slot)) {
    if (slots_[slot].block == block)
      return;
  }
  if (slots_[slot].state == SlotState::empty)
    non_empty_ += 1;
  live_ += 1;
  slots_[slot] = {SlotState::in_use, block, entry};
  keep_sparse();
}

void CacheTable::keep_sparse() {
  if (std::uint64_t{live_} * 4 > slots_.size() && size_index_ + 1 < slot_counts.size()) {
    rehash(size_index_ + 1);
  } else if (non_empty_ >= live_ && non_empty_ > std::uint64_t{live_} * 3) {
    rehash(size_index_);
  } else if (non_empty_ < live_) {
    assertion_failed("accounting failure");
  }
}

void CacheTable::erase(std::uint32_t block) {
  const auto slot = find_slot(block);
  if (!slot.has_value())
    return;
  slots_[*slot].state = SlotState::deleted;
  live_ -= 1;
}

void CacheTable::rehash(std::size_t size_index) {
  const auto old = std::exchange(slots_, std::vector<Slot>(slot_counts[size_index]));
  size_index_ = size_index;
  for (const Slot& entry : old) {
    if (entry.state != SlotState::in_use)
      continue;
    std::size_t slot = hash(entry.block);
    while (slots_[slot].state == SlotState::in_use)
      slot = after(slot);
    slots_[slot] = entry;
  }
  non_empty_ = live_;
  rehashes_ += 1;
}

}  // namespace mdb
