// A list of journalled updates in the order in which they were made, that can be asked by block, so that
// reading a block costs the updates of that block and not those of the whole half.

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

class UpdateIndex {
 public:
  // REQUIRES (add): block_size() of the store is set; record.length is not 0.
  void add(const UpdateRecord& record);
  // Drops all but the first `count` updates.
  void truncate(std::size_t count);
  void clear();
  // Moves the data of every update by the same distance in the journal.
  void move_data(std::int64_t distance);

  std::size_t size() const { return records_.size(); }
  // In the order in which they were made.
  std::span<const UpdateRecord> records() const { return records_; }
  // Whether some update overwrites the whole block.
  bool covers(std::uint64_t block) const;
  bool touches(std::uint64_t block) const { return chains_.contains(block); }
  // The blocks that any update touches, in ascending order.
  std::vector<std::uint64_t> blocks() const;

  // Calls `visit(const UpdateRecord&)` for the updates that touch the block, oldest first, but for those that
  // a later one overwrites whole, the block's every byte.
  template <typename Visitor>
  void for_each_of_block(std::uint64_t block, Visitor visit) const {
    const auto chain = chains_.find(block);
    if (chain == chains_.end())
      return;
    for (std::size_t link = first_that_counts(chain->second); link != no_link; link = links_[link].next) {
      visit(records_[links_[link].record]);
    }
  }

 private:
  static constexpr std::size_t no_link = ~std::size_t{0};

  // One touch of one block by one update.
  struct Link {
    std::uint64_t block;
    std::size_t record;
    std::size_t previous;
    std::size_t next;
  };
  struct Chain {
    std::size_t first;
    std::size_t last;
  };

  bool covers_block(const Link& link) const;
  // The last link whose update covers the whole block, or the first one.
  std::size_t first_that_counts(const Chain& chain) const;
  void append_link(std::uint64_t block, std::size_t record);
  void drop_last_link();

  std::vector<UpdateRecord> records_;
  std::vector<Link> links_;
  std::unordered_map<std::uint64_t, Chain> chains_;
};

}  // namespace mdb
