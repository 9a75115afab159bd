// The open-addressing hash table from block number to cache entry: linear probing, deleted slots kept until
// a rehash, prime slot counts.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace mdb {

class CacheTable {
 public:
  using Entry = std::uint32_t;  // index of a cache entry

  CacheTable();

  // Looks the block up; every probe after the first is added to probes().
  std::optional<Entry> find(std::uint32_t block);
  // Enters the block, or leaves an existing slot of that block unchanged.
  void insert(std::uint32_t block, Entry entry);
  // Marks the block's slot deleted, if there is one.
  void erase(std::uint32_t block);

  std::uint32_t slot_count() const { return static_cast<std::uint32_t>(slots_.size()); }
  std::uint32_t live_count() const { return live_; }
  std::uint32_t non_empty_count() const { return non_empty_; }
  std::uint64_t probes() const { return probes_; }
  std::uint64_t rehashes() const { return rehashes_; }

 private:
  enum class SlotState : std::uint32_t { empty = 0, in_use = 1, deleted = 2 };

  struct Slot {
    SlotState state = SlotState::empty;
    std::uint32_t block = 0;
    Entry entry = 0;
  };

  std::size_t hash(std::uint32_t block) const;
  std::size_t after(std::size_t slot) const { return slot + 1 == slots_.size() ? 0 : slot + 1; }
  std::optional<std::size_t> find_slot(std::uint32_t block);
  void keep_sparse();
  void rehash(std::size_t size_index);

  std::vector<Slot> slots_;
  std::size_t size_index_ = 0;
  std::uint32_t live_ = 0;
  std::uint32_t non_empty_ = 0;
  std::uint64_t probes_ = 0;
  std::uint64_t rehashes_ = 0;
};

}  // namespace mdb
