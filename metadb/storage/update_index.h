// Journalled updates by the block that they touch, so that reading a block costs the updates of that block
// and not those of the whole half.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

namespace mdb {

// Where an update goes and where its data lies.
struct UpdateRecord {
  std::uint64_t target;         // byte offset in the database
  std::uint32_t length;         // bytes, not 0
  std::uint32_t data_position;  // byte offset in the journal
};

// Whether the update overwrites the whole block.
bool covers_block(const UpdateRecord& update, std::uint64_t block);

class UpdateIndex {
 public:
  // REQUIRES (add): block_size() of the store is set; record.length is not 0.
  // What fails may leave the update with some of its blocks, for remove_last to take away.
  void add(const UpdateRecord& record);
  // Takes away the update that was added last, or as much of it as was added.
  void remove_last(const UpdateRecord& record);
  // Drops all; the room for them stays.
  void clear();
  // Moves the data of every update by the same distance in the journal.
  void move_data(std::int64_t distance);

  bool touches(std::uint64_t block) const { return lists_.contains(block); }
  // The blocks that any update touches, in ascending order.
  std::vector<std::uint64_t> blocks() const;
  // The updates that touch the block, oldest first, from the last one on that covers it. Valid until the next
  // change.
  std::span<const UpdateRecord> of_block(std::uint64_t block) const;

 private:
  // The updates of one block stand together, as looking at them one by one across the memory would cost more
  // than what they say.
  struct List {
    std::size_t start;  // in updates_
    std::size_t capacity;
    std::size_t count = 0;
    std::size_t counts_from = 0;  // the last that covers the whole block, or the first
  };

  void close_up_if_sparse();
  void append(std::uint64_t block, const UpdateRecord& record);
  void make_room(List& list);
  void drop_last(std::uint64_t block, List& list);

  std::vector<UpdateRecord> updates_;  // the lists, and what they left behind as they grew and went
  std::size_t listed_ = 0;             // of them
  std::unordered_map<std::uint64_t, List> lists_;
};

}  // namespace mdb
