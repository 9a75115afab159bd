// The updates of the open transactions in the order in which they were made, and by block.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "update_index.h"

namespace mdb {

class PendingUpdates {
 public:
  // What fails changes nothing.
  // REQUIRES: block_size() of the store is set; record.length is not 0.
  void add(const UpdateRecord& record);
  // Drops all but the first `count`.
  void truncate(std::size_t count);
  // Moves the data of every update by the same distance in the journal.
  void move_data(std::int64_t distance);

  std::size_t size() const { return records_.size(); }
  std::span<const UpdateRecord> records() const { return records_; }
  bool touches(std::uint64_t block) const { return index_.touches(block); }
  // Those that touch the block and count, as UpdateIndex has them.
  std::span<const UpdateRecord> of_block(std::uint64_t block) const { return index_.of_block(block); }

 private:
  std::vector<UpdateRecord> records_;
  UpdateIndex index_;
};

}  // namespace mdb
