// The blocks of a file gathered into cells, so that a picture of millions of blocks stays small.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "views/json_writer.h"

namespace inspect {

class BlockCells {
 public:
  static constexpr std::uint64_t most_cells = 4'096;

  // `uses` are what a block can be used for; the last one is that of the blocks that nobody adds.
  BlockCells(std::uint64_t block_count, std::vector<std::string> uses);

  // Counts the blocks from `first` on for a use. To be called in the order of the blocks: what was counted
  // before, or lies past the last block, is left out, so that no block counts twice.
  void add(std::uint64_t first, std::uint64_t count, std::size_t use);

  // REQUIRES: nothing is added any more.
  void write(JsonWriter& json);

 private:
  struct Share {
    std::size_t use;
    std::uint64_t block_count;
    bool operator==(const Share&) const = default;
  };
  using Cell = std::vector<Share>;

  void count(std::uint64_t first, std::uint64_t end, std::size_t use);

  std::uint64_t block_count_;
  std::uint64_t blocks_per_cell_ = 1;
  std::uint64_t next_ = 0;  // the first block that is not counted yet
  std::vector<std::string> uses_;
  std::vector<Cell> cells_;
};

}  // namespace inspect
